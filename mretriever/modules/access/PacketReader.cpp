#include "PacketReader.h"

#include <sys/socket.h>
#include <sys/uio.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

#include "SocketIo.h"

namespace Kelvane {

namespace {

// What two reads in a row gave together; a failure counts only when nothing
// came before it.
ssize_t together(std::size_t first, ssize_t second) {
  if (second > 0) return static_cast<ssize_t>(first) + second;
  return first > 0 ? static_cast<ssize_t>(first) : second;
}

}  // namespace

std::size_t PacketReader::take(void* to, std::size_t size) {
  const std::size_t taken = std::min(size, held());
  memcpy(to, bytes_.data() + begin_, taken);
  begin_ += taken;
  return taken;
}

ssize_t PacketReader::receive(void* to, std::size_t size) {
  if (failure_ != 0) {
    errno = failure_;
    return -1;
  }
  const ssize_t got = receiveAll(socket_, to, size);
  if (got < 0) failure_ = errno;
  return got;
}

// Does not wait for more than one byte: the rest of the payload is the caller's.
ssize_t PacketReader::receiveWithNext(void* to, std::size_t size) {
  if (failure_ != 0) return receive(to, size);
  begin_ = end_ = 0;
  iovec parts[] = {{to, size}, {bytes_.data(), ahead_}};
  msghdr message{};
  message.msg_iov = parts;
  message.msg_iovlen = 2;
  const ssize_t got = recvmsg(socket_, &message, 0);
  if (got < 0) failure_ = errno;
  if (got <= static_cast<ssize_t>(size)) return got;
  end_ = static_cast<std::size_t>(got) - size;
  return static_cast<ssize_t>(size);
}

ssize_t PacketReader::read(void* to, std::size_t size) {
  const std::size_t had = take(to, size);
  if (had == size) return static_cast<ssize_t>(size);
  return together(had, receive(static_cast<std::uint8_t*>(to) + had, size - had));
}

ssize_t PacketReader::peek(void* to, std::size_t size) {
  ssize_t got = 0;
  if (held() < size) {
    memmove(bytes_.data(), bytes_.data() + begin_, held());
    end_ = held();
    begin_ = 0;
    got = receive(bytes_.data() + end_, size - end_);
    if (got > 0) end_ += static_cast<std::size_t>(got);
  }
  const std::size_t seen = std::min(size, held());
  memcpy(to, bytes_.data() + begin_, seen);
  return seen > 0 ? static_cast<ssize_t>(seen) : got;
}

ssize_t PacketReader::payload(void* to, std::size_t size) {
  auto* at = static_cast<std::uint8_t*>(to);
  std::size_t have = take(at, size);
  if (have == size) return static_cast<ssize_t>(size);
  const ssize_t got = receiveWithNext(at + have, size - have);
  if (got <= 0) return together(have, got);
  have += static_cast<std::size_t>(got);
  if (have == size) return static_cast<ssize_t>(size);
  return together(have, receive(at + have, size - have));
}

ssize_t PacketReader::discard(std::size_t size) {
  std::array<std::uint8_t, 8192> scratch;
  std::size_t dropped = 0;
  ssize_t got = 0;
  while (dropped < size) {
    got = read(scratch.data(), std::min(scratch.size(), size - dropped));
    if (got <= 0) break;
    dropped += static_cast<std::size_t>(got);
  }
  return together(dropped, got > 0 ? 0 : got);
}

}  // namespace Kelvane
