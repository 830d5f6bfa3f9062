#pragma once

#include <atomic>
#include <chrono>
#include <string>
#include <string_view>

#include "BrokerUri.h"

namespace cms::openwire {

using Clock = std::chrono::steady_clock;

// A TCP connection that carries frames: a 32-bit length, then so many bytes.
// One thread reads; writers take turns by the owner's lock. Failures throw
// CMSException.
class Socket {
 public:
  // Longer frames are refused; the broker's own customary limit.
  static constexpr std::size_t kMaxFrame = 104857600;

  // Gives up at the deadline, or soon after `cancelled` is set. A write that
  // the peer does not take fails after `writeLimitMs`.
  Socket(const BrokerUri::Endpoint& endpoint, Clock::time_point deadline, int writeLimitMs,
         const std::atomic<bool>& cancelled);
  ~Socket();
  Socket(const Socket&) = delete;
  Socket& operator=(const Socket&) = delete;

  void writeFrame(std::string_view body);
  // Blocks until readable; false when `milliseconds` (-1: no limit) are over.
  bool awaitData(int milliseconds) const;
  std::string readFrame(Clock::time_point deadline);
  // Makes the reader fail at once. From any thread.
  void shutdown() const;

 private:
  void connect(const BrokerUri::Endpoint& endpoint, Clock::time_point deadline,
               const std::atomic<bool>& cancelled);
  void read(char* to, std::size_t count, Clock::time_point deadline);

  int fd_ = -1;
};

}  // namespace cms::openwire
