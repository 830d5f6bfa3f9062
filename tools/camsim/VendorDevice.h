#pragma once

#include <CLI/CLI.hpp>
#include <string>

#include "Clip.h"
#include "Net.h"

// What the simulated devices with a TCP protocol of their own share.

// How it streams, and which faults it shows when.
struct VendorOptions {
  std::string address = "127.0.0.1";
  std::string user = "admin";
  std::string password = "1234";
  ClipOptions clip;
  std::size_t packetSize = 1400;
  long dropAfter = -1;     // packets; -1 for never
  long muteAfter = -1;     // likewise
  long garbageAfter = -1;  // likewise
  bool midFrame = false;
  bool oversized = false;
};
// `packets`: what the device's units are called in the help.
void addVendorOptions(CLI::App& app, VendorOptions& options, const std::string& packets);

// Literal bytes from hexadecimal digits, and back for messages.
std::string fromHex(const std::string& digits);
std::string toHex(const std::string& data);
std::string le32(unsigned value);

// False when they differ; says on standard error what was sent and expected.
bool expectBytes(const std::string& what, const std::string& got, const std::string& wanted);
// The same for a whole read from the connection.
bool expectRead(const Kelvane::UniqueFd& connection, const std::string& what,
                const std::string& wanted);

// An MPEG-4 frame from its first start code 00 00 01 `code` on, when it begins
// with stream headers; unchanged otherwise.
std::string withoutHeadersAhead(const std::string& frame, char code);
// The frame, or one of twice the size that any reader has room for.
std::string frameToSend(const Clip& clip, std::size_t index, const VendorOptions& options);

// Sends packets and counts them until a fault is due.
class PacketSender {
 public:
  PacketSender(const Kelvane::UniqueFd& connection, const VendorOptions& options)
      : connection_(connection), options_(options) {}
  // False at the end: the other side is gone, or a fault has ended the stream.
  // `headerSize` bytes in front are spoilt when it is time for garbage.
  bool send(std::string packet, std::size_t headerSize);

 private:
  const Kelvane::UniqueFd& connection_;
  const VendorOptions& options_;
  long sent_ = 0;
};

// Frame after frame at the clip's rate until `sendFrame(sender, frame, cut)` is
// false. `cut`: the camera is joined within the first frame.
template <class SendFrame>
void streamClip(const Kelvane::UniqueFd& connection, const Clip& clip, const VendorOptions& options,
                SendFrame sendFrame) {
  PacketSender sender(connection, options);
  Ticker ticker(clip.framerate);
  for (std::size_t i = 0;; ++i) {
    const bool cut = options.midFrame && i == 0;
    if (!sendFrame(sender, frameToSend(clip, i, options), cut)) return;
    ticker.wait();
  }
}
