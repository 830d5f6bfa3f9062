#include "InterleavedFraming.h"

#include <algorithm>

namespace Kelvane {

namespace {
constexpr std::size_t kMarkerAt = 1;
constexpr unsigned char kMarker = 0x80;
}  // namespace

void InterleavedFraming::follow(const unsigned char* data, std::size_t size) {
  const unsigned char* const end = data + size;
  while (data < end) {
    if (left_ == 0) {
      header(*data++);
      continue;
    }
    const std::size_t done = size_ - left_;
    const std::size_t part = std::min(left_, static_cast<std::size_t>(end - data));
    const bool isRtp = header_[1] % 2 == 0;  // RTCP has the odd channels
    if (isRtp && done <= kMarkerAt && done + part > kMarkerAt) {
      unfinished_ = size_ >= kLarge && (data[kMarkerAt - done] & kMarker) == 0;
    }
    data += part;
    left_ -= part;
  }
}

void InterleavedFraming::header(unsigned char byte) {
  const bool fits = headerSize_ == 0 ? byte == '$' : headerSize_ != 1 || byte < kChannels;
  if (!fits) {
    headerSize_ = 0;
    return;
  }
  header_[headerSize_++] = byte;
  if (headerSize_ < header_.size()) return;
  headerSize_ = 0;
  size_ = left_ = static_cast<std::size_t>(header_[2] << 8 | header_[3]);
}

}  // namespace Kelvane
