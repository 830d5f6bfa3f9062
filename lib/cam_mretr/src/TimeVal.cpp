#include "TimeVal.h"

#include <limits>

namespace Kelvane {

namespace {

// Wide enough for any sum of two intervals, so that only the way back can saturate.
using Micros = __int128;

constexpr Micros kSecond = 1000000;

Micros micros(const Time_Val& time) {
  return static_cast<Micros>(time.seconds()) * kSecond + time.useconds();
}

timeval normalised(Micros value) {
  if (value < 0) return {0, 0};
  constexpr long kMax = std::numeric_limits<long>::max();
  if (value / kSecond > kMax) return {kMax, 999999};
  return {static_cast<long>(value / kSecond), static_cast<long>(value % kSecond)};
}

Delay_Interval interval(Micros value) {
  const timeval tv = normalised(value);
  return {tv.tv_sec, tv.tv_usec};
}

}  // namespace

Time_Val::Time_Val() : fTv{} {
  ::gettimeofday(&fTv, nullptr);
}

Time_Val& Time_Val::operator+=(const Delay_Interval& interval) {
  fTv = normalised(micros(*this) + micros(interval));
  return *this;
}

Time_Val& Time_Val::operator-=(const Delay_Interval& interval) {
  fTv = normalised(micros(*this) - micros(interval));
  return *this;
}

Delay_Interval operator-(const Time_Val& later, const Time_Val& earlier) {
  return interval(micros(later) - micros(earlier));
}

Delay_Interval operator-(const Delay_Interval& longer, const Delay_Interval& shorter) {
  return interval(micros(longer) - micros(shorter));
}

Time_Val operator+(const Time_Val& time, const Delay_Interval& interval) {
  return normalised(micros(time) + micros(interval));
}

Time_Val operator-(const Time_Val& time, const Delay_Interval& interval) {
  return normalised(micros(time) - micros(interval));
}

}  // namespace Kelvane
