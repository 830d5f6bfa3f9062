// The least that a client can do, for the comparison benchmarks. Failures end
// the process with a line on the standard error output.
#pragma once

#include <string>

namespace bench {

[[noreturn]] void fail(const char* what);

// A TCP socket that is connected to the port, or a UDP socket that is bound to
// it, on 127.0.0.1.
int openSocket(int type, int port);
void request(int fd, const std::string& text);

// The connection after PLAY, with the first medium of the description
// interleaved in it.
struct RtspStream {
  int fd;
  std::string description;  // SDP
};
RtspStream playRtsp(int port, const std::string& path);

}  // namespace bench
