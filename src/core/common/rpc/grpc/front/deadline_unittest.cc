#include "core/common/rpc/grpc/front/deadline.h"

#include <gtest/gtest.h>

#include <chrono>
#include <cstdint>

namespace rpc::grpc {
namespace {

using std::chrono::hours;
using std::chrono::milliseconds;
using std::chrono::steady_clock;

gpr_timespec In(milliseconds time) {
  return gpr_time_add(gpr_now(GPR_CLOCK_MONOTONIC),
                      gpr_time_from_millis(time.count(), GPR_TIMESPAN));
}

TEST(DeadlineTest, IsOnTheSteadyClock) {
  const steady_clock::time_point before = steady_clock::now();
  const auto deadline = DeadlineOf(In(hours(1)));
  ASSERT_TRUE(deadline.has_value());
  EXPECT_GE(*deadline, before + hours(1) - milliseconds(1));
  EXPECT_LE(*deadline, steady_clock::now() + hours(1));
}

TEST(DeadlineTest, WhoMayWaitForEverHasNone) {
  EXPECT_FALSE(DeadlineOf(gpr_inf_future(GPR_CLOCK_MONOTONIC)).has_value());
  EXPECT_FALSE(DeadlineOf(gpr_inf_future(GPR_CLOCK_REALTIME)).has_value());
}

// gRPC's longest, "99999999H".
TEST(DeadlineTest, MoreThanAClockCanCountIsACentury) {
  constexpr hours kCentury(24 * 36'500);
  const auto deadline = DeadlineOf(In(hours(99'999'999)));
  ASSERT_TRUE(deadline.has_value());
  EXPECT_GT(*deadline, steady_clock::now() + kCentury - hours(1));
  EXPECT_LT(*deadline, steady_clock::now() + kCentury + hours(1));
}

TEST(DeadlineTest, WhatIsOverIsOver) {
  for (const gpr_timespec past : {In(milliseconds(-1)), In(-hours(99'999'999)),
                                  gpr_inf_past(GPR_CLOCK_MONOTONIC)}) {
    const auto deadline = DeadlineOf(past);
    ASSERT_TRUE(deadline.has_value());
    EXPECT_LT(*deadline, steady_clock::now());
  }
}

}  // namespace
}  // namespace rpc::grpc
