#pragma once

#include <functional>
#include <string>
#include <thread>

#include "support/TcpPeer.h"
#include "support/TestHost.h"

namespace testsupport {

// For death tests: start() of a fresh producer against a device, which listens
// already and goes on as `play` says on a thread of its own. Comes back only
// when start() does.
template <class Producer, class Device>
void startAgainst(TestHost& host, Device& device, const std::function<void(Device&)>& play) {
  std::thread peer([&] { play(device); });
  Producer producer(host.audio(), host.video());
  producer.start();
  peer.join();
}

// The same against a device with fixed ports, made here and now.
template <class Producer, class Device>
void startAgainst(TestHost& host, const std::function<void(Device&)>& play) {
  Device device;
  startAgainst<Producer, Device>(host, device, play);
}

inline std::string le(unsigned value, int bytes) {
  std::string text;
  for (int i = 0; i < bytes; ++i) text.push_back(static_cast<char>(value >> (8 * i)));
  return text;
}

}  // namespace testsupport
