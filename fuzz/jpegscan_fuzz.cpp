// The search for a picture's end: the same bytes in blocks of other sizes give
// the same picture, and nothing is written behind the buffer's spare bytes.
#include <algorithm>
#include <cstdint>
#include <cstring>
#include <vector>

#include "JpegScan.h"

namespace {

struct Outcome {
  Kelvane::JpegScan::Result result;
  std::size_t length;
  std::size_t taken;
  std::vector<std::uint8_t> frame;
};

Outcome scanIn(std::size_t step, std::size_t room, const std::uint8_t* data, std::size_t size) {
  constexpr std::size_t kBegin = 4, kSpare = 3;
  Outcome outcome{};
  outcome.frame.resize(room + kSpare);
  Kelvane::JpegScan scan(outcome.frame.data(), kBegin, room);
  while (!scan.done() && outcome.taken < size) {
    // A block of its own, so that a read behind it is seen.
    const std::vector<std::uint8_t> block(
        data + outcome.taken,
        data + std::min(size, outcome.taken + std::max<std::size_t>(step, 1)));
    outcome.taken += scan.take(block.data(), block.size());
  }
  if (!scan.done()) scan.endOfInput();
  outcome.result = scan.result();
  outcome.length = scan.length();
  if (outcome.length > room + kSpare) __builtin_trap();
  return outcome;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  if (size < 2) return 0;
  const std::size_t room = 8 + data[0] * 4U;
  const Outcome byBytes = scanIn(1, room, data + 2, size - 2);
  const Outcome byBlocks = scanIn(data[1], room, data + 2, size - 2);
  if (byBytes.result != byBlocks.result || byBytes.length != byBlocks.length ||
      byBytes.frame != byBlocks.frame) {
    __builtin_trap();
  }
  return 0;
}
