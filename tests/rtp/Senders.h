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

// An RTP packet of version 2 with sequence number `sequence`.
std::string rtp(int payloadType, int sequence, const std::string& payload, bool marker = false);

// Whether some socket of this machine is bound to the UDP port.
bool udpPortBound(int port);
bool awaitUdpPort(int port);

// A UDP socket that holds `port`; 0 for any. Not shared.
struct HeldPort {
  explicit HeldPort(int wanted = 0);
  Kelvane::UniqueFd fd;
  int port = 0;
};

// ffmpeg as the device: a moving picture of 352x288 at 25 frames a second, and
// a tone, both endless and in real time. `video`, `audio` and `output` are
// ffmpeg's options for each; empty `audio` sends none.
std::unique_ptr<Subprocess> ffmpegSender(const std::string& video, const std::string& audio,
                                         const std::string& output);

}  // namespace testsupport
