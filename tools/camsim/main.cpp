#include <signal.h>

#include <cstdio>
#include <cstring>
#include <exception>

#include "Protocol.h"

namespace {

void printHelp(FILE* to) {
  fprintf(to,
          "usage: camsim PROTOCOL [options]\n\n"
          "Plays a device for tests and demonstrations, on loopback.\n"
          "camsim PROTOCOL --help lists the options of one.\n\n");
  for (unsigned i = 0; i < kProtocolCount; ++i) {
    fprintf(to, "  %-10s %s\n", kProtocols[i].name, kProtocols[i].summary);
  }
}

}  // namespace

int main(int argc, char** argv) {
  signal(SIGPIPE, SIG_IGN);
  setvbuf(stdout, nullptr, _IOLBF, 0);
  if (argc < 2 || strcmp(argv[1], "--help") == 0) {
    printHelp(argc < 2 ? stderr : stdout);
    return argc < 2 ? 2 : 0;
  }
  for (unsigned i = 0; i < kProtocolCount; ++i) {
    if (strcmp(argv[1], kProtocols[i].name) != 0) continue;
    try {
      return kProtocols[i].run(argc - 1, argv + 1);
    } catch (const std::exception& failure) {
      fprintf(stderr, "camsim %s: %s\n", argv[1], failure.what());
      return 1;
    }
  }
  fprintf(stderr, "camsim: unknown protocol %s\n", argv[1]);
  printHelp(stderr);
  return 2;
}
