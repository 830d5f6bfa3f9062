#include "JpegScan.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <random>
#include <string>
#include <vector>

using Kelvane::JpegScan;

namespace {

constexpr std::size_t kBegin = 8;

struct Outcome {
  std::vector<std::uint8_t> frame;
  JpegScan::Result result{};
  std::size_t length = 0;
  std::size_t consumed = 0;
};

// Byte after byte, where a read at the end of input gives -1, stored as 0xFF.
Outcome byteWise(const std::string& input, std::size_t size, std::vector<std::uint8_t> frame) {
  Outcome outcome;
  std::size_t from = 0;
  const auto get = [&] {
    return from < input.size() ? static_cast<std::uint8_t>(input[from++]) : std::uint8_t{0xFF};
  };
  std::size_t at = kBegin;
  std::size_t p = 0;
  while (true) {
    frame[at] = get();
    if (frame[at++] == 0xFF) {
      frame[at] = get();
      if (frame[at++] == 0xD9) {
        p = at - 1;
        break;
      }
    }
    if (at > size) {
      p = at;
      break;
    }
  }
  if (frame[p - 1] == 0xFF && frame[p] == 0xD9) {
    outcome.result = JpegScan::Result::complete;
  } else if (frame[p - 1] == 0xFF && frame[p - 2] == 0xFF && frame[p - 3] == 0xFF &&
             frame[p - 4] == 0xFF) {
    outcome.result = JpegScan::Result::closed;
  } else {
    outcome.result = JpegScan::Result::truncated;
  }
  outcome.length = p + 1;
  outcome.consumed = from;
  outcome.frame = std::move(frame);
  return outcome;
}

template <class BlockSize>
Outcome inBlocks(const std::string& input, std::size_t size, std::vector<std::uint8_t> frame,
                 BlockSize blockSize) {
  Outcome outcome;
  JpegScan scan(frame.data(), kBegin, size);
  while (!scan.done()) {
    if (outcome.consumed == input.size()) {
      scan.endOfInput();
      break;
    }
    const std::size_t block = std::min<std::size_t>(blockSize(), input.size() - outcome.consumed);
    outcome.consumed +=
        scan.take(reinterpret_cast<const std::uint8_t*>(input.data()) + outcome.consumed, block);
  }
  outcome.result = scan.result();
  outcome.length = scan.length();
  outcome.frame = std::move(frame);
  return outcome;
}

}  // namespace

TEST(JpegScan, EqualsTheByteWiseReaderOnAnyInput) {
  std::mt19937 random(20240611);
  int seen[3] = {};
  for (int round = 0; round < 60000; ++round) {
    // Few values, so that marks meet each other and every edge.
    const std::uint8_t values[] = {0xFF, 0xD9, 0x00, 0x55, 0x12, 0x34};
    const unsigned kinds = 2 + random() % 40;
    const bool large = round % 4 == 0;  // several strides of the search
    const std::size_t size = kBegin + random() % (large ? 480 : 48);
    std::string input(random() % (large ? 640 : 64), '\0');
    for (char& c : input) c = static_cast<char>(values[std::min<std::size_t>(random() % kinds, 5)]);
    // What an earlier frame has left: a test looks at one byte that is not written.
    std::vector<std::uint8_t> stale(size + 3);
    for (auto& byte : stale) byte = values[random() % 3];

    const Outcome model = byteWise(input, size, stale);
    const Outcome scan =
        inBlocks(input, size, stale, [&] { return 1 + random() % (large ? 300 : 9); });
    ASSERT_EQ(scan.result, model.result) << round;
    ASSERT_EQ(scan.length, model.length) << round;
    ASSERT_EQ(scan.consumed, model.consumed) << round;
    ASSERT_EQ(scan.frame, model.frame) << round;
    ++seen[static_cast<int>(model.result)];
  }
  for (const int count : seen) EXPECT_GT(count, 1000);
}
