#include "FramePacer.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>

using Kelvane::Delay_Interval;
using Kelvane::FramePacer;
using Kelvane::Time_Val;
using Kelvane::ZERO;

namespace {
const Time_Val kStart(1000, 0);
Time_Val at(long micros) {
  return kStart + Delay_Interval(0, micros);
}
}  // namespace

TEST(FramePacer, HoldsFramesToTheRateAndNeverCatchesUp) {
  const struct {
    long stamp;  // microseconds behind the start
    long wait;
  } frames[] = {
      {0, 0},           // the first does not wait
      {10000, 30000},   // early: held to the interval of 40 ms
      {40000, 40000},   // the earliness is carried into the next deadline
      {200000, 0},      // late: the schedule moves
      {210000, 30000},  // and is kept from there on
  };
  FramePacer pacer;
  for (const auto& frame : frames) {
    EXPECT_EQ(pacer.next(at(frame.stamp), 25.0F), Delay_Interval(0, frame.wait)) << frame.stamp;
  }
}

TEST(FramePacer, SenselessRatesDoNotWait) {
  for (const float rate : {0.0F, -5.0F, std::nanf(""), std::numeric_limits<float>::infinity()}) {
    FramePacer pacer;
    EXPECT_EQ(pacer.next(at(0), rate), ZERO);
    EXPECT_EQ(pacer.next(at(1), rate), ZERO) << rate;
  }
  // A rate near zero is a wait of ages, not an overflow.
  FramePacer pacer;
  pacer.next(at(0), 1e-30F);
  EXPECT_GT(pacer.next(at(1), 1e-30F).seconds(), 1000000);
}

TEST(TimeVal, SaturatesInsteadOfOverflowing) {
  constexpr long kMax = std::numeric_limits<long>::max();
  EXPECT_EQ(Time_Val(3, 0) - Time_Val(5, 0), ZERO);
  EXPECT_EQ(Time_Val(5, 100) - Time_Val(3, 200), Delay_Interval(1, 999900));
  EXPECT_EQ((Time_Val(kMax, 999999) + Delay_Interval(kMax, 999999)).seconds(), kMax);
  EXPECT_EQ(Time_Val(3, 0) - Delay_Interval(kMax, kMax), Time_Val(0, 0));
  EXPECT_EQ(Time_Val(1, 0) + Delay_Interval(0, 2500000), Time_Val(3, 500000));
}
