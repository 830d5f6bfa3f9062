#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>

namespace Kelvane {

// What a frame out of a transport stream is, by its own first bytes and not by
// what the stream announced.
enum class TSFrameKind { video = 0, audio = 1, metadata = 2 };
constexpr std::size_t kTSFrameKinds = 3;

TSFrameKind kindOf(const std::uint8_t* frame, std::size_t size);

// Header of an AAC frame, big-endian bit fields; more follows.
//   byte 0, 1  12 bits  all set
//   byte 2      2 bits  profile, 3 is reserved
//   byte 2      4 bits  sampling index
//   byte 2, 3   3 bits  channel setting, after one private bit
struct AdtsHeader {
  static constexpr std::size_t kSize = 7;  // without the CRC that may follow
  static constexpr unsigned kReservedProfile = 3;

  unsigned profile;
  unsigned samplingIndex;
  unsigned channels;

  // MPEG-4 audio configuration of two bytes.
  std::array<std::uint8_t, 2> config() const;
};

// Nothing for a frame that is shorter than the header or has no syncword.
std::optional<AdtsHeader> parseAdts(const std::uint8_t* frame, std::size_t size);

}  // namespace Kelvane
