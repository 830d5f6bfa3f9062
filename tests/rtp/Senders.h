#pragma once

#include <memory>
#include <string>
#include <vector>

#include "UniqueFd.h"
#include "support/Subprocess.h"

namespace testsupport {

// Sends datagrams to 127.0.0.1, or to a multicast group without leaving the host.
class UdpSender {
 public:
  explicit UdpSender(int port, const std::string& address = "127.0.0.1");
  void send(const std::string& datagram);

 private:
  Kelvane::UniqueFd fd_;
};

// Whether some socket of this machine is bound to the UDP port.
bool udpPortBound(int port);
bool awaitUdpPort(int port);

// ffmpeg as the device: a moving picture of 352x288 at 25 frames a second, and
// a tone where `sound` is set, both endless and in real time. `coding` and
// `output` are ffmpeg's options.
std::unique_ptr<Subprocess> ffmpegSender(const std::string& coding, bool sound,
                                         const std::string& output);

}  // namespace testsupport
