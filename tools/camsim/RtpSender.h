#pragma once

#include <netinet/in.h>

#include <cstdint>
#include <string>

#include "UniqueFd.h"

// Sends access units as plain RTP over UDP: H.264 as single NAL units and
// fragments, MPEG-4 cut at the packet size.
class RtpSender {
 public:
  RtpSender(const std::string& host, int port, std::string format, int payloadType);
  // One access unit, start codes included; `timestamp` in 1/90000 s.
  void send(const std::string& unit, std::uint32_t timestamp);

 private:
  void sendNal(const std::string& nal, std::uint32_t timestamp, bool last);
  void sendPacket(const std::string& payload, std::uint32_t timestamp, bool marker);

  Kelvane::UniqueFd socket_;
  sockaddr_in to_{};
  std::string format_;
  int payloadType_;
  std::uint16_t sequence_ = 1;
};
