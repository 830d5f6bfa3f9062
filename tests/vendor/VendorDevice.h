#pragma once

#include <functional>
#include <string>
#include <thread>

#include "support/TcpPeer.h"
#include "support/TestHost.h"

namespace testsupport {

// A running producer and its device, which has keys(), open() for what goes
// ahead of the stream, `stream`, and last(), the packet that lets a blocked read
// see the stop flag.
template <class Producer, class Device>
struct VendorSession {
  using Play = std::function<void(Device&)>;

  explicit VendorSession(const TestHost::Keys& changed = {}) : host(device.keys(changed)) {
    host.run(producer);
    opened = device.open();
  }
  ~VendorSession() {
    host.stop();
    sends(Device::last());
    host.awaitEnd();
  }
  void sends(const std::string& packets) { device.stream.write(packets); }
  CapturingSink& video() { return *host.video(); }

  // For death tests: start() of a fresh producer against a device, which goes
  // on as `play` says on a thread of its own and then closes the stream.
  static void startAgainst(const Play& play, const TestHost::Keys& changed = {}) {
    Device device;
    TestHost host(device.keys(changed));
    std::thread peer([&] {
      play(device);
      device.stream.close();
    });
    Producer producer(host.audio(), host.video());
    producer.start();
    peer.join();
  }
  // What the device sends behind its opening.
  static Play sending(const std::string& packets) {
    return [packets](Device& device) { device.open() && device.stream.write(packets); };
  }

  Device device;
  TestHost host;
  Producer producer{host.audio(), host.video()};
  bool opened = false;
};

inline std::string le(unsigned value, int bytes) {
  std::string text;
  for (int i = 0; i < bytes; ++i) text.push_back(static_cast<char>(value >> (8 * i)));
  return text;
}

}  // namespace testsupport
