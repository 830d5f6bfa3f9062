#include "VSIPWire.h"

#include <algorithm>
#include <cstring>

#include "Mpeg4Headers.h"
#include "Wire.h"

namespace Kelvane::vsip {

Request streamRequest(const std::uint8_t* uid) {
  constexpr std::size_t kUidAt = 7;
  static_assert(kUidAt + kUidSize == sizeof(Request));
  Request request = req;
  memcpy(request.data() + kUidAt, uid, kUidSize);
  return request;
}

PacketHeader parse(const RawHeader& raw) {
  const std::uint16_t length = be16(raw.data() + PacketHeader::kLengthAt);
  return {be16(raw.data() + PacketHeader::kSeqNumAt),
          static_cast<std::uint16_t>(length - PacketHeader::kSize)};
}

bool startsFrame(const PayloadHead& head) {
  return head[0] == 0x00 && head[1] == 0x00 && head[2] == 0x01;
}

bool startsStream(const std::uint8_t* payload) {
  constexpr PayloadHead kVisualObjectSequence{0x00, 0x00, 0x01, 0xB0};
  return std::equal(kVisualObjectSequence.begin(), kVisualObjectSequence.end(), payload);
}

std::optional<std::uint32_t> streamHeadersSize(const std::uint8_t* buffer, std::size_t size) {
  const auto at = findVop(buffer, size, sizeof(PayloadHead));
  if (!at) return std::nullopt;
  return static_cast<std::uint32_t>(*at);
}

// No "&" ahead of TargetAudioPort: devices are asked that way.
std::string keepAliveTemplate(const KeepAliveKeys& keys) {
  return "GET /FramesetRightCommand.asp?command=KeepAlive&TargetGuid=" + keys.targetGuid +
         "&TargetIp=" + keys.targetIp + "&TargetPort=0&SourceGuid=" + keys.sourceGuid +
         "&TargetAudioIp=" + keys.targetIp + "TargetAudioPort=0&FakeParam=%d" + " HTTP/1.0\r\n" +
         "Host: " + keys.host + "\r\n" + keys.authorization + "\r\n";
}

std::string keepAliveRequest(const std::string& form, int fakeParam) {
  std::string request;
  for (std::size_t at = 0; at < form.size(); ++at) {
    if (form.compare(at, 2, "%d") == 0) {
      request += std::to_string(fakeParam);
      ++at;
    } else {
      if (form.compare(at, 2, "%%") == 0) ++at;
      request += form[at];
    }
  }
  return request;
}

}  // namespace Kelvane::vsip
