#include "Socket.h"

#include <fcntl.h>
#include <netdb.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <memory>

#include "Wire.h"
#include "cms/CMSException.h"

namespace cms::openwire {
namespace {

std::string errorText(int error) {
  return std::strerror(error);
}

int leftMs(Clock::time_point deadline) {
  const auto left = std::chrono::ceil<std::chrono::milliseconds>(deadline - Clock::now()).count();
  return static_cast<int>(std::clamp<long long>(left, 0, 1 << 30));
}

void setOption(int fd, int level, int name, int value) {
  ::setsockopt(fd, level, name, &value, sizeof value);
}

void configure(int fd, int writeLimitMs) {
  setOption(fd, IPPROTO_TCP, TCP_NODELAY, 1);
  // A dead peer is noticed in some 35 seconds without traffic.
  setOption(fd, SOL_SOCKET, SO_KEEPALIVE, 1);
  setOption(fd, IPPROTO_TCP, TCP_KEEPIDLE, 20);
  setOption(fd, IPPROTO_TCP, TCP_KEEPINTVL, 5);
  setOption(fd, IPPROTO_TCP, TCP_KEEPCNT, 3);
  const timeval limit{writeLimitMs / 1000, writeLimitMs % 1000 * 1000};
  ::setsockopt(fd, SOL_SOCKET, SO_SNDTIMEO, &limit, sizeof limit);
}

// Waits in slices, since nothing else wakes a connection that is being made.
int awaitConnected(int fd, Clock::time_point deadline, const std::atomic<bool>& cancelled) {
  while (!cancelled) {
    pollfd waiting{fd, POLLOUT, 0};
    const int left = leftMs(deadline);
    if (::poll(&waiting, 1, std::min(left, 50)) > 0) {
      int error = 0;
      socklen_t size = sizeof error;
      ::getsockopt(fd, SOL_SOCKET, SO_ERROR, &error, &size);
      return error;
    }
    if (left == 0) return ETIMEDOUT;
  }
  return ECANCELED;
}

}  // namespace

Socket::Socket(const BrokerUri::Endpoint& endpoint, Clock::time_point deadline, int writeLimitMs,
               const std::atomic<bool>& cancelled) {
  connect(endpoint, deadline, cancelled);
  configure(fd_, writeLimitMs);
}

Socket::~Socket() {
  if (fd_ >= 0) ::close(fd_);
}

void Socket::connect(const BrokerUri::Endpoint& endpoint, Clock::time_point deadline,
                     const std::atomic<bool>& cancelled) {
  const std::string name = endpoint.host + ":" + endpoint.port;
  addrinfo hints{};
  hints.ai_socktype = SOCK_STREAM;
  addrinfo* found = nullptr;
  if (const int error = ::getaddrinfo(endpoint.host.c_str(), endpoint.port.c_str(), &hints, &found))
    throw CMSException("cannot find " + name + ": " + ::gai_strerror(error));
  const std::unique_ptr<addrinfo, decltype(&::freeaddrinfo)> addresses(found, ::freeaddrinfo);
  int error = 0;
  for (const addrinfo* address = found; address != nullptr; address = address->ai_next) {
    const int fd = ::socket(address->ai_family, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
    if (fd < 0) {
      error = errno;
      continue;
    }
    error = ::connect(fd, address->ai_addr, address->ai_addrlen) == 0 ? 0 : errno;
    if (error == EINPROGRESS) error = awaitConnected(fd, deadline, cancelled);
    if (error == 0) {
      // Blocking from here on: reads wait in poll(), writes have a time limit.
      ::fcntl(fd, F_SETFL, ::fcntl(fd, F_GETFL) & ~O_NONBLOCK);
      fd_ = fd;
      return;
    }
    ::close(fd);
  }
  throw CMSException("cannot connect to " + name + ": " + errorText(error));
}

void Socket::writeFrame(std::string_view body) {
  std::string frame = Writer().u32(static_cast<std::uint32_t>(body.size())).raw(body).data();
  std::string_view rest = frame;
  while (!rest.empty()) {
    const ssize_t sent = ::send(fd_, rest.data(), rest.size(), MSG_NOSIGNAL);
    if (sent < 0 && errno == EINTR) continue;
    if (sent <= 0) throw CMSException("cannot write to the broker: " + errorText(errno));
    rest.remove_prefix(static_cast<std::size_t>(sent));
  }
}

bool Socket::awaitData(int milliseconds) const {
  pollfd waiting{fd_, POLLIN, 0};
  int ready;
  do {
    ready = ::poll(&waiting, 1, milliseconds);
  } while (ready < 0 && errno == EINTR);
  if (ready < 0) throw CMSException("cannot wait for the broker: " + errorText(errno));
  return ready > 0;
}

void Socket::read(char* to, std::size_t count, Clock::time_point deadline) {
  while (count > 0) {
    const int left = leftMs(deadline);  // data may come without end
    if (left == 0 || !awaitData(left)) throw CMSException("the broker does not answer");
    const ssize_t got = ::recv(fd_, to, count, 0);
    if (got < 0 && errno == EINTR) continue;
    if (got == 0) throw CMSException("the broker closed the connection");
    if (got < 0) throw CMSException("cannot read from the broker: " + errorText(errno));
    to += got;
    count -= static_cast<std::size_t>(got);
  }
}

std::string Socket::readFrame(Clock::time_point deadline) {
  char head[4];
  read(head, sizeof head, deadline);
  const std::size_t size = Reader({head, sizeof head}).u32();
  if (size == 0 || size > kMaxFrame)
    throw CMSException("malformed data from the broker: a frame of " + std::to_string(size) +
                       " bytes");
  // Grows with what arrives, not with what was announced.
  constexpr std::size_t kStep = 1 << 20;
  std::string frame;
  while (frame.size() < size) {
    const std::size_t start = frame.size();
    frame.resize(std::min(size, start + kStep));
    read(frame.data() + start, frame.size() - start, deadline);
  }
  return frame;
}

void Socket::shutdown() const {
  ::shutdown(fd_, SHUT_RDWR);
}

}  // namespace cms::openwire
