#include "TSFrame.h"

#include "support/TcpPeer.h"
#include "support/TestHost.h"

using namespace testsupport;
using Kelvane::TSFrameKind;

namespace {

const std::uint8_t* data(const std::string& bytes) {
  return reinterpret_cast<const std::uint8_t*>(bytes.data());
}

}  // namespace

TEST(TSFrame, FirstBytesTellTheKind) {
  const struct {
    const char* bytes;
    TSFrameKind kind;
  } cases[] = {
      {"FF F0", TSFrameKind::audio},       {"FF FF 00", TSFrameKind::audio},
      {"FF EF", TSFrameKind::metadata},    {"FF", TSFrameKind::metadata},
      {"00 00 01", TSFrameKind::video},    {"00 00 00 01", TSFrameKind::video},
      {"00 00 00", TSFrameKind::metadata}, {"00 00 00 00 01", TSFrameKind::metadata},
      {"00 00 02", TSFrameKind::metadata}, {"06 0E 2B 34", TSFrameKind::metadata},
      {"", TSFrameKind::metadata},
  };
  for (const auto& c : cases) {
    const std::string frame = hex(c.bytes);
    EXPECT_EQ(Kelvane::kindOf(data(frame), frame.size()), c.kind) << c.bytes;
  }
}

TEST(TSFrame, AdtsHeaderGivesTheAudioConfiguration) {
  const struct {
    const char* header;
    const char* config;
  } cases[] = {
      // Low complexity, 44100 Hz, one channel.
      {"FF F1 50 40 00 1F FC", "12 08"},
      // Index 3 (48000 Hz), six channels: the channel setting's high bit stands in byte 2.
      {"FF F1 4D 80 00 1F FC", "11 B0"},
      // Main profile, index 11 (8000 Hz); private bit and those behind the channels do not count.
      {"FF F9 2E 7F 00 1F FC", "0D 88"},
  };
  for (const auto& c : cases) {
    const std::string header = hex(c.header);
    const auto adts = Kelvane::parseAdts(data(header), header.size());
    ASSERT_TRUE(adts) << c.header;
    const auto config = adts->config();
    EXPECT_EQ(std::string(config.begin(), config.end()), hex(c.config)) << c.header;
  }
  const std::string whole = hex("FF F1 50 40 00 1F FC");
  EXPECT_FALSE(Kelvane::parseAdts(data(whole), whole.size() - 1));
  const std::string noSync = hex("FF E1 50 40 00 1F FC");
  EXPECT_FALSE(Kelvane::parseAdts(data(noSync), noSync.size()));
}
