#include "Net.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/socket.h>

#include <cerrno>
#include <cstdint>
#include <cstring>
#include <stdexcept>
#include <thread>

using Kelvane::UniqueFd;

UniqueFd listenTcp(const std::string& address, int port) {
  UniqueFd listener(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
  const int on = 1;
  setsockopt(listener.get(), SOL_SOCKET, SO_REUSEADDR, &on, sizeof on);
  // Its connections have it too: a device sends what it has at once.
  setsockopt(listener.get(), IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
  sockaddr_in name{};
  name.sin_family = AF_INET;
  name.sin_port = htons(static_cast<std::uint16_t>(port));
  if (inet_pton(AF_INET, address.c_str(), &name.sin_addr) != 1 ||
      bind(listener.get(), reinterpret_cast<sockaddr*>(&name), sizeof name) != 0 ||
      listen(listener.get(), 64) != 0) {
    throw std::runtime_error("could not listen on " + address + ":" + std::to_string(port) + ": " +
                             strerror(errno));
  }
  return listener;
}

int boundPort(const UniqueFd& socket) {
  sockaddr_in name{};
  socklen_t length = sizeof name;
  getsockname(socket.get(), reinterpret_cast<sockaddr*>(&name), &length);
  return ntohs(name.sin_port);
}

UniqueFd acceptTcp(const UniqueFd& listener) {
  UniqueFd connection(accept4(listener.get(), nullptr, nullptr, SOCK_CLOEXEC));
  if (!connection) throw std::runtime_error(std::string("accept failed: ") + strerror(errno));
  return connection;
}

bool sendAll(const UniqueFd& connection, const std::string& data) {
  std::size_t sent = 0;
  while (sent < data.size()) {
    const ssize_t n = send(connection.get(), data.data() + sent, data.size() - sent, MSG_NOSIGNAL);
    if (n <= 0) return false;
    sent += static_cast<std::size_t>(n);
  }
  return true;
}

std::string readExactly(const UniqueFd& connection, std::size_t size) {
  std::string data(size, '\0');
  const ssize_t got = recv(connection.get(), data.data(), size, MSG_WAITALL);
  data.resize(got < 0 ? 0 : static_cast<std::size_t>(got));
  return data;
}

std::string readUntil(const UniqueFd& connection, const std::string& end) {
  std::string data;
  char byte = 0;
  while (recv(connection.get(), &byte, 1, 0) == 1) {
    data.push_back(byte);
    if (data.size() >= end.size() && data.compare(data.size() - end.size(), end.size(), end) == 0) {
      break;
    }
  }
  return data;
}

Ticker::Ticker(double perSecond)
    : interval_(perSecond > 0 ? std::chrono::duration_cast<std::chrono::steady_clock::duration>(
                                    std::chrono::duration<double>(1.0 / perSecond))
                              : std::chrono::steady_clock::duration::zero()),
      next_(std::chrono::steady_clock::now()) {}

void Ticker::wait() {
  next_ += interval_;
  if (interval_ != std::chrono::steady_clock::duration::zero()) {
    std::this_thread::sleep_until(next_);
  }
}
