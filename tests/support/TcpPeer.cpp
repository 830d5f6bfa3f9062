#include "TcpPeer.h"

#include <arpa/inet.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>

#include <cctype>
#include <stdexcept>

#include "Deadline.h"

namespace testsupport {

namespace {

constexpr int kPatienceMs =
    static_cast<int>(std::chrono::duration_cast<std::chrono::milliseconds>(kPatience).count());

bool readable(int fd) {
  pollfd entry{fd, POLLIN, 0};
  return poll(&entry, 1, kPatienceMs) == 1;
}

}  // namespace

std::string bytes(std::initializer_list<int> values) {
  std::string text;
  for (const int value : values) text.push_back(static_cast<char>(value));
  return text;
}

std::string hex(const std::string& digits) {
  std::string text;
  std::string pair;
  for (const char digit : digits) {
    if (isxdigit(static_cast<unsigned char>(digit)) == 0) continue;
    pair.push_back(digit);
    if (pair.size() < 2) continue;
    text.push_back(static_cast<char>(std::stoi(pair, nullptr, 16)));
    pair.clear();
  }
  return text;
}

std::string rtp(int sequence, const std::string& payload, int type, int ssrc) {
  const int high = sequence >> 8;
  const int low = sequence & 255;
  return bytes({0x80, 0x80 | type, high, low, 0, 0, high, low, 0, 0, 0, ssrc}) + payload;
}

Kelvane::UniqueFd unixSocket(const std::string& path, bool bound) {
  Kelvane::UniqueFd fd(socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0));
  sockaddr_un name{};
  name.sun_family = AF_UNIX;
  path.copy(name.sun_path, sizeof name.sun_path - 1);
  const auto* generic = reinterpret_cast<const sockaddr*>(&name);
  const bool there = bound
                         ? bind(fd.get(), generic, sizeof name) == 0
                         : eventually([&] { return connect(fd.get(), generic, sizeof name) == 0; });
  if (!there) throw std::runtime_error("nobody serves " + path);
  return fd;
}

SocketPair::SocketPair(int type) {
  int ends[2];
  if (socketpair(AF_UNIX, type | SOCK_CLOEXEC, 0, ends) != 0) {
    throw std::runtime_error("socketpair failed");
  }
  near.reset(ends[0]);
  far.reset(ends[1]);
}

std::string PeerConnection::read(std::size_t size) {
  std::string data;
  while (data.size() < size && readable(fd_.get())) {
    char block[65536];
    const std::size_t wanted = std::min(sizeof block, size - data.size());
    const ssize_t got = recv(fd_.get(), block, wanted, 0);
    if (got <= 0) break;
    data.append(block, static_cast<std::size_t>(got));
  }
  return data;
}

std::string PeerConnection::readUntil(const std::string& end) {
  std::string data;
  while (data.size() < end.size() || data.compare(data.size() - end.size(), end.size(), end) != 0) {
    const std::string next = read(1);
    if (next.empty()) break;
    data += next;
  }
  return data;
}

bool PeerConnection::write(const std::string& data) {
  std::size_t sent = 0;
  while (sent < data.size()) {
    const ssize_t n = send(fd_.get(), data.data() + sent, data.size() - sent, MSG_NOSIGNAL);
    if (n <= 0) return false;
    sent += static_cast<std::size_t>(n);
  }
  return true;
}

bool PeerConnection::awaitClose() {
  const auto deadline = std::chrono::steady_clock::now() + kPatience;
  char block[65536];
  while (std::chrono::steady_clock::now() < deadline && readable(fd_.get())) {
    if (recv(fd_.get(), block, sizeof block, 0) <= 0) return true;
  }
  return false;
}

void PeerConnection::reset() {
  const linger now{1, 0};
  setsockopt(fd_.get(), SOL_SOCKET, SO_LINGER, &now, sizeof now);
  fd_.reset();
}

TcpPeer::TcpPeer(const std::string& address, int port)
    : fd_(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
  const int on = 1;
  setsockopt(fd_.get(), SOL_SOCKET, SO_REUSEADDR, &on, sizeof on);
  sockaddr_in name{};
  name.sin_family = AF_INET;
  name.sin_port = htons(static_cast<std::uint16_t>(port));
  name.sin_addr.s_addr = inet_addr(address.c_str());
  socklen_t length = sizeof name;
  auto* generic = reinterpret_cast<sockaddr*>(&name);
  if (bind(fd_.get(), generic, length) != 0 || listen(fd_.get(), 16) != 0 ||
      getsockname(fd_.get(), generic, &length) != 0) {
    throw std::runtime_error("could not listen on " + address + ":" + std::to_string(port));
  }
  port_ = ntohs(name.sin_port);
}

PeerConnection TcpPeer::accept() {
  if (!readable(fd_.get())) return PeerConnection(-1);
  return PeerConnection(::accept4(fd_.get(), nullptr, nullptr, SOCK_CLOEXEC));
}

}  // namespace testsupport
