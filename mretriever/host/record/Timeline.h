#pragma once

#include <sys/time.h>

#include <algorithm>
#include <cstdint>
#include <optional>

namespace host {

// Milliseconds of one file from the frames' times of day: one zero for all its
// tracks, so that they stay in step; a track never goes back. A clock that was
// set back by more than a second moves the zero instead of stopping the time.
class Timeline {
 public:
  explicit Timeline(const timeval& zero) : zero_(millis(zero)) {}

  // Nothing for a frame from ahead of the file's beginning.
  std::optional<int64_t> at(unsigned track, const timeval& tv) {
    int64_t& last = last_[track];
    int64_t time = millis(tv) - zero_;
    if (last - time > kClockStep) {
      zero_ -= last - time;
      time = last;
    }
    if (time < 0) return std::nullopt;
    return last = std::max(time, last);
  }

 private:
  static constexpr int64_t kClockStep = 1000;
  static int64_t millis(const timeval& tv) {
    return static_cast<int64_t>(tv.tv_sec) * 1000 + tv.tv_usec / 1000;
  }

  int64_t zero_;
  int64_t last_[2] = {};
};

}  // namespace host
