#include "bare_client.h"

#include <arpa/inet.h>
#include <sys/socket.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>

namespace bench {

namespace {

// The answer as far as one read brings it: enough for answers of a few lines.
std::string answer(int fd) {
  char text[8192];
  const ssize_t got = recv(fd, text, sizeof text, 0);
  if (got <= 0) fail("no answer");
  return std::string(text, static_cast<std::size_t>(got));
}

std::string after(const std::string& text, const std::string& name, char end) {
  const std::size_t begin = text.find(name);
  if (begin == std::string::npos) return "";
  return text.substr(begin + name.size(),
                     text.find_first_of(std::string("\r\n") + end, begin) - begin - name.size());
}

}  // namespace

void fail(const char* what) {
  perror(what);
  exit(1);
}

int openSocket(int type, int port) {
  const int fd = socket(AF_INET, type, 0);
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_port = htons(static_cast<std::uint16_t>(port));
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  const auto* to = reinterpret_cast<const sockaddr*>(&address);
  if ((type == SOCK_DGRAM ? bind : connect)(fd, to, sizeof address) != 0) fail("no connection");
  return fd;
}

void request(int fd, const std::string& text) {
  if (send(fd, text.data(), text.size(), 0) < 0) fail("no request");
}

RtspStream playRtsp(int port, const std::string& path) {
  const int fd = openSocket(SOCK_STREAM, port);
  const std::string url = "rtsp://127.0.0.1:" + std::to_string(port) + path;
  request(fd, "DESCRIBE " + url + " RTSP/1.0\r\nCSeq: 1\r\n\r\n");
  std::string described = answer(fd);
  if (described.find("m=") == std::string::npos) described += answer(fd);
  const std::string track = after(described.substr(described.find("m=")), "a=control:", ';');
  request(fd, "SETUP " + url + "/" + track +
                  " RTSP/1.0\r\nCSeq: 2\r\nTransport: RTP/AVP/TCP;unicast;interleaved=0-1\r\n\r\n");
  const std::string session = after(answer(fd), "Session: ", ';');
  request(fd, "PLAY " + url + " RTSP/1.0\r\nCSeq: 3\r\nSession: " + session + "\r\n\r\n");
  return {fd, described.substr(described.find("\r\n\r\n") + 4)};
}

}  // namespace bench
