#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

// The binary protocol of Dante video encoders, all little-endian. Every message
// in either direction has a 24-byte header in front.
namespace Kelvane::dante {

constexpr int kConfigurationPort = 2003;
constexpr int kStreamPort = 2002;

// Message types.
enum PackType : std::int32_t {
  kAudioFrame = 0x101,
  kVideoFrame = 0x102,
  kReadParameters = 0x31A,
  kWriteParameters = 0x31C,
  kLogin = 0x340,
  packHdrIframeRequest = 0x3A5,
};

// The device's own names; an underscore in front of a capital is theirs too.
// NOLINTBEGIN(bugprone-reserved-identifier)

// By the message type. All three begin alike.
struct _VideoInfo {
  std::int32_t channelNum, width, height;
};
struct _AudioInfo {
  std::int32_t channelNum, bitrate, unused;
};
struct _CMD_PARAMS {
  std::int32_t channelNum, Param0, Param1;
};
union _PACKINFO {
  _CMD_PARAMS cp;
  _VideoInfo vi;
  _AudioInfo ai;
};

// Message header.
//    0  4  packSize  the whole message, this header included
//    4  4  packType
//    8 12  packInfo
//   20  4  dataSize  the data behind this header
struct _PACKHEADER {
  static constexpr std::size_t kSize = 24;
  std::uint32_t packSize;
  std::int32_t packType;
  _PACKINFO packInfo;
  std::uint32_t dataSize;
};
// NOLINTEND(bugprone-reserved-identifier)
using RawHeader = std::array<std::uint8_t, _PACKHEADER::kSize>;
_PACKHEADER parse(const RawHeader& raw);
RawHeader raw(const _PACKHEADER& header);

// Encoder parameters. Kept as the device sent them, because all but six fields
// go back untouched; the rest is named in the device's own structures only.
//    0  1  VideoStandard    2 selects the lower row of sizes
//    1  1  videosize
//    2  1  bitratepolicy    0 constant, 1 otherwise
//    4  4  bitrate          unit unknown
//    8  1  videoquality     0 to 4
//    9  1  videofps
//   10  1  videoIInterval   frames from I-frame to I-frame
struct tagVENCODERPARAMSEX {
  static constexpr std::size_t kSize = 216;
  static constexpr std::size_t kVideoStandardAt = 0, kVideoSizeAt = 1, kBitratePolicyAt = 2,
                               kBitrateAt = 4, kVideoQualityAt = 8, kVideoFpsAt = 9,
                               kVideoIIntervalAt = 10;
  std::array<std::uint8_t, kSize> bytes{};
};

// What the configuration asks of the encoder.
struct WantedParameters {
  std::string imageSize;  // "hugesize", "fullsize", anything else is the smallest
  bool constantBitrate;
  std::uint32_t bitrate;
  int compression;
  int frameRate;
};
// Numbers that the encoder would not take are replaced or clamped.
void apply(const WantedParameters& wanted, tagVENCODERPARAMSEX& parameters);

// Which channel the device's screens show; -1 for none.
struct tagLAYOUTINFO {
  std::array<std::int32_t, 4> MainLayout;
  std::array<std::int32_t, 4> SubLayout;
};

// Login, two layouts and the request for an I-frame, as one write: the stream is the
// answer. `channel` counts from 0; the texts have no terminators.
std::string loginRequest(std::int32_t channel, std::string_view user, std::string_view password);

// The head of a video message, before its words are reversed. Where it is
// neither frame start, one more message stands in front of the frame.
using FrameHead = std::array<std::uint8_t, 4>;
constexpr FrameHead kIframeHead{0x01, 0x01, 0x00, 0x00};
constexpr FrameHead kOtherFrameHead{0xB6, 0x01, 0x00, 0x00};

// Bytes of motion data behind a frame of that size. 572 lines is right: 576 has
// none.
std::size_t motionDataSize(std::int32_t width, std::int32_t height);

// Stands behind VOS in front of each I-frame.
constexpr std::array<std::uint8_t, 4> kVideoObject{0x00, 0x00, 0x01, 0x00};

// Turns the byte order of that many 32-bit words round, in place.
void reverseWords(std::uint8_t* data, std::size_t words);

}  // namespace Kelvane::dante
