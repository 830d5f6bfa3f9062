#pragma once

#include <cstddef>
#include <cstdint>

namespace Kelvane {

// Copies a JPEG of unknown length into a frame buffer up to its end marker
// 0xFF 0xD9, from blocks of any size. It does what a reader of single bytes
// would do that takes one byte behind each 0xFF on trust: the second of two
// 0xFF begins no marker. Pure; used once a picture.
class JpegScan {
 public:
  // `frame` holds `begin` bytes already, which are not looked at, and has room
  // for `size` + 3. `begin` is 4 or more.
  JpegScan(std::uint8_t* frame, std::size_t begin, std::size_t size)
      : frame_(frame), at_(begin), size_(size) {}

  // Takes bytes up to the end of the picture; returns how many. The block may
  // lie where its bytes go.
  std::size_t take(const std::uint8_t* block, std::size_t bytes);
  // Behind the end of input each byte counts as 0xFF.
  void endOfInput();
  // The end marker has come, or the bytes stored have passed offset `size`.
  bool done() const { return foundEnd_ || (at_ > size_ && !behindFf_); }

  enum class Result {
    complete,
    closed,    // the tail is all 0xFF: a connection that ended in the picture
    truncated  // a picture larger than the buffer
  };
  // Bytes that stand in the frame; the next goes behind them.
  std::size_t stored() const { return at_; }
  // Both once done(). Where the room ran out, the test looks at the byte behind
  // the last stored one too, whatever that holds.
  Result result() const;
  std::size_t length() const { return last() + 1; }

 private:
  const std::uint8_t* takeFromFresh(const std::uint8_t* fresh, const std::uint8_t* firstEnd,
                                    const std::uint8_t* end);
  std::size_t last() const { return foundEnd_ ? at_ - 1 : at_; }

  std::uint8_t* frame_;
  std::size_t at_;  // where the next byte goes
  std::size_t size_;
  bool behindFf_ = false;
  bool foundEnd_ = false;
};

}  // namespace Kelvane
