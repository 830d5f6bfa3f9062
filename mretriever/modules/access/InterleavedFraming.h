#pragma once

#include <array>
#include <cstddef>

namespace Kelvane {

// Follows the packets that are interleaved in an RTSP connection ('$', channel,
// length, packet), to tell whether the rest of a picture is under way. A hint:
// what it takes for a packet amid the text of an answer costs nothing but a
// moment's patience.
class InterleavedFraming {
 public:
  void follow(const unsigned char* data, std::size_t size);
  // Within a packet, or behind a large RTP packet that is not a picture's last.
  bool underWay() const { return left_ > 0 || headerSize_ > 0 || unfinished_; }

 private:
  // Small packets without a marker are audio: what follows them comes much later.
  static constexpr std::size_t kLarge = 1000;
  static constexpr unsigned char kChannels = 8;  // text has no such second byte

  void header(unsigned char byte);

  std::array<unsigned char, 4> header_{};
  std::size_t headerSize_ = 0;
  std::size_t size_ = 0, left_ = 0;  // of the packet
  bool unfinished_ = false;
};

}  // namespace Kelvane
