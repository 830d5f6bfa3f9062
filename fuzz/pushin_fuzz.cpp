// Pushed messages: header lines, then what the content type says about an AAC
// body. Packets must lie within the body, one behind the other.
#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

#include "PushInHeaders.h"
#include "PushInMedia.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  std::string_view text(reinterpret_cast<const char*>(data), size);
  Kelvane::startsMessage(text);
  Kelvane::PushInHeaders headers;
  while (!text.empty()) {
    const std::size_t length = std::min(text.find('\n'), text.size() - 1) + 1;
    Kelvane::parseHeaderLine(std::string(text.substr(0, length)).c_str(), headers);
    text.remove_prefix(length);
  }
  Kelvane::takeAacConfig(headers.contentType);
  const std::size_t body =
      headers.contentLength > 0 ? static_cast<unsigned>(headers.contentLength) : 0;
  const auto packets = Kelvane::splitAac(headers.contentType, body);
  std::size_t position = 0;
  for (const auto& range : packets.ranges) {
    if (range.begin != position || range.end < range.begin) __builtin_trap();
    position = range.end;
  }
  if (packets.outcome == Kelvane::AacPackets::Outcome::split && position != body) __builtin_trap();

  Kelvane::Time_Val time(headers.seconds, headers.useconds);
  Kelvane::Delay_Interval diff{0, 0};
  bool plus = true;
  Kelvane::correctTime(time, Kelvane::Time_Val(1300000000, 0), diff, plus);
  return 0;
}
