#include "TsBuilder.h"

#include <algorithm>

namespace testsupport {

namespace {

std::string be16(int value) {
  return {static_cast<char>(value >> 8), static_cast<char>(value)};
}

std::string crc(const std::string& data) {
  std::uint32_t value = 0xFFFFFFFF;
  for (const char byte : data) {
    value ^= static_cast<std::uint32_t>(static_cast<unsigned char>(byte)) << 24;
    for (int bit = 0; bit < 8; ++bit) {
      value = (value & 0x80000000) != 0 ? value << 1 ^ 0x04C11DB7 : value << 1;
    }
  }
  return be16(static_cast<int>(value >> 16)) + be16(static_cast<int>(value & 0xFFFF));
}

// A table section: id, length, number of what it describes, version, numbers 0 of 0.
std::string table(int id, int number, int version, const std::string& rest) {
  const int length = static_cast<int>(5 + rest.size() + 4);
  std::string section(1, static_cast<char>(id));
  section += be16(0xB000 | length) + be16(number);
  section += static_cast<char>(0xC1 | (version & 31) << 1);
  section += std::string(2, '\0') + rest;
  return section + crc(section);
}

}  // namespace

std::string TsBuilder::pat(int pmtPid, int program, int version) {
  return section(0, table(0, 1, version, be16(program) + be16(0xE000 | pmtPid)));
}

std::string TsBuilder::pmt(int pmtPid, const std::vector<Stream>& streams, int program,
                           int version) {
  const int clockPid = streams.empty() ? 0x1FFF : streams[0].pid;
  std::string rest = be16(0xE000 | clockPid) + be16(0xF000);
  for (const Stream& stream : streams) {
    rest += static_cast<char>(stream.type);
    rest += be16(0xE000 | stream.pid) + be16(0xF000);
  }
  return section(pmtPid, table(2, program, version, rest));
}

std::string TsBuilder::pes(int pid, const std::string& payload) {
  constexpr char kVideo = '\xE0';
  std::string packet{0, 0, 1, kVideo};
  packet += be16(static_cast<int>(3 + payload.size()));
  packet += {'\x80', 0, 0};  // no time stamps
  return packets(pid, packet + payload);
}

std::string TsBuilder::section(int pid, const std::string& body) {
  std::string payload = std::string(1, '\0') + body;  // begins at once
  payload.resize((payload.size() + 183) / 184 * 184, '\xFF');
  return packets(pid, payload);
}

std::string TsBuilder::packets(int pid, const std::string& payload) {
  std::string result;
  for (std::size_t at = 0; at < payload.size();) {
    const std::size_t size = std::min<std::size_t>(184, payload.size() - at);
    const std::size_t stuffing = 184 - size;
    result += '\x47';
    result += be16((at == 0 ? 0x4000 : 0) | pid);
    result += static_cast<char>((stuffing > 0 ? 0x30 : 0x10) | (continuity_[pid]++ & 15));
    if (stuffing > 0) {
      std::string field(1, static_cast<char>(stuffing - 1));
      if (stuffing > 1) field += '\0';
      field.resize(stuffing, '\xFF');
      result += field;
    }
    result += payload.substr(at, size);
    at += size;
  }
  return result;
}

}  // namespace testsupport
