// The least that a client can do: a request, then a loop that receives and
// throws away. What the comparison benchmarks hold the programs against.
//   bare_receiver http PORT PATH | rtsp PORT PATH | udp PORT     on 127.0.0.1
#include <arpa/inet.h>
#include <sys/socket.h>
#include <unistd.h>

#include <csignal>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

namespace {

constexpr std::size_t kStreamRead = 1000000, kInterleavedRead = 65536, kDatagram = 65536;

int openSocket(int type, int port) {
  const int fd = socket(AF_INET, type, 0);
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_port = htons(static_cast<std::uint16_t>(port));
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  const auto* to = reinterpret_cast<const sockaddr*>(&address);
  if ((type == SOCK_DGRAM ? bind : connect)(fd, to, sizeof address) != 0) {
    perror("bare_receiver");
    exit(1);
  }
  return fd;
}

void request(int fd, const std::string& text) {
  if (send(fd, text.data(), text.size(), 0) < 0) exit(1);
}

// The answer as far as one read brings it: enough for answers of a few lines.
std::string answer(int fd) {
  char text[8192];
  const ssize_t got = recv(fd, text, sizeof text, 0);
  if (got <= 0) exit(1);
  return std::string(text, static_cast<std::size_t>(got));
}

void receive(int fd, std::size_t size) {
  std::vector<char> block(size);
  while (recv(fd, block.data(), block.size(), 0) > 0) continue;
}

std::string after(const std::string& text, const std::string& name, char end) {
  const std::size_t begin = text.find(name);
  if (begin == std::string::npos) return "";
  return text.substr(begin + name.size(),
                     text.find_first_of(std::string("\r\n") + end, begin) - begin - name.size());
}

// The first medium of the description, interleaved in the connection.
void rtsp(int port, const std::string& path) {
  const int fd = openSocket(SOCK_STREAM, port);
  const std::string url = "rtsp://127.0.0.1:" + std::to_string(port) + path;
  request(fd, "DESCRIBE " + url + " RTSP/1.0\r\nCSeq: 1\r\n\r\n");
  std::string description = answer(fd);
  if (description.find("m=") == std::string::npos) description += answer(fd);
  const std::string track = after(description.substr(description.find("m=")), "a=control:", ';');
  request(fd, "SETUP " + url + "/" + track +
                  " RTSP/1.0\r\nCSeq: 2\r\nTransport: RTP/AVP/TCP;unicast;interleaved=0-1\r\n\r\n");
  const std::string session = after(answer(fd), "Session: ", ';');
  request(fd, "PLAY " + url + " RTSP/1.0\r\nCSeq: 3\r\nSession: " + session + "\r\n\r\n");
  receive(fd, kInterleavedRead);
}

void http(int port, const std::string& path) {
  const int fd = openSocket(SOCK_STREAM, port);
  request(fd, "GET " + path + " HTTP/1.0\r\n\r\n");
  receive(fd, kStreamRead);
}

}  // namespace

int main(int argc, char** argv) {
  signal(SIGINT, SIG_DFL);  // ignored where a shell has put the benchmark into the background
  const std::string mode = argc > 2 ? argv[1] : "";
  const int port = argc > 2 ? atoi(argv[2]) : 0;
  const std::string path = argc > 3 ? argv[3] : "/";
  if (mode == "rtsp") {
    rtsp(port, path);
  } else if (mode == "http") {
    http(port, path);
  } else if (mode == "udp") {
    receive(openSocket(SOCK_DGRAM, port), kDatagram);
  } else {
    fprintf(stderr, "usage: bare_receiver http|rtsp PORT PATH, bare_receiver udp PORT\n");
    return 2;
  }
  return 0;
}
