#pragma once

// One simulated device: `camsim NAME [options]`. run() parses its own options
// (argv[0] is the protocol's name), plays until killed or until its faults end
// it, and returns the exit status.
struct Protocol {
  const char* name;
  const char* summary;
  int (*run)(int argc, char** argv);
};

// One line a protocol in Protocols.cpp.
extern const Protocol kProtocols[];
extern const unsigned kProtocolCount;
