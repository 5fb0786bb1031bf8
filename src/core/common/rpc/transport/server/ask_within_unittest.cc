#include "core/common/rpc/serving/ask_within.h"

#include <gtest/gtest.h>

#include <chrono>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "core/common/rpc/testing/window_id.h"
#include "core/common/rpc/transport/callback_answerer.h"
#include "core/common/rpc/transport/testing/lab.h"

namespace rpc::transport {
namespace {

using Answerer = CallbackAnswerer<lab::Decision>;
using std::chrono::hours;
using std::chrono::milliseconds;

// A client that answers for window 1 when it is told to.
class TimedQuestions : public ::testing::Test {
 protected:
  using Outcomes = std::vector<serving::QuestionOutcome>;

  void Ask(milliseconds patience = hours(1), int64_t window = 1) {
    serving::AskWithin<lab::Decision>(
        lab.loop, patience, Question(window),
        [this](serving::QuestionOutcome outcome, const lab::Decision& answer) {
          outcomes.push_back(outcome);
          answers.push_back(answer.response().text());
          std::exchange(then, [] {})();
        });
  }
  static lab::Decision Question(int64_t window) {
    lab::Decision question;
    question.mutable_browser_id()->set_value(window);
    question.mutable_question();
    return question;
  }
  void AwaitQuestions(size_t count) {
    lab.RunUntil([&] { return replies.size() == count; });
  }
  static lab::Decision Answer(const std::string& text) {
    lab::Decision answer;
    answer.mutable_response()->set_text(text);
    return answer;
  }

  void SetUp() override {
    answerer->Subscribe(torvane::WindowId(1));
    lab.RunReady();
  }

  // Runs once, when the next question settles.
  std::function<void()> then = [] {};
  Outcomes outcomes;
  std::vector<std::string> answers;
  Lab lab;
  std::unique_ptr<Client> client = lab.NewClient();
  std::vector<Answerer::Reply> replies;
  std::optional<Answerer> answerer{
      std::in_place, *client,
      lab::Lab::descriptor()->FindMethodByName("Decide"),
      [this](const lab::Decision&, Answerer::Reply reply) {
        replies.push_back(std::move(reply));
      }};
};

TEST_F(TimedQuestions, AnAnswerInTimeIsTheOutcome) {
  Ask();
  AwaitQuestions(1);
  EXPECT_TRUE(outcomes.empty());
  EXPECT_TRUE(replies[0].Answer(Answer("yes")).ok());
  lab.RunReady();
  EXPECT_EQ(outcomes, Outcomes{serving::QuestionOutcome::kAnswered});
  EXPECT_EQ(answers, std::vector<std::string>{"yes"});
}

TEST_F(TimedQuestions, AQuestionThatNobodyAnswersSettlesOnALaterTurn) {
  Ask(hours(1), /*window=*/2);
  EXPECT_TRUE(outcomes.empty());
  lab.RunReady();
  EXPECT_EQ(outcomes, Outcomes{serving::QuestionOutcome::kNobodyAnswers});
  EXPECT_EQ(answers, std::vector<std::string>{""});
}

TEST_F(TimedQuestions, AClientsErrorIsTheOutcome) {
  Ask();
  AwaitQuestions(1);
  replies.clear();
  lab.RunReady();
  EXPECT_EQ(outcomes, Outcomes{serving::QuestionOutcome::kClientFailed});
}

TEST_F(TimedQuestions, AQuestionEndsWhenItsClientLeaves) {
  Ask();
  AwaitQuestions(1);
  client.reset();
  lab.RunReady();
  EXPECT_EQ(outcomes, Outcomes{serving::QuestionOutcome::kClientLeft});
}

TEST_F(TimedQuestions, AQuestionEndsWhenItsTimeIsUpAndTheLateAnswerIsDropped) {
  Ask(milliseconds(1));
  AwaitQuestions(1);
  lab.RunUntil([&] { return !outcomes.empty(); });
  EXPECT_EQ(outcomes, Outcomes{serving::QuestionOutcome::kTooLate});
  EXPECT_TRUE(replies[0].Answer(Answer("late")).ok());
  lab.RunReady();
  EXPECT_EQ(outcomes.size(), 1u);
}

TEST_F(TimedQuestions, AQuestionSettlesOnceWhateverComesTogether) {
  Ask(milliseconds(1));
  AwaitQuestions(1);
  // Answer, end of the client and deadline all wait for the same turn.
  EXPECT_TRUE(replies[0].Answer(Answer("yes")).ok());
  client.reset();
  lab.RunUntil([&] { return !outcomes.empty(); });
  lab.RunReady();
  EXPECT_EQ(outcomes.size(), 1u);
}

TEST_F(TimedQuestions, AQuestionMayFollowAnotherAboutTheSameWindow) {
  Ask();
  then = [&] { Ask(); };
  AwaitQuestions(1);
  EXPECT_TRUE(replies[0].Answer(Answer("first")).ok());
  AwaitQuestions(2);
  EXPECT_TRUE(replies[1].Answer(Answer("second")).ok());
  lab.RunReady();
  EXPECT_EQ(answers, (std::vector<std::string>{"first", "second"}));
}

TEST_F(TimedQuestions, AnAnsweredQuestionLeavesNoTimerBehind) {
  Ask();
  AwaitQuestions(1);
  EXPECT_TRUE(replies[0].Answer(Answer("yes")).ok());
  lab.RunReady();
  answerer.reset();
  client.reset();
  lab.server.reset();
  // Only a timer could keep the loop running now.
  lab.loop.Run();
  EXPECT_EQ(outcomes.size(), 1u);
}

}  // namespace
}  // namespace rpc::transport
