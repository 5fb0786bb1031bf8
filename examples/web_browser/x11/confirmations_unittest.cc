#include "examples/web_browser/x11/confirmations.h"

#include <gtest/gtest.h>

#include <chrono>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "absl/status/status.h"
#include "core/common/rpc/testing/manual_sequence.h"

namespace web_browser::x11 {
namespace {

using std::chrono::milliseconds;

// What has become of a change.
struct Outcome {
  int times = 0;
  absl::Status status;
};

class ConfirmationsTest : public ::testing::Test {
 protected:
  // Waits for `verdict_` to become another one.
  void Await(int passes = 1, milliseconds grace = milliseconds(0)) {
    confirmations_.Await(
        {.look =
             [this] {
               ++looks_;
               return verdict_;
             },
         .refusal = [] { return absl::FailedPreconditionError("refused"); },
         .timeout = [] { return absl::DeadlineExceededError("hangs"); },
         .gone = absl::NotFoundError("No window 7."),
         .done =
             [this](const absl::Status& status) {
               ++outcome_.times;
               outcome_.status = status;
             },
         .passes = passes,
         .grace = grace});
  }
  void PassFence() { confirmations_.OnFencePassed(++passed_); }
  void PassFences(int count) {
    for (int i = 0; i < count; ++i) {
      PassFence();
    }
  }

  void PassMark() {
    confirmations_.OnMarkPassed(++passed_marks_);
    sequence_.Run();
  }

  rpc::loop::ManualSequence sequence_;
  uint64_t sent_ = 0;
  uint64_t passed_ = 0;
  int looks_ = 0;
  Verdict verdict_ = Verdict::kNotYet;
  Outcome outcome_;
  uint64_t marks_ = 0;
  uint64_t passed_marks_ = 0;
  Confirmations confirmations_{sequence_, [this] { return ++sent_; },
                               [this] { return ++marks_; }};
};

TEST_F(ConfirmationsTest, WhatHoldsBehindTheFenceIsDone) {
  Await();
  EXPECT_EQ(sent_, 1U);
  verdict_ = Verdict::kHolds;
  PassFence();
  sequence_.Run();
  EXPECT_EQ(outcome_.times, 1);
  EXPECT_EQ(outcome_.status, absl::OkStatus());
  EXPECT_EQ(confirmations_.waiting(), 0U);
  EXPECT_EQ(sequence_.timers(), 0U);
}

TEST_F(ConfirmationsTest, WhatHoldsBeforeTheFenceProvesNothing) {
  verdict_ = Verdict::kHolds;
  Await();
  confirmations_.OnEvent();
  sequence_.Run();
  EXPECT_EQ(outcome_.times, 0);
  EXPECT_EQ(looks_, 0);
}

TEST_F(ConfirmationsTest, CompletesOnALaterTurn) {
  Await();
  verdict_ = Verdict::kHolds;
  PassFence();
  EXPECT_EQ(outcome_.times, 0);
  sequence_.Run();
  EXPECT_EQ(outcome_.times, 1);
}

TEST_F(ConfirmationsTest, CompletesOnceWhateverHappensAfterwards) {
  Await();
  verdict_ = Verdict::kHolds;
  PassFence();
  confirmations_.OnEvent();
  PassFence();
  sequence_.Run();
  sequence_.Advance(Confirmations::kDeadline);
  EXPECT_EQ(outcome_.times, 1);
}

TEST_F(ConfirmationsTest, LooksAgainAtEachEventBehindTheFence) {
  Await();
  PassFence();
  verdict_ = Verdict::kHolds;
  confirmations_.OnEvent();
  sequence_.Run();
  EXPECT_EQ(outcome_.times, 1);
  EXPECT_EQ(outcome_.status, absl::OkStatus());
}

TEST_F(ConfirmationsTest, SendsFourFencesBeforeItCountsAsRefused) {
  Await();
  PassFences(Confirmations::kPasses - 1);
  sequence_.Run();
  EXPECT_EQ(outcome_.times, 0);
  EXPECT_EQ(sent_, 4U);
  PassFence();
  sequence_.Run();
  EXPECT_EQ(outcome_.times, 1);
  EXPECT_EQ(outcome_.status, absl::FailedPreconditionError("refused"));
  EXPECT_EQ(sent_, 4U);
}

TEST_F(ConfirmationsTest, HoldsAtTheLastFence) {
  Await();
  PassFences(Confirmations::kPasses - 1);
  verdict_ = Verdict::kHolds;
  PassFence();
  sequence_.Run();
  EXPECT_EQ(outcome_.status, absl::OkStatus());
}

TEST_F(ConfirmationsTest, MayNeedMoreThanOneFence) {
  verdict_ = Verdict::kHolds;
  Await(/*passes=*/2);
  PassFence();
  confirmations_.OnEvent();
  sequence_.Run();
  EXPECT_EQ(outcome_.times, 0);
  PassFence();
  sequence_.Run();
  EXPECT_EQ(outcome_.status, absl::OkStatus());
  EXPECT_EQ(outcome_.times, 1);
}

TEST_F(ConfirmationsTest, GraceKeepsLookingAtEvents) {
  Await(1, milliseconds(250));
  PassFences(Confirmations::kPasses);
  sequence_.Advance(milliseconds(249));
  EXPECT_EQ(outcome_.times, 0);
  verdict_ = Verdict::kHolds;
  confirmations_.OnEvent();
  sequence_.Run();
  EXPECT_EQ(outcome_.times, 1);
  EXPECT_EQ(outcome_.status, absl::OkStatus());
}

TEST_F(ConfirmationsTest, AfterTheGraceItIsRefused) {
  Await(1, milliseconds(250));
  PassFences(Confirmations::kPasses);
  sequence_.Advance(milliseconds(250));
  EXPECT_EQ(outcome_.times, 1);
  EXPECT_EQ(outcome_.status, absl::FailedPreconditionError("refused"));
}

TEST_F(ConfirmationsTest, LooksOnceMoreWhenTheGraceIsOver) {
  Await(1, milliseconds(250));
  PassFences(Confirmations::kPasses);
  verdict_ = Verdict::kHolds;
  sequence_.Advance(milliseconds(250));
  EXPECT_EQ(outcome_.status, absl::OkStatus());
  EXPECT_EQ(outcome_.times, 1);
}

TEST_F(ConfirmationsTest, AHungWindowManagerEndsItAtTheDeadline) {
  Await();
  sequence_.Advance(Confirmations::kDeadline - milliseconds(1));
  EXPECT_EQ(marks_, 0U);
  sequence_.Advance(milliseconds(1));
  EXPECT_EQ(marks_, 1U);
  EXPECT_EQ(outcome_.times, 0);
  PassMark();
  EXPECT_EQ(outcome_.times, 1);
  EXPECT_EQ(outcome_.status, absl::DeadlineExceededError("hangs"));
  // It comes to itself.
  verdict_ = Verdict::kHolds;
  PassFence();
  sequence_.Run();
  EXPECT_EQ(outcome_.times, 1);
}

// The loop had other things to do: what the window manager has said in time is
// still to be looked at.
TEST_F(ConfirmationsTest, WhatCameBeforeTheDeadlineCountsAlsoBehindIt) {
  Await();
  sequence_.Advance(Confirmations::kDeadline);
  verdict_ = Verdict::kHolds;
  PassFence();
  PassMark();
  EXPECT_EQ(outcome_.times, 1);
  EXPECT_EQ(outcome_.status, absl::OkStatus());
  EXPECT_EQ(sequence_.timers(), 0U);
}

TEST_F(ConfirmationsTest, AWindowManagerThatHasAnsweredGetsAnotherDeadline) {
  Await();
  sequence_.Advance(Confirmations::kDeadline);
  PassFence();
  PassMark();
  EXPECT_EQ(outcome_.times, 0);
  sequence_.Advance(Confirmations::kDeadline - milliseconds(1));
  EXPECT_EQ(marks_, 1U);
  sequence_.Advance(milliseconds(1));
  PassMark();
  EXPECT_EQ(outcome_.times, 1);
  EXPECT_EQ(outcome_.status, absl::DeadlineExceededError("hangs"));
}

TEST_F(ConfirmationsTest, AMarkIsOfTheChangesWhoseDeadlineIsOver) {
  Await();
  sequence_.Advance(Confirmations::kDeadline);
  Await();
  PassMark();
  EXPECT_EQ(outcome_.times, 1);
  EXPECT_EQ(confirmations_.waiting(), 1U);
}

TEST_F(ConfirmationsTest, AWindowThatIsGoneIsNotFound) {
  Await();
  verdict_ = Verdict::kGone;
  PassFence();
  sequence_.Run();
  EXPECT_EQ(outcome_.times, 1);
  EXPECT_EQ(outcome_.status, absl::NotFoundError("No window 7."));
}

TEST_F(ConfirmationsTest, AWindowThatGoesDuringTheGraceIsNotFound) {
  Await(1, milliseconds(250));
  PassFences(Confirmations::kPasses);
  verdict_ = Verdict::kGone;
  confirmations_.OnEvent();
  sequence_.Run();
  EXPECT_EQ(outcome_.status, absl::NotFoundError("No window 7."));
}

TEST_F(ConfirmationsTest, OneFenceStandsForAllBeforeIt) {
  Await();
  Await();
  Await();
  EXPECT_EQ(sent_, 3U);
  verdict_ = Verdict::kHolds;
  // The window manager has merged them.
  confirmations_.OnFencePassed(3);
  sequence_.Run();
  EXPECT_EQ(outcome_.times, 3);
}

TEST_F(ConfirmationsTest, AFenceOfAnEarlierChangeSaysNothingOfALaterOne) {
  Await();
  Await();
  verdict_ = Verdict::kHolds;
  confirmations_.OnFencePassed(1);
  sequence_.Run();
  EXPECT_EQ(outcome_.times, 1);
  EXPECT_EQ(confirmations_.waiting(), 1U);
}

TEST(Confirmations, DestroysWhatStillWaits) {
  rpc::loop::ManualSequence sequence;
  auto kept = std::make_shared<int>(1);
  const std::weak_ptr<int> watched = kept;
  {
    Confirmations confirmations(
        sequence, [] { return 1; }, [] { return 1; });
    confirmations.Await(
        {.look = [] { return Verdict::kNotYet; },
         .refusal = [] { return absl::UnknownError(""); },
         .timeout = [] { return absl::UnknownError(""); },
         .gone = absl::UnknownError(""),
         .done = [kept = std::move(kept)](const absl::Status&) { FAIL(); }});
  }
  sequence.Advance(Confirmations::kDeadline);
  EXPECT_TRUE(watched.expired());
}

}  // namespace
}  // namespace web_browser::x11
