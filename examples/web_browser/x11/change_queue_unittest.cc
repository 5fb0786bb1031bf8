#include "examples/web_browser/x11/change_queue.h"

#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "core/common/rpc/testing/manual_sequence.h"

namespace web_browser::x11 {
namespace {

class ChangeQueueTest : public ::testing::Test {
 protected:
  // A change that writes down when it begins and is over when the test says so.
  void Add(const std::string& name) {
    queue_->Add([this, name](ChangeQueue::Done over) {
      began_.push_back(name);
      over_ = std::move(over);
    });
  }

  rpc::loop::ManualSequence sequence_;
  std::unique_ptr<ChangeQueue> queue_ =
      std::make_unique<ChangeQueue>(sequence_);
  std::vector<std::string> began_;
  ChangeQueue::Done over_;
};

TEST_F(ChangeQueueTest, BeginsOnALaterTurn) {
  Add("one");
  EXPECT_TRUE(began_.empty());
  sequence_.Run();
  EXPECT_EQ(began_, std::vector<std::string>{"one"});
}

TEST_F(ChangeQueueTest, BeginsTheNextWhenOneIsOver) {
  Add("one");
  Add("two");
  sequence_.Run();
  EXPECT_EQ(began_, std::vector<std::string>{"one"});
  EXPECT_EQ(queue_->size(), 2U);
  over_();
  EXPECT_EQ(began_, std::vector<std::string>{"one"});
  sequence_.Run();
  EXPECT_EQ(began_, (std::vector<std::string>{"one", "two"}));
  over_();
  EXPECT_EQ(queue_->size(), 0U);
}

TEST_F(ChangeQueueTest, OneThatIsDroppedIsOver) {
  Add("one");
  Add("two");
  sequence_.Run();
  over_ = nullptr;
  sequence_.Run();
  EXPECT_EQ(began_, (std::vector<std::string>{"one", "two"}));
}

TEST_F(ChangeQueueTest, OneThatIsOverAtOnceLetsTheNextBegin) {
  queue_->Add([](ChangeQueue::Done over) { over(); });
  Add("two");
  sequence_.Run();
  EXPECT_EQ(began_, std::vector<std::string>{"two"});
}

TEST_F(ChangeQueueTest, SayingItTwiceEndsNoOther) {
  std::vector<std::string> began;
  queue_->Add([&](ChangeQueue::Done over) {
    over();
    over();
  });
  Add("two");
  Add("three");
  sequence_.Run();
  EXPECT_EQ(began_, std::vector<std::string>{"two"});
}

TEST_F(ChangeQueueTest, GoesWithWhatHasNotBegun) {
  Add("one");
  Add("two");
  sequence_.Run();
  queue_.reset();
  over_();
  sequence_.Run();
  EXPECT_EQ(began_, std::vector<std::string>{"one"});
}

}  // namespace
}  // namespace web_browser::x11
