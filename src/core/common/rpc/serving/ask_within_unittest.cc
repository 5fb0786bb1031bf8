#include "core/common/rpc/serving/ask_within.h"

#include <gtest/gtest.h>

#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "absl/strings/str_cat.h"
#include "core/common/rpc/testing/fake_endpoint.h"
#include "core/common/rpc/testing/manual_sequence.h"
#include "rpc/browser/browser_window.rpc.h"

namespace rpc::serving {
namespace {

using std::chrono::milliseconds;
using std::chrono::seconds;
using Stream = torvane::CallbackStream<CloseWindow>;
using Settled = std::vector<std::string>;

const char* NameOf(QuestionOutcome outcome) {
  switch (outcome) {
    case QuestionOutcome::kAnswered:
      return "answered";
    case QuestionOutcome::kNobodyAnswers:
      return "nobody";
    case QuestionOutcome::kClientFailed:
      return "failed";
    case QuestionOutcome::kClientLeft:
      return "left";
    case QuestionOutcome::kTooLate:
      return "late";
  }
  return "?";
}

CloseWindow About(int64_t window) {
  CloseWindow message;
  message.mutable_browser_id()->set_value(window);
  return message;
}

// A client that answers for window 1, on a stream without a transport.
class AskWithinTest : public ::testing::Test {
 protected:
  AskWithinTest() { Subscribe(true); }
  ~AskWithinTest() override {
    if (stream_) {
      Leave();
    }
    // What has been asked refers to the test.
    sequence_.Run();
    EXPECT_EQ(sequence_.timers(), 0u);
  }

  void Ask(milliseconds patience = seconds(5), int64_t window = 1) {
    CloseWindow question = About(window);
    question.mutable_question();
    AskWithin<CloseWindow>(
        sequence_, patience, question,
        [this](QuestionOutcome outcome, const CloseWindow& answer) {
          EXPECT_FALSE(in_stream_);
          settled_.push_back(absl::StrCat(
              NameOf(outcome), answer.has_response() ? " with answer" : ""));
          std::exchange(then_, [] {})();
        });
  }

  void Subscribe(bool subscribe) {
    CloseWindow message = About(1);
    message.set_subscribe(subscribe);
    Receive(message, 0);
  }
  void Answer(int64_t call_id) {
    CloseWindow message = About(1);
    message.mutable_response()->set_allowed(true);
    Receive(message, call_id);
  }
  void FailQuestion(int64_t call_id) {
    transport::StreamMessage frame = FrameOf(About(1), call_id);
    WithinStream([&] { stream_->OnError(&frame); });
  }
  void Leave() {
    WithinStream([&] { stream_->OnCompleted(); });
    stream_.reset();
  }

  Settled TakeSettled() { return std::exchange(settled_, {}); }
  // Runs the posted tasks; nothing may have settled before.
  Settled RunAndTakeSettled() {
    EXPECT_EQ(TakeSettled(), Settled());
    sequence_.Run();
    return TakeSettled();
  }

  loop::ManualSequence sequence_;
  const std::shared_ptr<torvane::FakeClient> peer_ =
      std::make_shared<torvane::FakeClient>();
  // Done when the next question settles.
  std::function<void()> then_ = [] {};

 private:
  static transport::StreamMessage FrameOf(const CloseWindow& message,
                                          int64_t call_id) {
    transport::StreamMessage frame;
    message.SerializeToString(frame.mutable_payload());
    frame.set_call_id(call_id);
    return frame;
  }
  void Receive(const CloseWindow& message, int64_t call_id) {
    transport::StreamMessage frame = FrameOf(message, call_id);
    WithinStream([&] { stream_->OnNext(&frame); });
  }
  void WithinStream(const std::function<void()>& call) {
    const bool outer = std::exchange(in_stream_, true);
    call();
    in_stream_ = outer;
  }

  BrowserWindowRpc service_;
  std::unique_ptr<Stream> stream_ = std::make_unique<Stream>(
      &service_,
      BrowserWindowRpc::descriptor()->FindMethodByName("OnCloseWindow"),
      torvane::MakeChannel(peer_));
  bool in_stream_ = false;
  Settled settled_;
};

TEST_F(AskWithinTest, TheClientsAnswerIsPassedOnOnALaterTurn) {
  Ask();
  EXPECT_EQ(RunAndTakeSettled(), Settled());
  ASSERT_EQ(peer_->frames.size(), 1u);
  Answer(peer_->frames[0].call_id());
  EXPECT_EQ(RunAndTakeSettled(), Settled{"answered with answer"});
  EXPECT_EQ(sequence_.timers(), 0u);
}

TEST_F(AskWithinTest, AnAskerHearsOnALaterTurnThatNobodyAnswers) {
  Ask(seconds(5), /*window=*/2);
  EXPECT_EQ(sequence_.timers(), 0u);
  EXPECT_EQ(RunAndTakeSettled(), Settled{"nobody"});
}

TEST_F(AskWithinTest, AClientThatCannotBeReachedCountsAsNobody) {
  peer_->reachable = false;
  Ask();
  EXPECT_EQ(sequence_.timers(), 0u);
  EXPECT_EQ(RunAndTakeSettled(), Settled{"nobody"});
}

TEST_F(AskWithinTest, AClientMaySayThatItWillNotAnswer) {
  Ask();
  FailQuestion(1);
  EXPECT_EQ(RunAndTakeSettled(), Settled{"failed"});
  EXPECT_EQ(sequence_.timers(), 0u);
}

TEST_F(AskWithinTest, AClientMayLeaveOrReleaseTheWindow) {
  Ask();
  Subscribe(false);
  EXPECT_EQ(RunAndTakeSettled(), Settled{"left"});
  Subscribe(true);
  Ask();
  Leave();
  EXPECT_EQ(RunAndTakeSettled(), Settled{"left"});
  EXPECT_EQ(sequence_.timers(), 0u);
}

TEST_F(AskWithinTest, PatienceEndsToTheMillisecond) {
  Ask(seconds(5));
  sequence_.Advance(seconds(5) - milliseconds(1));
  EXPECT_EQ(TakeSettled(), Settled());
  sequence_.Advance(milliseconds(1));
  EXPECT_EQ(TakeSettled(), Settled{"late"});
}

// More than a clock can add to the time that it is.
TEST_F(AskWithinTest, PatienceWithoutAnEndIsNotOverAtOnce) {
  Ask(milliseconds::max());
  sequence_.Advance(std::chrono::hours(24 * 365));
  EXPECT_EQ(TakeSettled(), Settled());
  Answer(1);
  EXPECT_EQ(RunAndTakeSettled(), Settled{"answered with answer"});
}

TEST_F(AskWithinTest, ALateAnswerIsDropped) {
  Ask(seconds(5));
  sequence_.Advance(seconds(5));
  EXPECT_EQ(TakeSettled(), Settled{"late"});
  Answer(1);
  Leave();
  EXPECT_EQ(RunAndTakeSettled(), Settled());
}

// The loop may come to a frame of the client before it comes to a timer that is
// due.
TEST_F(AskWithinTest, AClientThatFailsOrLeavesWhenItsTimeIsUpIsTooLate) {
  const auto fails =
      sequence_.RunAfter(seconds(5), [this] { FailQuestion(1); });
  const auto leaves = sequence_.RunAfter(seconds(6), [this] { Leave(); });
  Ask(seconds(5));
  Ask(seconds(6));
  sequence_.Advance(seconds(5));
  EXPECT_EQ(TakeSettled(), Settled{"late"});
  sequence_.Advance(seconds(1));
  EXPECT_EQ(TakeSettled(), Settled{"late"});
}

TEST_F(AskWithinTest, AClientThatFailsWhileThereIsTimeIsNotTooLate) {
  Ask(seconds(5));
  sequence_.Advance(seconds(5) - milliseconds(1));
  FailQuestion(1);
  EXPECT_EQ(RunAndTakeSettled(), Settled{"failed"});
}

TEST_F(AskWithinTest, TheFirstOutcomeCountsWhereSeveralCome) {
  Ask(seconds(5));
  Answer(1);
  FailQuestion(1);
  Leave();
  sequence_.Advance(seconds(5));
  EXPECT_EQ(TakeSettled(), Settled{"answered with answer"});
}

TEST_F(AskWithinTest, AnAnswerThatArrivesWithinTheSendingLeavesNoTimer) {
  peer_->on_frame = [this](const transport::StreamMessage& frame) {
    Answer(frame.call_id());
  };
  Ask();
  EXPECT_EQ(sequence_.timers(), 0u);
  EXPECT_EQ(RunAndTakeSettled(), Settled{"answered with answer"});
  sequence_.Advance(seconds(5));
  EXPECT_EQ(TakeSettled(), Settled());
}

TEST_F(AskWithinTest, AWindowReleasedWithinTheSendingLeavesNoTimer) {
  peer_->on_frame = [this](const transport::StreamMessage&) {
    Subscribe(false);
  };
  Ask();
  EXPECT_EQ(sequence_.timers(), 0u);
  EXPECT_EQ(RunAndTakeSettled(), Settled{"left"});
}

// The stream keeps the calls about a window until all of them are cancelled.
TEST_F(AskWithinTest, ASettledQuestionHasNoTimerEvenIfItsStreamKeepsTheCall) {
  Ask();
  CloseWindow question = About(1);
  question.mutable_question();
  int cancelled = 0;
  EXPECT_TRUE(Stream::Ask(question, {.response_callback = [](CloseWindow&) {},
                                     .error_callback =
                                         [&](torvane::StreamCallError) {
                                           EXPECT_EQ(sequence_.timers(), 0u);
                                           ++cancelled;
                                         }}));
  Subscribe(false);
  EXPECT_EQ(cancelled, 1);
  EXPECT_EQ(RunAndTakeSettled(), Settled{"left"});
}

TEST_F(AskWithinTest, WhoeverIsAnsweredMayAskAgainOrEndTheStream) {
  Ask();
  then_ = [this] {
    Ask();
    then_ = [this] { Leave(); };
  };
  Answer(1);
  EXPECT_EQ(RunAndTakeSettled(), Settled{"answered with answer"});
  Answer(2);
  EXPECT_EQ(RunAndTakeSettled(), Settled{"answered with answer"});
}

TEST_F(AskWithinTest, QuestionsSettleEachOnItsOwn) {
  Ask(seconds(5));
  Ask(seconds(7));
  Answer(2);
  EXPECT_EQ(RunAndTakeSettled(), Settled{"answered with answer"});
  EXPECT_EQ(sequence_.timers(), 1u);
  sequence_.Advance(seconds(5));
  EXPECT_EQ(TakeSettled(), Settled{"late"});
}

// How much time the client of `method` is told to have, when it is asked with
// `patience`.
template <typename T>
uint32_t TimeToAnswer(const char* method, milliseconds patience) {
  loop::ManualSequence sequence;
  const auto peer = std::make_shared<torvane::FakeClient>();
  BrowserWindowRpc service;
  torvane::CallbackStream<T> stream(
      &service, BrowserWindowRpc::descriptor()->FindMethodByName(method),
      torvane::MakeChannel(peer));
  T subscription;
  subscription.set_subscribe(true);
  transport::StreamMessage frame;
  subscription.SerializeToString(frame.mutable_payload());
  stream.OnNext(&frame);

  T question;
  question.mutable_question();
  AskWithin<T>(sequence, patience, question, [](QuestionOutcome, const T&) {});
  T asked;
  EXPECT_EQ(peer->frames.size(), 1u);
  EXPECT_TRUE(asked.ParseFromString(peer->frames.at(0).payload()));
  EXPECT_EQ(question.question().answer_within_ms(), 0u);
  stream.OnCompleted();
  sequence.Run();
  return asked.question().answer_within_ms();
}

TEST(TimeToAnswer, EachQuestionOfTheServiceSaysHowLongItIsWaitedFor) {
  EXPECT_EQ(TimeToAnswer<CloseWindow>("OnCloseWindow", seconds(5)), 5'000u);
  EXPECT_EQ(TimeToAnswer<CanExecuteCommand>("OnCanExecuteCommand", seconds(6)),
            6'000u);
  EXPECT_EQ(TimeToAnswer<ShowContextMenu>("OnShowContextMenu", seconds(7)),
            7'000u);
}

TEST(TimeToAnswer, IsSaidInQuestionsAlone) {
  CloseWindow message;
  message.set_subscribe(true);
  SetTimeToAnswer(seconds(5), message);
  EXPECT_FALSE(message.has_question());
}

TEST(TimeToAnswer, IsSaidWithinWhatItsFieldHolds) {
  const auto told = [](milliseconds patience) {
    return TimeToAnswer<CloseWindow>("OnCloseWindow", patience);
  };
  EXPECT_EQ(told(milliseconds(0)), 1u);
  EXPECT_EQ(told(milliseconds(1)), 1u);
  EXPECT_EQ(told(milliseconds(0xffffffff)), 0xffffffff);
  EXPECT_EQ(told(milliseconds(0x100000000)), 0xffffffff);
}

}  // namespace
}  // namespace rpc::serving
