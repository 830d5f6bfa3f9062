#include "TSFrame.h"

#include "Wire.h"

namespace Kelvane {

namespace {

bool hasSyncword(const std::uint8_t* frame, std::size_t size) {
  return size >= 2 && (be16(frame) & 0xFFF0) == 0xFFF0;
}

bool hasStartCode(const std::uint8_t* frame, std::size_t size) {
  if (size < 3 || be16(frame) != 0) return false;
  return frame[2] == 1 || (size >= 4 && frame[2] == 0 && frame[3] == 1);
}

}  // namespace

TSFrameKind kindOf(const std::uint8_t* frame, std::size_t size) {
  if (hasSyncword(frame, size)) return TSFrameKind::audio;
  return hasStartCode(frame, size) ? TSFrameKind::video : TSFrameKind::metadata;
}

std::array<std::uint8_t, 2> AdtsHeader::config() const {
  return {static_cast<std::uint8_t>((profile + 1) << 3 | samplingIndex >> 1),
          static_cast<std::uint8_t>(samplingIndex << 7 | channels << 3)};
}

std::optional<AdtsHeader> parseAdts(const std::uint8_t* frame, std::size_t size) {
  if (size < AdtsHeader::kSize || !hasSyncword(frame, size)) return std::nullopt;
  AdtsHeader header{};
  header.profile = frame[2] >> 6;
  header.samplingIndex = frame[2] >> 2 & 0x0F;
  header.channels = (frame[2] & 1U) << 2 | frame[3] >> 6;
  return header;
}

}  // namespace Kelvane
