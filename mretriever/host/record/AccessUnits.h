#pragma once

#include <sys/time.h>

#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>
#include <vector>

namespace host {

enum class VideoCodec { h264, mpeg4, mpeg2, mjpeg };

// A picture with the headers ahead of it; H.264 with start codes.
struct AccessUnit {
  std::vector<uint8_t> data;
  timeval tv{};               // of the delivery that began the picture
  bool key = false;           // decoding may start here
  std::string configuration;  // its headers that tell the picture's size
};

// Makes access units of what the sinks deliver: whole units, several in one,
// single NAL units without start code, slices. A unit is complete when the next
// one begins; a JPEG picture is complete by itself. Pure; one thread.
class AccessUnitAssembler {
 public:
  using Take = std::function<void(const AccessUnit&)>;
  AccessUnitAssembler(VideoCodec codec, Take take) : codec_(codec), take_(std::move(take)) {}

  void add(const uint8_t* data, std::size_t size, const timeval& tv);
  // The unit at the end of the stream.
  void flush();
  // Units given up because they would not end, since the last call.
  unsigned takeDropped();

  static constexpr std::size_t kLongestUnit = 8000000;  // bytes; the sinks take 1000000 at once

 private:
  struct Unit;
  Unit examine(const uint8_t* code, std::size_t size) const;
  void begin(const Unit& unit, const timeval& tv);
  void configure(const uint8_t* data, const uint8_t* end);
  void append(const uint8_t* data, std::size_t size);
  void emit();

  VideoCodec codec_;
  Take take_;
  AccessUnit pending_;
  bool joined_ = false;  // a unit has begun
  bool hasPicture_ = false;
  bool overlong_ = false;
  unsigned dropped_ = 0;
};

}  // namespace host
