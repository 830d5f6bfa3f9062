#pragma once

#include <netinet/in.h>
#include <sys/socket.h>

#include <array>
#include <chrono>
#include <cstddef>
#include <vector>

#include "RtpAdmission.h"

namespace Kelvane {

// Datagrams of one socket that receives an RTP stream, taken from the kernel as
// many at a time as wait there, and handed on one by one without strays. Most of
// what a stream costs are wake-ups, so within a burst the kernel is asked again
// after a few milliseconds only. Belongs to one thread.
class DatagramBatch {
 public:
  DatagramBatch(int socket, unsigned char payloadType);

  // The next datagram, cut to `size` bytes, and its sender: its length, 0 when
  // there is none. Blocks no longer than kPause. A socket's error tells of what
  // it has sent and counts as nothing received.
  int read(unsigned char* to, std::size_t size, sockaddr_storage& from);
  // Whether a datagram is here already.
  bool pending() const { return next_ < count_; }

 private:
  using Clock = std::chrono::steady_clock;
  static constexpr std::chrono::microseconds kPause{4000};
  static constexpr std::size_t kDatagrams = 16;
  static constexpr std::size_t kLargest = 65536;
  using Slot = std::array<unsigned char, kLargest>;

  void receive();
  void keep();

  int socket_;
  std::chrono::microseconds pause_;
  Clock::time_point resume_;
  RtpAdmission admission_;
  std::vector<unsigned char> kept_;
  sockaddr_storage keptSender_{};
  std::size_t next_ = 0, count_ = 0;
  std::array<std::size_t, kDatagrams> lengths_{};
  std::array<sockaddr_storage, kDatagrams> senders_;
  // Not initialized: what no datagram has reached takes no memory.
  std::array<Slot, kDatagrams> slots_;
};

}  // namespace Kelvane
