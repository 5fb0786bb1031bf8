#include "tools/soak/settling_times.h"

#include <gtest/gtest.h>

namespace soak {
namespace {

using std::chrono::microseconds;
using std::chrono::nanoseconds;
using std::chrono::seconds;

TEST(SettlingTimesTest, WithoutAnyAllIsZero) {
  const SettlingTimes times;
  EXPECT_EQ(times.count(), 0u);
  EXPECT_EQ(times.Within(0.5), nanoseconds(0));
  EXPECT_EQ(times.longest(), nanoseconds(0));
}

TEST(SettlingTimesTest, OneIsAllFractionsOfItself) {
  SettlingTimes times;
  times.Add(microseconds(123));
  EXPECT_EQ(times.count(), 1u);
  EXPECT_EQ(times.Within(0), microseconds(123));
  EXPECT_EQ(times.Within(0.5), microseconds(123));
  EXPECT_EQ(times.Within(1), microseconds(123));
}

// In whatever order they come.
TEST(SettlingTimesTest, AFractionIsDoneWithinTheTimeOfTheLastOfThem) {
  SettlingTimes times;
  for (int i = 100; i >= 1; --i)
    times.Add(microseconds(100 * i));
  EXPECT_EQ(times.Within(0.5), microseconds(5'000));
  EXPECT_EQ(times.Within(0.505), microseconds(5'100));
  EXPECT_EQ(times.Within(0.99), microseconds(9'900));
  EXPECT_EQ(times.Within(1), microseconds(10'000));
}

TEST(SettlingTimesTest, AreRoundedUpToSteps) {
  SettlingTimes times;
  times.Add(nanoseconds(10'000));
  times.Add(nanoseconds(10'001));
  times.Add(nanoseconds(90'000));
  EXPECT_EQ(times.Within(0.3), microseconds(10));
  EXPECT_EQ(times.Within(0.6), microseconds(20));
}

TEST(SettlingTimesTest, TheLongestIsNotRounded) {
  SettlingTimes times;
  times.Add(nanoseconds(1));
  times.Add(nanoseconds(90'001));
  EXPECT_EQ(times.longest(), nanoseconds(90'001));
  EXPECT_EQ(times.Within(1), nanoseconds(90'001));
}

TEST(SettlingTimesTest, WhatTakesASecondCountsAsTheLongest) {
  SettlingTimes times;
  times.Add(microseconds(10));
  times.Add(seconds(1) + nanoseconds(1));
  times.Add(seconds(7));
  EXPECT_EQ(times.count(), 3u);
  EXPECT_EQ(times.Within(0.3), microseconds(10));
  EXPECT_EQ(times.Within(0.5), seconds(7));
  EXPECT_EQ(times.longest(), seconds(7));
}

}  // namespace
}  // namespace soak
