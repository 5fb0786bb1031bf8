#include "core/common/rpc/serving/call_pool.h"

#include <gtest/gtest.h>

#include <deque>
#include <memory>
#include <utility>
#include <vector>

#include "core/common/rpc/testing/manual_sequence.h"

namespace rpc::serving {
namespace {

// As the reliability page promises it.
constexpr int kIdle = 256;

class CallPoolTest : public ::testing::Test {
 protected:
  ~CallPoolTest() override { pool_->Close(); }

  // Calls that are over, the first of them first, and no longer held here.
  std::vector<Call*> ReturnCalls(int count) {
    std::vector<std::shared_ptr<Call>> calls;
    std::vector<Call*> returned;
    for (int i = 0; i < count; ++i) {
      calls.push_back(std::make_shared<Call>(pool_));
      returned.push_back(calls.back().get());
    }
    for (std::shared_ptr<Call>& call : calls) {
      pool_->Return(std::move(call));
    }
    return returned;
  }

  loop::ManualSequence sequence_;
  const std::shared_ptr<CallPool> pool_ =
      std::make_shared<CallPool>(sequence_, std::make_shared<Counters>());
};

TEST_F(CallPoolTest, TheLongestIdleIsUsedAgainWhenEnoughAreIdle) {
  const std::vector<Call*> idle = ReturnCalls(kIdle);
  const std::shared_ptr<Call> first = pool_->Take();
  EXPECT_EQ(first.get(), idle[0]);
  // Too few are left.
  const std::shared_ptr<Call> second = pool_->Take();
  EXPECT_NE(second, nullptr);
  for (const Call* call : idle) {
    EXPECT_NE(second.get(), call);
  }
  ReturnCalls(1);
  EXPECT_EQ(pool_->Take().get(), idle[1]);
}

TEST_F(CallPoolTest, ACallThatIsStillHeldIsNotUsedAgain) {
  const std::shared_ptr<Call> held = pool_->Take();
  pool_->Return(held);
  ReturnCalls(kIdle - 1);
  EXPECT_NE(pool_->Take(), held);
}

TEST_F(CallPoolTest, NoMoreThanEnoughAreKept) {
  std::deque<std::weak_ptr<Call>> returned;
  for (int i = 0; i < kIdle + 2; ++i) {
    auto call = std::make_shared<Call>(pool_);
    returned.push_back(call);
    pool_->Return(std::move(call));
  }
  EXPECT_TRUE(returned[0].expired());
  EXPECT_TRUE(returned[1].expired());
  EXPECT_FALSE(returned[2].expired());
}

TEST_F(CallPoolTest, NothingIsKeptOnceItIsClosed) {
  auto early = std::make_shared<Call>(pool_);
  auto late = std::make_shared<Call>(pool_);
  const std::weak_ptr<Call> watched_early = early;
  const std::weak_ptr<Call> watched_late = late;
  pool_->Return(std::move(early));
  EXPECT_FALSE(watched_early.expired());
  pool_->Close();
  EXPECT_TRUE(watched_early.expired());
  pool_->Return(std::move(late));
  EXPECT_TRUE(watched_late.expired());
}

}  // namespace
}  // namespace rpc::serving
