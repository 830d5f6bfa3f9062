#include "FramePacer.h"

namespace Kelvane {

namespace {

// Whole microseconds, computed in single precision.
long frameInterval(float framerate) {
  constexpr float kLongest = 1e15F;  // beyond any wait, and still a long
  if (!(framerate > 0)) return 0;
  const float micros = 1000000.0F / framerate;
  return static_cast<long>(micros < kLongest ? micros : kLongest);
}

}  // namespace

Delay_Interval FramePacer::next(const Time_Val& now, float framerate) {
  const Delay_Interval delay = nextFrameTime_ - now;
  nextFrameTime_ = now + Delay_Interval(0, frameInterval(framerate));
  nextFrameTime_ += delay;
  return delay;
}

}  // namespace Kelvane
