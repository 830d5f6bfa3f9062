#pragma once

#include <chrono>
#include <cstddef>
#include <string>

#include "UniqueFd.h"

// Blocking sockets of a simulated device. Failures throw std::runtime_error,
// the end of a connection is a result.
Kelvane::UniqueFd listenTcp(const std::string& address, int port);
int boundPort(const Kelvane::UniqueFd& socket);
Kelvane::UniqueFd acceptTcp(const Kelvane::UniqueFd& listener);
// False when the other side is gone.
bool sendAll(const Kelvane::UniqueFd& connection, const std::string& data);
// Exactly `size` bytes, fewer at the end of the connection.
std::string readExactly(const Kelvane::UniqueFd& connection, std::size_t size);
// Up to and with `end`; what came when the connection ended.
std::string readUntil(const Kelvane::UniqueFd& connection, const std::string& end);

// Sends at a steady rate whatever the work in between costs.
class Ticker {
 public:
  explicit Ticker(double perSecond);  // 0: no pace
  void wait();

 private:
  std::chrono::steady_clock::duration interval_;
  std::chrono::steady_clock::time_point next_;
};
