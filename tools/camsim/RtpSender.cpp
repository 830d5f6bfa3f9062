#include "RtpSender.h"

#include <arpa/inet.h>
#include <sys/socket.h>

#include <algorithm>
#include <stdexcept>
#include <utility>
#include <vector>

namespace {

constexpr std::size_t kPayloadSize = 1400;
constexpr char kStartCode[] = {0, 0, 1};

std::vector<std::string> nalUnits(const std::string& unit) {
  const std::string code(kStartCode, sizeof kStartCode);
  std::vector<std::string> nals;
  for (auto at = unit.find(code); at != std::string::npos;) {
    const auto next = unit.find(code, at + code.size());
    std::string nal = unit.substr(at + code.size(), next - at - code.size());
    while (next != std::string::npos && !nal.empty() && nal.back() == '\0') nal.pop_back();
    if (!nal.empty()) nals.push_back(std::move(nal));
    at = next;
  }
  return nals;
}

void put(std::string& to, std::uint32_t value, int bytes) {
  for (int i = bytes - 1; i >= 0; --i) to.push_back(static_cast<char>(value >> (8 * i)));
}

}  // namespace

RtpSender::RtpSender(const std::string& host, int port, std::string format, int payloadType)
    : socket_(socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0)),
      format_(std::move(format)),
      payloadType_(payloadType) {
  to_.sin_family = AF_INET;
  to_.sin_port = htons(static_cast<std::uint16_t>(port));
  if (inet_pton(AF_INET, host.c_str(), &to_.sin_addr) != 1) {
    throw std::runtime_error("no address to send to: " + host);
  }
}

void RtpSender::send(const std::string& unit, std::uint32_t timestamp) {
  if (format_ == "h264") {
    const auto nals = nalUnits(unit);
    for (const auto& nal : nals) sendNal(nal, timestamp, &nal == &nals.back());
    return;
  }
  for (std::size_t at = 0; at < unit.size(); at += kPayloadSize) {
    sendPacket(unit.substr(at, kPayloadSize), timestamp, at + kPayloadSize >= unit.size());
  }
}

void RtpSender::sendNal(const std::string& nal, std::uint32_t timestamp, bool last) {
  if (nal.size() <= kPayloadSize) {
    sendPacket(nal, timestamp, last);
    return;
  }
  const auto header = static_cast<unsigned char>(nal[0]);
  for (std::size_t at = 1; at < nal.size(); at += kPayloadSize) {
    const bool first = at == 1;
    const bool end = at + kPayloadSize >= nal.size();
    std::string payload;
    put(payload, (header & 0xE0U) | 28U, 1);  // FU-A
    put(payload, (first ? 0x80U : 0U) | (end ? 0x40U : 0U) | (header & 0x1FU), 1);
    sendPacket(payload + nal.substr(at, kPayloadSize), timestamp, last && end);
  }
}

void RtpSender::sendPacket(const std::string& payload, std::uint32_t timestamp, bool marker) {
  std::string packet;
  put(packet, 0x80, 1);
  put(packet, (marker ? 0x80U : 0U) | static_cast<unsigned>(payloadType_), 1);
  put(packet, sequence_++, 2);
  put(packet, timestamp, 4);
  put(packet, 0x50454C43, 4);  // SSRC
  packet += payload;
  // A receiver that is not there yet, or no more, is no matter of a camera.
  sendto(socket_.get(), packet.data(), packet.size(), 0, reinterpret_cast<const sockaddr*>(&to_),
         sizeof to_);
}
