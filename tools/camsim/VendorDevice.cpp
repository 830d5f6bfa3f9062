#include "VendorDevice.h"

#include <cstdio>
#include <stdexcept>

void addVendorOptions(CLI::App& app, VendorOptions& options, const std::string& packets) {
  app.add_option("--address", options.address, "address to listen on");
  app.add_option("--user", options.user, "user name that is accepted");
  app.add_option("--password", options.password, "its password");
  app.add_option("--seconds", options.clip.seconds, "length of the clip, which is repeated");
  app.add_option("--framerate", options.clip.framerate, "frames per second");
  app.add_option("--kbps", options.clip.kbps, "bit rate of MPEG-4; 0 leaves it to the encoder");
  app.add_option("--packet-size", options.packetSize, "bytes of a packet")
      ->check(CLI::Range(64, 65000));
  app.add_option("--drop-after", options.dropAfter, "close the stream after that many " + packets);
  app.add_option("--mute-after", options.muteAfter, "send nothing more after that many " + packets);
  app.add_option("--garbage-after", options.garbageAfter,
                 "spoil the header after that many " + packets);
  app.add_flag("--mid-frame", options.midFrame, "begin in the middle of a frame");
  app.add_flag("--oversized", options.oversized, "make the tenth frame 2000000 bytes long");
}

std::string fromHex(const std::string& digits) {
  std::string data;
  std::string pair;
  for (const char digit : digits) {
    if (digit == ' ') continue;
    pair.push_back(digit);
    if (pair.size() < 2) continue;
    data.push_back(static_cast<char>(std::stoi(pair, nullptr, 16)));
    pair.clear();
  }
  return data;
}

std::string toHex(const std::string& data) {
  std::string digits;
  char pair[4];
  for (const char byte : data) {
    snprintf(pair, sizeof pair, "%02x ", static_cast<unsigned char>(byte));
    digits += pair;
  }
  if (!digits.empty()) digits.pop_back();
  return digits;
}

std::string le32(unsigned value) {
  std::string bytes;
  for (int shift = 0; shift < 32; shift += 8) bytes.push_back(static_cast<char>(value >> shift));
  return bytes;
}

bool expectBytes(const std::string& what, const std::string& got, const std::string& wanted) {
  if (got == wanted) return true;
  fprintf(stderr, "wrong %s\n  expected %s\n  received %s\n", what.c_str(), toHex(wanted).c_str(),
          toHex(got).c_str());
  return false;
}

bool expectRead(const Kelvane::UniqueFd& connection, const std::string& what,
                const std::string& wanted) {
  return expectBytes(what, readExactly(connection, wanted.size()), wanted);
}

std::string withoutHeadersAhead(const std::string& frame, char code) {
  if (frame.compare(0, 4, std::string("\0\0\1\xB0", 4)) != 0) return frame;
  const std::size_t at = frame.find(std::string("\0\0\1", 3) + code);
  if (at == std::string::npos) throw std::runtime_error("the clip lacks a stream header");
  return frame.substr(at);
}

std::string frameToSend(const Clip& clip, std::size_t index, const VendorOptions& options) {
  constexpr std::size_t kOversized = 2000000;
  constexpr std::size_t kTenth = 9;
  std::string frame = clip.frames[index % clip.frames.size()];
  if (options.oversized && index == kTenth) frame.resize(kOversized, '\x55');
  return frame;
}

bool PacketSender::send(std::string packet, std::size_t headerSize) {
  if (sent_ == options_.dropAfter) {
    fprintf(stderr, "dropping the stream after %ld packets\n", sent_);
    return false;
  }
  if (sent_ == options_.muteAfter) {
    fprintf(stderr, "silent after %ld packets\n", sent_);
    readExactly(connection_, 1);  // until the other side goes
    return false;
  }
  if (sent_ == options_.garbageAfter) {
    for (std::size_t i = 0; i < headerSize; ++i) packet[i] = static_cast<char>(0xA5);
  }
  ++sent_;
  return sendAll(connection_, packet);
}
