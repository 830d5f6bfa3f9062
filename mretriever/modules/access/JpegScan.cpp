#include "JpegScan.h"

#include <cstring>

namespace Kelvane {

namespace {
constexpr std::uint8_t kMark = 0xFF;
constexpr std::uint8_t kEndOfImage = 0xD9;
}  // namespace

std::size_t JpegScan::take(const std::uint8_t* block, std::size_t bytes) {
  if (done()) return 0;
  // Bytes that may be the first of a marker end at offset `size`; the one
  // behind a 0xFF is taken wherever it falls.
  const std::size_t room = at_ > size_ ? 0 : size_ + 1 - at_;
  const std::uint8_t* const end = block + bytes;
  const std::uint8_t* const firstEnd = room < bytes ? block + room : end;
  const std::uint8_t* next = block;
  while (!foundEnd_ && next < end) {
    if (behindFf_) {
      foundEnd_ = *next++ == kEndOfImage;
      behindFf_ = false;
      continue;
    }
    if (next >= firstEnd) break;
    const void* mark = memchr(next, kMark, static_cast<std::size_t>(firstEnd - next));
    behindFf_ = mark != nullptr;
    next = behindFf_ ? static_cast<const std::uint8_t*>(mark) + 1 : firstEnd;
  }
  const auto taken = static_cast<std::size_t>(next - block);
  memcpy(frame_ + at_, block, taken);
  at_ += taken;
  return taken;
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
