#pragma once

#include <sys/types.h>

#include <array>
#include <cstddef>
#include <cstdint>

namespace Kelvane {

// Packets from a blocking socket, with the results of recv(MSG_WAITALL): fewer
// bytes than asked for only at the end of the connection, zero or less with
// errno when there are none at all. A payload's read also takes along the
// first bytes of what follows it, but only those that have arrived already, so
// that no call waits for more than it was asked for. That saves the system
// call for the next packet's header while packets queue up.
// The socket stays the caller's, and nobody else may read from it.
class PacketReader {
 public:
  static constexpr std::size_t kMost = 32;

  // `ahead`: the bytes to take along, kMost at the most.
  PacketReader(int socket, std::size_t ahead) : socket_(socket), ahead_(ahead) {}

  ssize_t read(void* to, std::size_t size);
  // The bytes stay to be read; kMost at the most.
  ssize_t peek(void* to, std::size_t size);
  ssize_t payload(void* to, std::size_t size);
  // Reads and drops.
  ssize_t discard(std::size_t size);

 private:
  std::size_t take(void* to, std::size_t size);
  ssize_t receive(void* to, std::size_t size);
  ssize_t receiveWithNext(void* to, std::size_t size);
  std::size_t held() const { return end_ - begin_; }

  const int socket_;
  const std::size_t ahead_;
  std::array<std::uint8_t, kMost> bytes_{};  // held from begin_ to end_
  std::size_t begin_ = 0;
  std::size_t end_ = 0;
  int failure_ = 0;  // errno of the read that failed behind bytes that it gave
};

}  // namespace Kelvane
