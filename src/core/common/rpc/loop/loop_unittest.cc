#include "core/common/rpc/loop/loop.h"

#include <gtest/gtest.h>

#include <chrono>
#include <memory>
#include <string>
#include <thread>
#include <vector>

namespace rpc::loop {
namespace {

using std::chrono::hours;
using std::chrono::milliseconds;

TEST(Loop, RunsWhatIsPostedInItsOrderAndNeverAtOnce) {
  Loop loop;
  std::vector<int> ran;
  loop.Post([&] {
    loop.Post([&] { ran.push_back(3); });
    ran.push_back(1);
  });
  loop.Post([&] { ran.push_back(2); });
  EXPECT_EQ(ran, std::vector<int>());
  loop.Run();
  EXPECT_EQ(ran, (std::vector<int>{1, 2, 3}));
}

TEST(Loop, IsCurrentOnlyWithinItsTasks) {
  Loop loop;
  EXPECT_FALSE(loop.IsCurrent());
  bool within = false;
  bool elsewhere = true;
  loop.Post([&] {
    within = loop.IsCurrent();
    std::thread([&] { elsewhere = loop.IsCurrent(); }).join();
  });
  loop.Run();
  EXPECT_TRUE(within);
  EXPECT_FALSE(elsewhere);
}

TEST(Loop, IsCurrentForGlueThatRunsIt) {
  Loop loop;
  {
    const Loop::Running running(loop);
    const Loop::Running nested(loop);
    EXPECT_TRUE(loop.IsCurrent());
    bool elsewhere = true;
    std::thread([&] { elsewhere = loop.IsCurrent(); }).join();
    EXPECT_FALSE(elsewhere);
  }
  EXPECT_FALSE(loop.IsCurrent());
}

TEST(Loop, IsStoppedUntilTheRunIsOver) {
  Loop loop;
  bool before = true;
  bool after = false;
  loop.Post([&] {
    before = loop.IsStopped();
    loop.Stop();
    after = loop.IsStopped();
  });
  loop.Run();
  EXPECT_FALSE(before);
  EXPECT_TRUE(after);
  EXPECT_FALSE(loop.IsStopped());
}

TEST(Loop, RunsWhatAnotherThreadPosts) {
  Loop loop;
  bool ran = false;
  const Loop::Work work(loop);
  std::thread other([&] { loop.Post([&] { ran = true; }); });
  EXPECT_TRUE(loop.RunUntil([&] { return ran; }));
  other.join();
}

TEST(Loop, RunsTimersByTheirTimes) {
  Loop loop;
  std::vector<int> ran;
  const auto now = loop.Now();
  const auto second =
      loop.RunAt(now + milliseconds(2), [&] { ran.push_back(2); });
  const auto first =
      loop.RunAt(now + milliseconds(1), [&] { ran.push_back(1); });
  loop.Run();
  EXPECT_EQ(ran, (std::vector<int>{1, 2}));
  EXPECT_GE(loop.Now(), now + milliseconds(2));
}

TEST(Loop, RunsNoTimerThatIsDestroyedThoughItsTimeHasCome) {
  Loop loop;
  bool ran = false;
  // Both are due: what runs first takes the other one back.
  std::unique_ptr<Timer> late;
  const auto early = loop.RunAt(loop.Now(), [&] { late.reset(); });
  late = loop.RunAt(loop.Now(), [&] { ran = true; });
  loop.Run();
  EXPECT_FALSE(ran);
}

TEST(Loop, LetsATimerDestroyItself) {
  Loop loop;
  std::unique_ptr<Timer> timer;
  std::string seen;
  timer = loop.RunAfter(milliseconds(0), [&, text = std::string("text")] {
    timer.reset();
    seen = text;
  });
  loop.Run();
  EXPECT_EQ(seen, "text");
}

TEST(Loop, RunUntilEndsWithTheCondition) {
  Loop loop;
  int ran = 0;
  loop.Post([&] { ++ran; });
  loop.Post([&] { ++ran; });
  EXPECT_TRUE(loop.RunUntil([&] { return ran == 1; }));
  EXPECT_EQ(ran, 1);
}

TEST(Loop, RunUntilSaysWhenNothingIsLeftToWaitFor) {
  Loop loop;
  EXPECT_FALSE(loop.RunUntil([] { return false; }));
}

TEST(Loop, RunUntilSaysWhenItIsStopped) {
  Loop loop;
  const auto never = loop.RunAfter(hours(1), [] {});
  loop.Post([&] { loop.Stop(); });
  EXPECT_FALSE(loop.RunUntil([] { return false; }));
}

TEST(Loop, StopInsideANestedRunEndsTheRunAroundItToo) {
  Loop loop;
  bool later = false;
  bool nested = true;
  loop.Post([&] {
    loop.Post([&] { loop.Stop(); });
    nested = loop.RunUntil([] { return false; });
    loop.Post([&] { later = true; });
  });
  loop.Run();
  EXPECT_FALSE(nested);
  EXPECT_FALSE(later);
}

TEST(Loop, StopBeforeANestedRunEndsBoth) {
  Loop loop;
  bool later = false;
  bool nested = true;
  loop.Post([&] {
    loop.Stop();
    loop.Post([&] { later = true; });
    nested = loop.RunUntil([] { return false; });
  });
  loop.Run();
  EXPECT_FALSE(nested);
  EXPECT_FALSE(later);
}

TEST(Loop, RunsAgainAfterItWasStopped) {
  Loop loop;
  bool ran = false;
  loop.Post([&] {
    loop.Stop();
    loop.Post([&] { ran = true; });
  });
  loop.Run();
  EXPECT_FALSE(ran);
  loop.Run();
  EXPECT_TRUE(ran);
}

TEST(Loop, RunsOtherTasksInsideATaskThatWaits) {
  Loop loop;
  std::vector<std::string> ran;
  loop.Post([&] {
    bool over = false;
    loop.Post([&] { over = true; });
    EXPECT_TRUE(loop.RunUntil([&] { return over; }));
    ran.emplace_back("outer");
  });
  loop.Post([&] { ran.emplace_back("inner"); });
  loop.Run();
  EXPECT_EQ(ran, (std::vector<std::string>{"inner", "outer"}));
}

TEST(Loop, RunReadyWaitsForNothing) {
  Loop loop;
  int ran = 0;
  const auto never = loop.RunAfter(hours(1), [] {});
  loop.Post([&] { loop.Post([&] { ++ran; }); });
  loop.RunReady();
  EXPECT_EQ(ran, 1);
}

TEST(Loop, DestroysTasksThatHaveNotRun) {
  auto kept = std::make_shared<int>(1);
  const std::weak_ptr<int> watched = kept;
  {
    Loop loop;
    loop.Post([kept = std::move(kept)] { FAIL(); });
  }
  EXPECT_TRUE(watched.expired());
}

}  // namespace
}  // namespace rpc::loop
