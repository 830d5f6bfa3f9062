#include "PushInMedia.h"

#include <cstring>

#include "support/TestHost.h"

using namespace Kelvane;

TEST(PushInMedia, AacConfigurationIsFourDigitsAndASemicolon) {
  using Outcome = AacConfig::Outcome;
  const struct {
    const char* before;
    Outcome outcome;
    const char* digits;
    const char* after;
  } cases[] = {
      {"a;config=1210;numpackets=0", Outcome::found, "1210", "a;config=1210;numpackets=0"},
      {"a;config=121056E5;n", Outcome::found, "1210", "a;config=1210;6E5;n"},
      {"a;config=1210", Outcome::found, "1210", "a;config=1210;"},
      {"a;config=12;n", Outcome::found, "12;n", "a;config=12;n;"},
      {"a;config=121", Outcome::cutShort, "", "a;config=121"},
      {"a;config=", Outcome::cutShort, "", "a;config="},
      {"a;confi=1210", Outcome::missing, "", "a;confi=1210"},
  };
  for (const auto& c : cases) {
    char word[64] = {};
    strcpy(word, c.before);
    const AacConfig config = takeAacConfig(word);
    EXPECT_EQ(config.outcome, c.outcome) << c.before;
    EXPECT_STREQ(config.digits, c.digits) << c.before;
    EXPECT_STREQ(word, c.after) << c.before;
  }
}

TEST(PushInMedia, OffsetsCutTheBodyIntoOnePacketMore) {
  const struct {
    const char* contentType;
    std::size_t bodySize;
    std::vector<std::size_t> ends;  // of the packets
  } cases[] = {
      {"numpackets=2;offsets=0100,0200", 300, {100, 200, 300}},
      {"numpackets=0;offsets=none", 300, {300}},
      {"numpackets=-1;offsets=0100", 300, {300}},
      {"numpackets=3;offsets=0100,0000,0200", 300, {100, 200, 300}},
      {"numpackets=1;offsets=0100,0200", 300, {100, 300}},
      {"numpackets=2;offsets=0100,", 300, {100, 300}},  // the last entry is the list's end
      {"numpackets=2;offsets=0100,0100", 300, {100, 100, 300}},
      {"numpackets=1;offsets=0300", 300, {300, 300}},
      {"x;numpackets=1;offsets=0001;config=1210", 2, {1, 2}},
  };
  for (const auto& c : cases) {
    const AacPackets packets = splitAac(c.contentType, c.bodySize);
    EXPECT_EQ(packets.outcome, AacPackets::Outcome::split) << c.contentType << packets.fault;
    std::vector<std::size_t> ends;
    std::size_t begin = 0;
    for (const auto& range : packets.ranges) {
      EXPECT_EQ(range.begin, begin) << c.contentType;
      begin = range.end;
      ends.push_back(range.end);
    }
    EXPECT_EQ(ends, c.ends) << c.contentType;
  }
}

TEST(PushInMedia, OffsetsThatPointElsewhereAreNamed) {
  using Outcome = AacPackets::Outcome;
  const struct {
    const char* contentType;
    Outcome outcome;
    const char* fault;
  } cases[] = {
      {"offsets=0100", Outcome::noCount, ""},
      {"numpackets=;offsets=0100", Outcome::incorrect, ""},
      {"numpackets=1;offset=0100", Outcome::incorrect, ""},
      {"numpackets=1;offsets=", Outcome::incorrect, ""},
      {"numpackets=1;offsets=0301", Outcome::badOffset, "offset 301 of entry 0"},
      {"numpackets=2;offsets=0200,0100", Outcome::badOffset, "offset 100 of entry 1"},
      {"numpackets=1;offsets=-001", Outcome::badOffset, "offset -1 of entry 0"},
      {"numpackets=1;offsets=99999999999999999999", Outcome::badOffset, "of entry 0"},
      {"numpackets=2;offsets=0100", Outcome::badOffset, "entry 1 of 2 lies behind the list"},
      {"numpackets=9999999999;offsets=0100,0200", Outcome::badOffset, "lies behind the list"},
  };
  for (const auto& c : cases) {
    const AacPackets packets = splitAac(c.contentType, 300);
    EXPECT_EQ(packets.outcome, c.outcome) << c.contentType;
    EXPECT_THAT(packets.fault, testing::HasSubstr(c.fault)) << c.contentType;
    EXPECT_TRUE(packets.ranges.empty()) << c.contentType;
  }
}
