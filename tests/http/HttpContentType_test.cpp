#include "HttpContentType.h"

#include <gtest/gtest.h>

#include "HttpHeader.h"

using namespace Kelvane;

TEST(HttpContentType, EachTypeHasItsCodec) {
  const struct {
    const char* line;
    const char* codec;
  } cases[] = {
      {"Content-Type: audio/basic\r\n", "PCMU"},
      {"Content-type: audio/PCMU;rate=8000\r\n", "PCMU"},
      {"Content-Type: audio/32KADPCM\r\n", "G726-32"},
      {"Content-Type: audio/g.726-32k\r\n", "G726-32"},
      {"Content-Type: audio/g726\r\n", "G726-32"},
      {"Content-Type: audio/G723\r\n", "G726-24"},
      {"Content-Type: audio/g.726-16k\r\n", "G726-16"},
      {"Content-Type: audio/mpeg4-generic; config=1210\r\n", "MPEG4-GENERIC"},
      {"Content-Type: audio/G723; was=audio/basic\r\n", "PCMU"},  // the earlier row
      {"Content-Type: audio/BASIC\r\n", nullptr},
      {"", nullptr},
  };
  for (const auto& c : cases) EXPECT_STREQ(audioCodec(c.line), c.codec) << c.line;
}

TEST(HttpHeader, NumbersAsScanfReadsThem) {
  const struct {
    const char* line;
    std::optional<int> number;
  } cases[] = {
      {"Content-Length: 12\r\n", 12},
      {"Content-Length:12", 12},
      {"Content-Length: \t 012kB", 12},
      {"Content-Length: -3\r\n", -3},
      {"Content-Length: +3\r\n", 3},
      {"Content-Length: 4294967396\r\n", 2147483647},  // not 100
      {"Content-Length: -99999999999999999999", -2147483647 - 1},
      {"Content-Length: \r\n", std::nullopt},
      {"Content-Length: x12\r\n", std::nullopt},
      {"Content-Length : 12\r\n", std::nullopt},
      {" Content-Length: 12\r\n", std::nullopt},
      {"content-length: 12\r\n", std::nullopt},
      {"Content-Len", std::nullopt},
  };
  for (const auto& c : cases)
    EXPECT_EQ(headerNumber(c.line, "Content-Length:"), c.number) << c.line;
}
