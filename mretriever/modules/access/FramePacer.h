#pragma once

#include "TimeVal.h"

namespace Kelvane {

// Holds the frames of a source that could deliver faster to the wanted rate.
// The first frame does not wait; a late frame moves the schedule instead of
// being caught up.
class FramePacer {
 public:
  // How long to wait behind the frame stamped `now`; ZERO for no wait. A frame
  // rate of 0, below 0 or not a number asks for no pace.
  Delay_Interval next(const Time_Val& now, float framerate);

 private:
  Time_Val nextFrameTime_{0, 0};
};

}  // namespace Kelvane
