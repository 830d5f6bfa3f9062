#pragma once

#include <cstddef>
#include <string_view>

#include "TimeVal.h"

namespace Kelvane {

// What the header block of one pushed message says. Nothing of it survives
// into the next message.
struct PushInHeaders {
  static constexpr std::size_t kTextSize = 256;  // terminating zero included
  // Room for one byte written in place of the zero behind a full word.
  static constexpr std::size_t kSpareBytes = 8;

  int contentLength = 0;  // as the peer says it: zero when absent, may be negative
  char contentType[kTextSize + kSpareBytes] = {};
  char message[kTextSize] = {};  // keeps its blanks and the line's own ending
  float latitude = 0;            // degrees; 0 when absent, as the other two
  float longitude = 0;
  float altitude = 0;  // metres
  bool hasTimestamp = false;
  long seconds = 0;  // of the peer's clock
  long useconds = 0;
};

// Takes one line, its ending included. False when it is no header that we
// know, or its value does not read; the headers then stay as they are.
bool parseHeaderLine(const char* line, PushInHeaders& headers);

// The empty line ahead of the body.
bool endsHeaders(const char* line);

// Whether `text` looks like the beginning of a message: a header that we know
// stands ahead of the first empty line. Bodies practically never do.
bool startsMessage(std::string_view text);

// Moves the peer's `time` to the local clock. The offset is measured when it
// is unknown (zero), or when the peer asks for it with a time of zero; true
// when it was. A peer whose clock was once ahead is subtracted from for good:
// `timeDiffPlus` never comes back.
bool correctTime(Time_Val& time, const Time_Val& now, Delay_Interval& timeDiff, bool& timeDiffPlus);

}  // namespace Kelvane
