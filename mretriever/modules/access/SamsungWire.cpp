#include "SamsungWire.h"

#include <algorithm>
#include <cstring>

#include "Mpeg4Headers.h"
#include "Wire.h"

namespace Kelvane::samsung {

namespace {

constexpr std::size_t kPasswordAt = 16;
constexpr std::size_t kUserAt = 24;
constexpr std::size_t kConfigurationAt = 16;

void putLoginField(ConnReq& request, std::size_t at, const std::string& text) {
  memcpy(request.data() + at, text.data(), std::min(text.size(), kLoginFieldSize));
}

}  // namespace

ConnReq connectRequest(const std::string& user, const std::string& password) {
  ConnReq request = conn_req;
  putLoginField(request, kPasswordAt, password);
  putLoginField(request, kUserAt, user);
  return request;
}

ConfReq configurationRequest(const Configuration& values) {
  ConfReq request = conf_req;
  request[kConfigurationAt] = values.mediaType;
  request[kConfigurationAt + 1] = values.imageSize;
  request[kConfigurationAt + 2] = values.frameRate;
  request[kConfigurationAt + 3] = values.compression;
  return request;
}

std::optional<std::uint8_t> mediaType(const std::string& mediaFormat) {
  if (mediaFormat == "mpeg4") return 1;
  if (mediaFormat == "mjpg") return 2;
  return std::nullopt;
}

std::uint8_t imageSize(const std::string& name) {
  if (name == "halfsize") return 1;
  if (name == "fullsize") return 2;
  return 0;
}

std::uint8_t frameRate(int configured) {
  return configured >= 2 && configured <= 30 ? static_cast<std::uint8_t>(configured) : 1;
}

std::uint8_t compression(int configured) {
  return configured >= 0 && configured <= 4 ? static_cast<std::uint8_t>(configured) : 2;
}

std::optional<PacketHeader> parse(const RawHeader& raw) {
  if (memcmp(raw.data(), kMagic.data(), kMagic.size()) != 0) return std::nullopt;
  const bool startsFrame =
      raw[PacketHeader::kMarkAt] == 0x80 && raw[PacketHeader::kMarkAt + 1] == 0x01;
  const std::size_t headers =
      PacketHeader::kSize + (startsFrame ? PacketHeader::kFrameHeaderSize : 0);
  const std::uint16_t dataSize = le16(raw.data() + PacketHeader::kDataSizeAt);
  return PacketHeader{startsFrame, static_cast<std::uint16_t>(dataSize - headers)};
}

std::uint32_t trimmedSize(const std::uint8_t* frame, std::uint32_t size) {
  while (size > 0 && frame[size - 1] == 0) --size;
  return size;
}

bool hasIVop(const std::uint8_t* frame, std::uint32_t size) {
  constexpr std::size_t kCodingTypeAt = 4;  // behind the start code
  constexpr std::uint8_t kCodingTypeMask = 0xC0;
  std::optional<std::size_t> at = findVop(frame, size, 0);
  while (at && *at + kCodingTypeAt < size) {
    if ((frame[*at + kCodingTypeAt] & kCodingTypeMask) == 0) return true;
    at = findVop(frame, size, *at + 1);
  }
  return false;
}

}  // namespace Kelvane::samsung
