#include "PushInHeaders.h"

#include <climits>
#include <string>

#include "support/TestHost.h"

using namespace Kelvane;

TEST(PushInHeaders, ContentLengthReadsInBothSpellings) {
  const struct {
    const char* line;
    int expected;  // 7 stands for "left as it was"
  } cases[] = {
      {"Content-Length: 12\r\n", 12},
      {"Content-length: 12\n", 12},
      {"Content-Length:12\r\n", 12},
      {"Content-Length: \t 12 and more\r\n", 12},
      {"Content-Length: -5\r\n", -5},
      {"Content-Length: 4294967301\r\n", INT_MAX},
      {"Content-Length: -99999999999999999999\r\n", INT_MIN},
      {"content-length: 12\r\n", 7},
      {" Content-Length: 12\r\n", 7},
      {"Content-Length : 12\r\n", 7},
      {"Content-Length: x12\r\n", 7},
      {"Content-Length: \r\n", 7},
  };
  for (const auto& c : cases) {
    PushInHeaders headers;
    headers.contentLength = 7;
    EXPECT_EQ(parseHeaderLine(c.line, headers), c.expected != 7) << c.line;
    EXPECT_EQ(headers.contentLength, c.expected) << c.line;
  }
}

TEST(PushInHeaders, ContentTypeIsOneWordOfAtMost255Characters) {
  PushInHeaders headers;
  EXPECT_TRUE(parseHeaderLine("Content-Type: audio/L16/8000/1; rest\r\n", headers));
  EXPECT_STREQ(headers.contentType, "audio/L16/8000/1;");
  EXPECT_TRUE(parseHeaderLine(("Content-Type: " + std::string(300, 'x')).c_str(), headers));
  EXPECT_EQ(std::string(headers.contentType), std::string(255, 'x'));
  EXPECT_TRUE(parseHeaderLine("Content-Type: y\r\n", headers)) << "a repeated header overwrites";
  EXPECT_STREQ(headers.contentType, "y");
  EXPECT_FALSE(parseHeaderLine("Content-Type: \r\n", headers));
  EXPECT_STREQ(headers.contentType, "y");
}

TEST(PushInHeaders, MessageKeepsItsLineFromTheTenthCharacterOn) {
  const struct {
    std::string line;
    std::string expected;
  } cases[] = {
      {"Message: woke up at noon\r\n", "woke up at noon\r\n"},
      {"Message:abc\n", "bc\n"},
      {"Message:a", ""},
      {"Message: \r\n", ""},
      {"Message:", ""},
      {"Message: " + std::string(300, 'm') + "\r\n", std::string(247, 'm')},
      {"Message: " + std::string(246, 'm') + "\r\n", std::string(246, 'm') + "\r"},
  };
  for (const auto& c : cases) {
    PushInHeaders headers;
    parseHeaderLine(c.line.c_str(), headers);
    EXPECT_EQ(headers.message, c.expected) << c.line;
  }
}

TEST(PushInHeaders, PositionAndTimestamp) {
  PushInHeaders headers;
  EXPECT_TRUE(parseHeaderLine("GEO_Latitude: -55.75\r\n", headers));
  EXPECT_TRUE(parseHeaderLine("GEO_Longitude:37.5\r\n", headers));
  EXPECT_TRUE(parseHeaderLine("GEO_Altitude: 1.5e2\r\n", headers));
  EXPECT_FALSE(parseHeaderLine("GEO_Altitude: high\r\n", headers));
  EXPECT_FLOAT_EQ(headers.latitude, -55.75F);
  EXPECT_FLOAT_EQ(headers.longitude, 37.5F);
  EXPECT_FLOAT_EQ(headers.altitude, 150.0F);

  for (const char* line : {"Timestamp: 5\r\n", "Timestamp: 5.\r\n", "Timestamp: 5.x\r\n",
                           "Timestamp: .5\r\n", "Timestamp: 5,7\r\n"}) {
    EXPECT_FALSE(parseHeaderLine(line, headers)) << line;
    EXPECT_FALSE(headers.hasTimestamp) << line;
  }
  EXPECT_TRUE(parseHeaderLine("Timestamp: 1300000000.000070\r\n", headers));
  EXPECT_TRUE(headers.hasTimestamp);
  EXPECT_EQ(headers.seconds, 1300000000);
  EXPECT_EQ(headers.useconds, 70);
}

TEST(PushInHeaders, OnlyAKnownHeaderAheadOfTheEmptyLineStartsAMessage) {
  const struct {
    std::string text;
    bool starts;
  } cases[] = {
      {"Content-Length: 5\r\n\r\nhello", true},
      {"POST / HTTP/1.0\r\nTimestamp: 1.0\r\n", true},
      {"junk\nContent-Type: x\n\n", true},
      {"junk\nGEO_Lat", true},  // cut off by the end of the datagram
      {"", false},
      {"\nContent-Length: 5\n\n", false},
      {"junk\r\n\r\nContent-Length: 5\n\n", false},
      {"Content-Length: ?\n\n", false},
      {std::string("\0\0\0\1\x65\n\0Content-Length: 5\n", 25), false},
  };
  for (const auto& c : cases) EXPECT_EQ(startsMessage(c.text), c.starts) << c.text;
}

// One peer a row; each step is the peer's time, the local time, whether a
// message without a body came ahead, and the result.
TEST(PushInClock, OffsetIsMeasuredOnceAndItsSignLatches) {
  struct Step {
    Time_Val peer;
    Time_Val now;
    bool reset;
    Time_Val expected;
    bool measured;
  };
  const std::vector<std::vector<Step>> peers = {
      // Behind: the first message lands on the local clock, later ones keep their spacing.
      {{{100, 0}, {160, 5}, false, {160, 5}, true},
       {{100, 40000}, {170, 0}, false, {160, 40005}, false},
       {{99, 0}, {171, 0}, false, {159, 5}, false}},
      // Ahead, then measured anew while behind: the sign stays, and doubles the error.
      {{{200, 0}, {150, 0}, false, {150, 0}, true},
       {{201, 500000}, {151, 0}, false, {151, 500000}, false},
       {{100, 0}, {160, 0}, true, {40, 0}, true}},
      // A peer that counts from zero asks for a measurement with each zero.
      {{{0, 0}, {1000, 7}, false, {1000, 7}, true},
       {{5, 0}, {1009, 0}, false, {1005, 7}, false},
       {{0, 0}, {2000, 0}, false, {2000, 0}, true}},
      // Equal clocks have no offset, which counts as unknown, and as ahead.
      {{{50, 0}, {50, 0}, false, {50, 0}, true}, {{40, 0}, {60, 0}, false, {20, 0}, true}},
      // Times that no clock shows neither overflow nor fall below zero.
      {{{LONG_MAX, 999999}, {1000, 0}, false, {1000, 0}, true},
       {{5, 0}, {1000, 0}, false, {0, 0}, false}},
  };
  for (const auto& steps : peers) {
    Delay_Interval diff{0, 0};
    bool plus = true;
    for (const Step& step : steps) {
      SCOPED_TRACE(testing::Message() << step.peer.seconds() << " at " << step.now.seconds());
      if (step.reset) diff = ZERO;
      Time_Val time = step.peer;
      EXPECT_EQ(correctTime(time, step.now, diff, plus), step.measured);
      EXPECT_TRUE(time == step.expected) << time.seconds() << "." << time.useconds();
    }
  }
}
