#include "JpegScan.h"

#include <cstring>

namespace Kelvane {

namespace {
constexpr std::uint8_t kMark = 0xFF;
constexpr std::uint8_t kEndOfImage = 0xD9;

constexpr std::ptrdiff_t kStride = 64;

// Whether an end marker, or what looks like one, begins in the next kStride
// bytes; one more byte is looked at. No branch depends on the data, so that
// compilers make vector code of it: 0xFF is too frequent for a search by it.
bool strideHoldsPair(const std::uint8_t* at) {
  std::uint8_t found = 0;
  for (std::ptrdiff_t i = 0; i < kStride; ++i) {
    found |= static_cast<std::uint8_t>((at[i] == kMark) & (at[i + 1] == kEndOfImage));
  }
  return found != 0;
}

// The first 0xFF 0xD9 whose first byte lies ahead of `last`; `last` if none.
// The byte at `last` is there to be read.
const std::uint8_t* findPair(const std::uint8_t* from, const std::uint8_t* last) {
  while (last - from >= kStride && !strideHoldsPair(from)) from += kStride;
  while (from < last && (from[0] != kMark || from[1] != kEndOfImage)) ++from;
  return from;
}

// Whether the last byte ahead of `end` is a 0xFF that begins a marker: in a run
// of them every second one does.
bool endsInMark(const std::uint8_t* begin, const std::uint8_t* end) {
  const std::uint8_t* run = end;
  while (run > begin && run[-1] == kMark) --run;
  return (end - run) % 2 == 1;
}

}  // namespace

std::size_t JpegScan::take(const std::uint8_t* block, std::size_t bytes) {
  if (done() || bytes == 0) return 0;
  // Bytes that may be the first of a marker end at offset `size`; the one
  // behind a 0xFF is taken wherever it falls.
  const std::size_t room = at_ > size_ ? 0 : size_ + 1 - at_;
  const std::uint8_t* const end = block + bytes;
  const std::uint8_t* const firstEnd = room < bytes ? block + room : end;
  const std::uint8_t* next = block;
  if (behindFf_) {
    foundEnd_ = *next++ == kEndOfImage;
    behindFf_ = false;
  }
  if (!foundEnd_ && next < firstEnd) next = takeFromFresh(next, firstEnd, end);
  const auto taken = static_cast<std::size_t>(next - block);
  if (block != frame_ + at_) memcpy(frame_ + at_, block, taken);
  at_ += taken;
  return taken;
}

// From a byte that may begin a marker to the first byte that is not taken.
const std::uint8_t* JpegScan::takeFromFresh(const std::uint8_t* fresh, const std::uint8_t* firstEnd,
                                            const std::uint8_t* end) {
  const std::uint8_t* const last = firstEnd < end ? firstEnd : end - 1;
  for (const std::uint8_t* pair = findPair(fresh, last); pair < last;
       pair = findPair(fresh, last)) {
    foundEnd_ = endsInMark(fresh, pair + 1);
    if (foundEnd_) return pair + 2;
    fresh = pair + 1;
  }
  behindFf_ = endsInMark(fresh, firstEnd);
  if (!behindFf_ || firstEnd == end) return firstEnd;
  behindFf_ = false;  // the byte behind it is there, and no end marker
  return firstEnd + 1;
}

void JpegScan::endOfInput() {
  if (done()) return;
  // Whole pairs of 0xFF, as long as the first of each finds room.
  std::size_t fill = behindFf_ ? 1 : 0;
  behindFf_ = false;
  if (at_ + fill <= size_) fill += (size_ - at_ - fill) / 2 * 2 + 2;
  memset(frame_ + at_, kMark, fill);
  at_ += fill;
}

JpegScan::Result JpegScan::result() const {
  const std::uint8_t* p = frame_ + last();
  if (p[-1] == kMark && p[0] == kEndOfImage) return Result::complete;
  const bool closed = p[-1] == kMark && p[-2] == kMark && p[-3] == kMark && p[-4] == kMark;
  return closed ? Result::closed : Result::truncated;
}

}  // namespace Kelvane
