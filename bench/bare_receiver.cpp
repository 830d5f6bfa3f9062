// A request, then a loop that receives and throws away. What the comparison
// benchmarks hold the programs against.
//   bare_receiver http PORT PATH | rtsp PORT PATH | udp PORT     on 127.0.0.1
#include <sys/socket.h>

#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

#include "bare_client.h"

namespace {

constexpr std::size_t kStreamRead = 1000000, kInterleavedRead = 65536, kDatagram = 65536;

void receive(int fd, std::size_t size) {
  std::vector<char> block(size);
  while (recv(fd, block.data(), block.size(), 0) > 0) continue;
}

}  // namespace

int main(int argc, char** argv) {
  signal(SIGINT, SIG_DFL);  // ignored where a shell has put the benchmark into the background
  const std::string mode = argc > 2 ? argv[1] : "";
  const int port = argc > 2 ? atoi(argv[2]) : 0;
  const std::string path = argc > 3 ? argv[3] : "/";
  if (mode == "rtsp") {
    receive(bench::playRtsp(port, path).fd, kInterleavedRead);
  } else if (mode == "http") {
    const int fd = bench::openSocket(SOCK_STREAM, port);
    bench::request(fd, "GET " + path + " HTTP/1.0\r\n\r\n");
    receive(fd, kStreamRead);
  } else if (mode == "udp") {
    receive(bench::openSocket(SOCK_DGRAM, port), kDatagram);
  } else {
    fprintf(stderr, "usage: bare_receiver http|rtsp PORT PATH, bare_receiver udp PORT\n");
    return 2;
  }
  return 0;
}
