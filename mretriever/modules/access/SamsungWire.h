#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>

// The binary protocol of Samsung DVRs. Every message begins with "SDVR",
// numbers are little-endian. Bytes without a name are constants whose meaning
// is unknown; they are sent as they are.
namespace Kelvane::samsung {

constexpr std::array<std::uint8_t, 4> kMagic{'S', 'D', 'V', 'R'};

// Control connection.
constexpr int kControlPort = 4000;

// Connect request. The password stands before the user name; neither has a
// terminator when it fills its field.
//   16  8  password, padded with zeros
//   24  8  user name, likewise
constexpr std::size_t kLoginFieldSize = 8;
using ConnReq = std::array<std::uint8_t, 32>;
constexpr ConnReq conn_req{
    'S',  'D',  'V',  'R',   //
    0x00, 0x10, 0x0C, 0x00,  //
    0x11, 0x71, 0x00, 0x00,  //
    0x14, 0x00, 0x00, 0x01,
};
// Only the first 8 bytes of each count.
ConnReq connectRequest(const std::string& user, const std::string& password);

// Configuration request.
//   16  1  media type: 1 MPEG-4, 2 motion JPEG
//   17  1  image size: 1 half, 2 full, 0 anything else
//   18  1  frames per second
//   19  1  compression, 0 to 4
using ConfReq = std::array<std::uint8_t, 22>;
constexpr ConfReq conf_req{
    'S',  'D',  'V',  'R',   //
    0x00, 0x10, 0x0C, 0x00,  //
    0x11, 0x51, 0x00, 0x01,  //
    0x0A, 0x00, 0x01, 0x00,  //
    0x00, 0x00, 0x01, 0x02,  //
    0x00, 0x00,
};
struct Configuration {
  std::uint8_t mediaType;
  std::uint8_t imageSize;
  std::uint8_t frameRate;
  std::uint8_t compression;
};
ConfReq configurationRequest(const Configuration& values);

// The configured texts and numbers as they go on the wire. Nothing for a media
// format that the device does not serve; numbers out of range give the default.
std::optional<std::uint8_t> mediaType(const std::string& mediaFormat);
std::uint8_t imageSize(const std::string& name);
std::uint8_t frameRate(int configured);
std::uint8_t compression(int configured);

constexpr std::array<std::uint8_t, 12> req{
    'S',  'D',  'V',  'R',   //
    0x00, 0x00, 0x0C, 0x00,  //
    0x10, 0x73, 0x00, 0x01,
};

constexpr std::array<std::uint8_t, 16> keepAlive_req{
    'S',  'D',  'V',  'R',   //
    0x00, 0x10, 0x0C, 0x00,  //
    0x19, 0x7D, 0x00, 0x01,  //
    0x04, 0x00, 0x00, 0x00,
};

// Nothing in the answers is looked at.
constexpr std::size_t kAnswerSize = 16;  // to everything but req
constexpr std::size_t kReqAnswerSize = 298;

// Stream connection.
constexpr int kStreamPort = 4001;

constexpr std::array<std::uint8_t, 12> get_stream_req{
    'S',  'D',  'V',  'R',   //
    0x00, 0xFC, 0x0C, 0x00,  //
    0x30, 0x11, 0x80, 0x01,
};

// Stream packet header.
//    0  4  "SDVR"
//    6  2  dataSize  the whole packet, its headers included
//   10  2  80 01     only in the first packet of a frame, which has 72 more
//                    header bytes
struct PacketHeader {
  static constexpr std::size_t kSize = 12, kFrameHeaderSize = 72, kDataSizeAt = 6, kMarkAt = 10;
  bool startsFrame;
  std::uint16_t payloadSize;  // wraps when dataSize is less than the headers
};
using RawHeader = std::array<std::uint8_t, PacketHeader::kSize>;
// Nothing when the magic is wrong: there is no way to find the next packet.
std::optional<PacketHeader> parse(const RawHeader& raw);

// The frame's length without the zero bytes at its end; 0 when it is all zeros.
std::uint32_t trimmedSize(const std::uint8_t* frame, std::uint32_t size);

// Whether any picture in the frame is coded by itself.
bool hasIVop(const std::uint8_t* frame, std::uint32_t size);

}  // namespace Kelvane::samsung
