#pragma once

#include <memory>
#include <string>
#include <vector>

#include "UniqueFd.h"
#include "support/Subprocess.h"
#include "support/TestHost.h"

namespace testsupport {

// Sends datagrams to 127.0.0.1, or to a multicast group without leaving the host.
class UdpSender {
 public:
  explicit UdpSender(int port, const std::string& address = "127.0.0.1");
  void send(const std::string& datagram);

 private:
  Kelvane::UniqueFd fd_;
};

// The producer that `keys` select, receiving, and a device that sends to its
// RTP_UNICAST_PORT. The destructor stops it and looks at how it ends.
class Reception {
 public:
  explicit Reception(const TestHost::Keys& keys);
  ~Reception();
  void send(const std::string& datagram) { device_.send(datagram); }

  TestHost host;

 private:
  const std::unique_ptr<Kelvane::NETMediaProducerImpl> producer_;
  UdpSender device_;
};

// The producer is made by the selection, which opens its library on demand.
std::unique_ptr<Kelvane::NETMediaProducerImpl> select(TestHost& host);

// ffmpeg as the device: a moving picture of 352x288 at 25 frames a second, and
// a tone where `sound` is set, both endless and in real time. `coding` and
// `output` are ffmpeg's options.
std::unique_ptr<Subprocess> ffmpegSender(const std::string& coding, bool sound,
                                         const std::string& output);

}  // namespace testsupport
