#include "JpegScan.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <random>
#include <vector>

using Kelvane::JpegScan;

namespace {

constexpr std::size_t kBegin = 8;

using Bytes = std::vector<std::uint8_t>;

struct Outcome {
  Bytes frame;
  JpegScan::Result result{};
  std::size_t length = 0;
  std::size_t consumed = 0;
};

// Byte after byte, where a read at the end of input gives -1, stored as 0xFF.
Outcome byteWise(const Bytes& input, std::size_t size, Bytes frame) {
  Outcome outcome;
  std::size_t at = kBegin;
  const auto isNext = [&](std::uint8_t wanted) {
    frame[at] = outcome.consumed < input.size() ? input[outcome.consumed++] : 0xFF;
    return frame[at++] == wanted;
  };
  bool found = false;
  while (!found && at <= size) found = isNext(0xFF) && isNext(0xD9);
  const std::uint8_t* last = &frame[found ? at - 1 : at];
  if (last[-1] == 0xFF && last[0] == 0xD9) {
    outcome.result = JpegScan::Result::complete;
  } else if (std::count(last - 4, last, 0xFF) == 4) {
    outcome.result = JpegScan::Result::closed;
  } else {
    outcome.result = JpegScan::Result::truncated;
  }
  outcome.length = static_cast<std::size_t>(last - frame.data()) + 1;
  outcome.frame = std::move(frame);
  return outcome;
}

template <class BlockSize>
Outcome inBlocks(const Bytes& input, std::size_t size, Bytes frame, BlockSize blockSize) {
  Outcome outcome;
  JpegScan scan(frame.data(), kBegin, size);
  while (!scan.done() && outcome.consumed < input.size()) {
    const std::size_t block = std::min<std::size_t>(blockSize(), input.size() - outcome.consumed);
    outcome.consumed += scan.take(input.data() + outcome.consumed, block);
  }
  if (!scan.done()) scan.endOfInput();
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
    Bytes input(random() % (large ? 640 : 64));
    for (auto& byte : input) byte = values[std::min<std::size_t>(random() % kinds, 5)];
    // What an earlier frame has left: a test looks at one byte that is not written.
    Bytes stale(size + 3);
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
