#include "DanteWire.h"

#include <cstring>

#include "Wire.h"

namespace Kelvane::dante {

namespace {

constexpr std::uint8_t kSizeFamilyTwo = 2;  // value of VideoStandard; meaning unknown

std::uint8_t videoSize(const std::string& imageSize, std::uint8_t videoStandard) {
  const std::uint8_t family = videoStandard == kSizeFamilyTwo ? 0x20 : 0x40;
  if (imageSize == "hugesize") return family | 0x08;
  if (imageSize == "fullsize") return family | 0x02;
  return family;
}

std::uint32_t clampedBitrate(std::uint32_t bitrate) {
  constexpr std::uint32_t kLeast = 60, kDefault = 500, kMost = 5000;
  if (bitrate < kLeast) return kDefault;
  return bitrate > kMost ? kMost : bitrate;
}

std::uint8_t lowByte(std::uint32_t value) {
  return static_cast<std::uint8_t>(value);
}

std::uint8_t within(std::uint8_t least, std::uint8_t value, std::uint8_t most,
                    std::uint8_t otherwise) {
  return value < least || value > most ? otherwise : value;
}

void append(std::string& to, std::uint32_t word) {
  std::uint8_t bytes[4];
  putLe32(bytes, word);
  to.append(reinterpret_cast<const char*>(bytes), sizeof bytes);
}

void append(std::string& to, const _PACKHEADER& header) {
  const RawHeader bytes = raw(header);
  to.append(reinterpret_cast<const char*>(bytes.data()), bytes.size());
}

void append(std::string& to, const tagLAYOUTINFO& layout) {
  for (const std::int32_t channel : layout.MainLayout)
    append(to, static_cast<std::uint32_t>(channel));
  for (const std::int32_t channel : layout.SubLayout)
    append(to, static_cast<std::uint32_t>(channel));
}

}  // namespace

_PACKHEADER parse(const RawHeader& bytes) {
  const auto word = [&](std::size_t at) { return static_cast<std::int32_t>(le32(&bytes[at])); };
  _PACKHEADER header{};
  header.packSize = le32(&bytes[0]);
  header.packType = word(4);
  header.packInfo.cp = {word(8), word(12), word(16)};
  header.dataSize = le32(&bytes[20]);
  return header;
}

RawHeader raw(const _PACKHEADER& header) {
  RawHeader bytes{};
  const auto put = [&](std::size_t at, std::int32_t word) {
    putLe32(&bytes[at], static_cast<std::uint32_t>(word));
  };
  putLe32(&bytes[0], header.packSize);
  put(4, header.packType);
  put(8, header.packInfo.cp.channelNum);
  put(12, header.packInfo.cp.Param0);
  put(16, header.packInfo.cp.Param1);
  putLe32(&bytes[20], header.dataSize);
  return bytes;
}

void apply(const WantedParameters& wanted, tagVENCODERPARAMSEX& parameters) {
  using P = tagVENCODERPARAMSEX;
  auto& bytes = parameters.bytes;
  const auto frameRate = static_cast<std::uint32_t>(wanted.frameRate);
  // Compression counts from 1: 0 wraps, and so ends as 4.
  const std::uint8_t quality = lowByte(static_cast<std::uint32_t>(wanted.compression) - 1U);
  bytes[P::kVideoSizeAt] = videoSize(wanted.imageSize, bytes[P::kVideoStandardAt]);
  bytes[P::kBitratePolicyAt] = wanted.constantBitrate ? 0 : 1;
  putLe32(&bytes[P::kBitrateAt], clampedBitrate(wanted.bitrate));
  bytes[P::kVideoQualityAt] = within(0, quality, 4, 4);
  bytes[P::kVideoFpsAt] = within(5, lowByte(frameRate), 35, 25);
  bytes[P::kVideoIIntervalAt] = within(10, lowByte(2U * frameRate), 200, 50);
}

std::string loginRequest(std::int32_t channel, std::string_view user, std::string_view password) {
  constexpr std::uint32_t kLayoutsSize = 64;
  const auto u = static_cast<std::uint32_t>(user.size());
  const auto p = static_cast<std::uint32_t>(password.size());
  _PACKHEADER login{};
  login.packSize = u + p + kLayoutsSize + _PACKHEADER::kSize;
  login.packType = kLogin;
  login.packInfo.cp = {0, static_cast<std::int32_t>(u), static_cast<std::int32_t>(p)};
  login.dataSize = u + p + kLayoutsSize;
  _PACKHEADER iframe{};
  iframe.packSize = _PACKHEADER::kSize;
  iframe.packType = packHdrIframeRequest;

  std::string request;
  append(request, login);
  append(request, tagLAYOUTINFO{{channel, -1, -1, -1}, {-1, -1, -1, -1}});
  append(request, tagLAYOUTINFO{});
  request.append(user).append(password);
  append(request, iframe);
  return request;
}

std::size_t motionDataSize(std::int32_t width, std::int32_t height) {
  if (width == 704 && (height == 480 || height == 572)) return 200;
  if (width == 352 && (height == 240 || height == 288)) return 52;
  return 0;
}

// Shifts and masks become vector code on any processor; a byte swap would not.
__attribute__((optimize("O3"))) void reverseWords(std::uint8_t* data, std::size_t words) {
  for (std::size_t i = 0; i < words; ++i) {
    std::uint32_t word;
    memcpy(&word, data + 4 * i, sizeof word);
    word = (word & 0x00FF00FFU) << 8 | (word >> 8 & 0x00FF00FFU);
    word = word << 16 | word >> 16;
    memcpy(data + 4 * i, &word, sizeof word);
  }
}

}  // namespace Kelvane::dante
