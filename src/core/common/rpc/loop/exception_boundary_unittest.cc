// Compiled with exceptions, as a program of others may be.

#include "core/common/rpc/loop/exception_boundary.h"

#include <gtest/gtest.h>

#include <chrono>
#include <stdexcept>
#include <string>

#include "core/common/rpc/loop/loop.h"

namespace rpc::loop {
namespace {

std::string TheGuest() {
  return "The guest";
}

TEST(ExceptionBoundary, RunsWhatThrowsNothing) {
  int runs = 0;
  EndOnException([&] { ++runs; }, TheGuest);
  EXPECT_EQ(runs, 1);
}

TEST(ExceptionBoundary, EndsTheProcessWithWhoHasThrownWhat) {
  EXPECT_DEATH(
      EndOnException([] { throw std::runtime_error("no such window"); },
                     TheGuest),
      "The guest has thrown an exception: no such window");
}

TEST(ExceptionBoundary, EndsTheProcessForExceptionsOfOtherTypes) {
  EXPECT_DEATH(EndOnException([] { throw 7; }, TheGuest),
               "The guest has thrown an exception that is no std::exception");
}

constexpr char kTaskHasThrown[] =
    "A task or callback on the loop has thrown an exception: late";

void Throw() {
  throw std::runtime_error("late");
}

TEST(ExceptionBoundary, EndsTheProcessForATaskOfTheLoop) {
  Loop loop;
  loop.Post(Throw);
  EXPECT_DEATH(loop.Run(), kTaskHasThrown);
  EXPECT_DEATH(loop.RunReady(), kTaskHasThrown);
  EXPECT_DEATH(loop.RunUntil([] { return false; }), kTaskHasThrown);
}

TEST(ExceptionBoundary, EndsTheProcessForATimerOfTheLoop) {
  Loop loop;
  const auto timer = loop.RunAfter(std::chrono::milliseconds(0), Throw);
  EXPECT_DEATH(loop.Run(), kTaskHasThrown);
}

}  // namespace
}  // namespace rpc::loop
