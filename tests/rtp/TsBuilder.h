#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <vector>

namespace testsupport {

// Makes MPEG transport stream packets with bytes of its own. Every result is
// a row of whole packets of 188 bytes.
class TsBuilder {
 public:
  struct Stream {
    int type;
    int pid;
  };
  static constexpr int kH264 = 0x1B, kMpeg2 = 0x02, kAac = 0x0F, kPrivate = 0x06;

  // Table of one program. A new version makes a receiver look again.
  std::string pat(int pmtPid, int program = 1, int version = 0);
  std::string pmt(int pmtPid, const std::vector<Stream>& streams, int program = 1, int version = 0);
  std::string pes(int pid, const std::string& payload);  // one elementary packet

 private:
  std::string section(int pid, const std::string& body);
  std::string packets(int pid, const std::string& payload);

  std::map<int, int> continuity_;
};

}  // namespace testsupport
