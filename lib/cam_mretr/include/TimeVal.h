#pragma once

#include <sys/time.h>

namespace Kelvane {

class Delay_Interval;

// A point in time as seconds and microseconds. Sums and differences are
// normalised (microseconds in 0..999999), saturate instead of overflowing, and
// never fall below zero: earlier minus later is zero.
class Time_Val {
 public:
  Time_Val();  // the time of day
  constexpr Time_Val(long seconds, long useconds) : fTv{seconds, useconds} {}
  constexpr Time_Val(const timeval& tv) : fTv(tv) {}  // NOLINT: a timeval converts

  constexpr long seconds() const { return fTv.tv_sec; }
  constexpr long useconds() const { return fTv.tv_usec; }
  constexpr const timeval& tv() const { return fTv; }

  Time_Val& operator+=(const Delay_Interval& interval);
  Time_Val& operator-=(const Delay_Interval& interval);

  static Time_Val gettimeofday() { return Time_Val(); }

 protected:
  timeval fTv;
};

class Delay_Interval : public Time_Val {
 public:
  constexpr Delay_Interval(long seconds, long useconds) : Time_Val(seconds, useconds) {}
};

constexpr bool operator==(const Time_Val& a, const Time_Val& b) {
  return a.seconds() == b.seconds() && a.useconds() == b.useconds();
}
constexpr bool operator<(const Time_Val& a, const Time_Val& b) {
  return a.seconds() < b.seconds() || (a.seconds() == b.seconds() && a.useconds() < b.useconds());
}
constexpr bool operator!=(const Time_Val& a, const Time_Val& b) {
  return !(a == b);
}
constexpr bool operator>(const Time_Val& a, const Time_Val& b) {
  return b < a;
}
constexpr bool operator<=(const Time_Val& a, const Time_Val& b) {
  return !(b < a);
}
constexpr bool operator>=(const Time_Val& a, const Time_Val& b) {
  return !(a < b);
}

Delay_Interval operator-(const Time_Val& later, const Time_Val& earlier);
Time_Val operator+(const Time_Val& time, const Delay_Interval& interval);
Time_Val operator-(const Time_Val& time, const Delay_Interval& interval);
// Both overloads above would fit two intervals.
Delay_Interval operator-(const Delay_Interval& longer, const Delay_Interval& shorter);

constexpr Delay_Interval ZERO{0, 0};

}  // namespace Kelvane
