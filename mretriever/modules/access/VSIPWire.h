#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>

// The protocol of Verint devices: one binary request opens the stream on the
// same connection, and a page of the device's web server keeps it alive.
namespace Kelvane::vsip {

// Stream request. Bytes 0 to 6 are constants whose meaning is unknown.
//    7 33  the stream's identifier
constexpr std::size_t kUidSize = 33;
using Request = std::array<std::uint8_t, 40>;
constexpr Request req{0x01, 0x00, 0x13, 0x00, 0x01, 0x00, 0x28};
Request streamRequest(const std::uint8_t* uid);  // kUidSize bytes
constexpr std::size_t kAnswerSize = 24;          // not looked at

// Stream packet header, big-endian.
//    0  2  seqNum  0 in the first packet of a frame
//    2  2  length of the whole packet, this header included
struct PacketHeader {
  static constexpr std::size_t kSize = 6, kSeqNumAt = 0, kLengthAt = 2;
  std::uint16_t seqNum;
  std::uint16_t dataSize;  // the payload; wraps when the length is less than the header
};
using RawHeader = std::array<std::uint8_t, PacketHeader::kSize>;
PacketHeader parse(const RawHeader& raw);

// The head of an MPEG-4 payload: seqNum tells nothing there.
using PayloadHead = std::array<std::uint8_t, 4>;
bool startsFrame(const PayloadHead& head);
bool startsStream(const std::uint8_t* payload);  // 4 bytes

// Length of the stream headers in front of the first picture. Looks through
// the whole sink buffer of `size` bytes, older bytes included.
std::optional<std::uint32_t> streamHeadersSize(const std::uint8_t* buffer, std::size_t size);

// The keep-alive's request with "%d" in the place of its number.
struct KeepAliveKeys {
  std::string targetGuid;
  std::string targetIp;
  std::string sourceGuid;
  std::string host;
  std::string authorization;  // a whole header line, or nothing
};
std::string keepAliveTemplate(const KeepAliveKeys& keys);
// Fills the number in. The configured texts are part of the template: in them
// too a "%d" becomes the number and a "%%" one "%"; any other "%" stays.
std::string keepAliveRequest(const std::string& form, int fakeParam);

}  // namespace Kelvane::vsip
