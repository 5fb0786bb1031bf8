#include "core/common/rpc/testing/manual_sequence.h"

#include <gtest/gtest.h>

#include <chrono>
#include <memory>
#include <vector>

namespace rpc::loop {
namespace {

using std::chrono::seconds;

TEST(ManualSequence, RunsPostedTasksOnlyWhenTold) {
  ManualSequence sequence;
  int ran = 0;
  sequence.Post([&] {
    ++ran;
    sequence.Post([&] { ++ran; });
  });
  EXPECT_EQ(ran, 0);
  EXPECT_TRUE(sequence.RunOne());
  EXPECT_EQ(ran, 1);
  EXPECT_EQ(sequence.Run(), 1u);
  EXPECT_EQ(ran, 2);
  EXPECT_FALSE(sequence.RunOne());
}

TEST(ManualSequence, IsCurrentOnlyWithinItsTasks) {
  ManualSequence sequence;
  bool within = false;
  sequence.Post([&] { within = sequence.IsCurrent(); });
  sequence.Run();
  EXPECT_TRUE(within);
  EXPECT_FALSE(sequence.IsCurrent());
}

TEST(ManualSequence, TimersRunWhenTheClockIsMovedToTheirTime) {
  ManualSequence sequence;
  std::vector<int> ran;
  const auto second = sequence.RunAfter(seconds(2), [&] { ran.push_back(2); });
  const auto first = sequence.RunAfter(seconds(1), [&] {
    ran.push_back(1);
    sequence.Post([&] { ran.push_back(10); });
  });
  EXPECT_EQ(sequence.timers(), 2u);
  sequence.Advance(seconds(1));
  EXPECT_EQ(ran, (std::vector<int>{1, 10}));
  sequence.Advance(seconds(1));
  EXPECT_EQ(ran, (std::vector<int>{1, 10, 2}));
  EXPECT_EQ(sequence.timers(), 0u);
}

TEST(ManualSequence, TimersOfOneTimeRunInTheOrderInWhichTheyWereSet) {
  ManualSequence sequence;
  std::vector<int> ran;
  const auto time = sequence.Now() + seconds(1);
  const auto first = sequence.RunAt(time, [&] { ran.push_back(1); });
  const auto second = sequence.RunAt(time, [&] { ran.push_back(2); });
  sequence.Advance(seconds(1));
  EXPECT_EQ(ran, (std::vector<int>{1, 2}));
}

TEST(ManualSequence, DestroyedTimersDoNotRun) {
  ManualSequence sequence;
  bool ran = false;
  sequence.RunAfter(seconds(1), [&] { ran = true; }).reset();
  sequence.Advance(seconds(2));
  EXPECT_FALSE(ran);
}

TEST(ManualSequence, ATimerMayDestroyItself) {
  ManualSequence sequence;
  std::unique_ptr<Timer> timer;
  timer = sequence.RunAfter(seconds(1), [&] { timer.reset(); });
  sequence.Advance(seconds(1));
  EXPECT_EQ(timer, nullptr);
}

}  // namespace
}  // namespace rpc::loop
