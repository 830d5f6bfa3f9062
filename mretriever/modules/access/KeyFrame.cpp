#include "KeyFrame.h"

#include <cstring>

#include "FailureReport.h"
#include "Wire.h"

namespace Kelvane {

namespace {

class Frame {
 public:
  Frame(const std::uint8_t* data, std::size_t size) : data_(data), size_(size) {}

  // Reads beyond the end count as "not found".
  std::optional<std::uint32_t> word(std::size_t at) const {
    if (at + 4 > size_) return std::nullopt;
    return be32(data_ + at);
  }
  std::optional<std::uint8_t> byte(std::size_t at) const {
    if (at >= size_) return std::nullopt;
    return data_[at];
  }
  // Offset of the first zero byte from `from` on, if more than `behind` bytes
  // follow from there to the end.
  std::optional<std::size_t> zero(std::size_t from, std::size_t behind) const {
    if (from >= size_) return std::nullopt;
    const void* hit = memchr(data_ + from, 0, size_ - from);
    if (hit == nullptr) return std::nullopt;
    const auto at = static_cast<std::size_t>(static_cast<const std::uint8_t*>(hit) - data_);
    if (size_ - at <= behind) return std::nullopt;
    return at;
  }

 private:
  const std::uint8_t* data_;
  std::size_t size_;
};

bool mpeg4StartsReplay(const Frame& frame) {
  const auto isHeader = [](std::optional<std::uint32_t> word) {
    const std::uint32_t code = word.value_or(0);
    return code == 0x1B0 || code == 0x1B5 || code == 0x1B3;
  };
  if (isHeader(frame.word(0))) return true;
  const auto p = frame.zero(4, 3);
  if (!p) return false;
  const auto next = frame.word(*p + 1);
  if (isHeader(next)) return true;
  const auto codingType = frame.byte(*p + 5);
  return next == 0x1B6 && codingType && (*codingType & 0xC0) == 0;  // vop_coding_type I
}

bool h264StartsReplay(const Frame& frame) {
  const auto head = frame.byte(4);
  if (!head) return false;
  const int nal = *head & 0x1F;
  if (nal == 7 || nal == 8) return true;
  const auto p = frame.zero(nal == 6 ? 7 : 4, 4);
  if (!p) return false;
  const auto next = frame.byte(*p + 5);
  return next && (*next & 0x1F) == 5;
}

bool mpeg2StartsReplay(const Frame& frame) {
  const auto isHeader = [](std::optional<std::uint32_t> word) {
    const std::uint32_t code = word.value_or(0);
    return code == 0x1B8 || code == 0x1B3;
  };
  const auto isIntra = [&frame](std::size_t at) {
    const auto byte = frame.byte(at);
    return byte && (*byte >> 3 & 7) == 1;  // picture_coding_type I
  };
  const auto first = frame.word(0);
  if (isHeader(first)) return true;
  if (first == 0x100) return isIntra(5);
  const auto p = frame.zero(4, 3);
  if (!p) return false;
  const auto next = frame.word(*p + 1);
  return isHeader(next) || (next == 0x100 && isIntra(*p + 6));
}

}  // namespace

std::optional<bool> startsReplay(const std::uint8_t* data, std::size_t size,
                                 std::string_view format) {
  const Frame frame(data, size);
  if (format == "mjpg") return true;
  if (format == "mpeg4") return mpeg4StartsReplay(frame);
  if (format == "h264") return h264StartsReplay(frame);
  if (format == "mpeg2") return mpeg2StartsReplay(frame);
  return std::nullopt;
}

bool isI_VOP(std::uint8_t* frame, unsigned int frameSize, const std::string& media_format) {
  const auto starts = startsReplay(frame, frameSize, media_format);
  if (!starts) FATAL_REPORT("Unsupported media format: %s", media_format.c_str());
  return *starts;
}

}  // namespace Kelvane
