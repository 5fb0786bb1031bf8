#include "tools/rpcctl/typed_answers.h"

#include <chrono>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "core/common/rpc/testing/manual_sequence.h"
#include "gmock/gmock.h"
#include "gtest/gtest.h"

namespace rpcctl {
namespace {

using std::chrono::milliseconds;
using std::chrono::seconds;
using ::testing::ElementsAre;
using ::testing::IsEmpty;
using Lines = std::vector<std::string>;

// A person who reads what is said, and for whom "yes" and "no" are answers.
class TypedAnswersTest : public ::testing::Test {
 protected:
  void Ask(const std::string& title,
           std::optional<milliseconds> time = seconds(5)) {
    Question question;
    question.title = title;
    if (time) {
      question.deadline = sequence_.Now() + *time;
    }
    question.check = [](const std::string& line) {
      return line == "yes" || line == "no"
                 ? absl::OkStatus()
                 : absl::InvalidArgumentError("it is neither yes nor no");
    };
    source_->Answer(
        question, [this, title](const absl::StatusOr<std::string>& answer) {
          answers_.push_back(
              title + ": " +
              (answer.ok() ? *answer : std::string(answer.status().message())));
        });
  }
  // Asks, and runs until the question is shown.
  void AskAndShow(const std::string& title) {
    Ask(title);
    sequence_.Run();
    said_.clear();
  }
  void Type(const std::string& line) {
    source_->OnLine(line);
    sequence_.Run();
  }

  rpc::loop::ManualSequence sequence_;
  Lines said_;
  Lines answers_;
  int exhausted_ = 0;
  std::unique_ptr<TypedAnswers> source_ = std::make_unique<TypedAnswers>(
      sequence_,
      [this](const std::string& line) { said_.push_back(line); },
      [this] { said_.emplace_back("(input dropped)"); },
      [this] { ++exhausted_; });
};

TEST_F(TypedAnswersTest, PromptNamesTheQuestionAndTheTimeLeft) {
  Ask("close 1");
  EXPECT_THAT(said_, IsEmpty());
  sequence_.Run();
  EXPECT_THAT(said_,
              ElementsAre("(input dropped)",
                          "What is the answer to close 1? You have 5.0 s."));
}

TEST_F(TypedAnswersTest, HostThatDoesNotSayHowLongItWaitsGivesNoTime) {
  Ask("close 1", std::nullopt);
  sequence_.Run();
  EXPECT_THAT(said_,
              ElementsAre("(input dropped)", "What is the answer to close 1?"));
  EXPECT_EQ(0u, sequence_.timers());
  Type("yes");
  EXPECT_THAT(answers_, ElementsAre("close 1: yes"));
}

TEST_F(TypedAnswersTest, InvalidLineIsAskedForAgainWithTheTimeThatIsLeft) {
  AskAndShow("close 1");
  sequence_.Advance(milliseconds(1'200));
  Type("maybe");
  EXPECT_THAT(answers_, IsEmpty());
  EXPECT_THAT(said_,
              ElementsAre("That is no answer: it is neither yes nor no",
                          "What is the answer to close 1? You have 3.8 s."));
  Type("no");
  EXPECT_THAT(answers_, ElementsAre("close 1: no"));
  EXPECT_EQ(0u, sequence_.timers());
}

// Its end is missing, so that it is no answer even if its beginning is one.
TEST_F(TypedAnswersTest, LineThatIsTooLongIsAskedForAgain) {
  constexpr size_t kLongest = 65'536;
  Question question;
  question.title = "close 1";
  question.check = [](const std::string&) { return absl::OkStatus(); };
  source_->Answer(question, [this](const absl::StatusOr<std::string>& answer) {
    answers_.push_back(std::to_string(answer.value().size()) + " bytes");
  });
  sequence_.Run();
  said_.clear();
  Type(std::string(kLongest + 1, 'x'));
  EXPECT_THAT(answers_, IsEmpty());
  EXPECT_THAT(said_,
              ElementsAre("That is no answer: a line of more than 65536 bytes "
                          "is not read",
                          "What is the answer to close 1?"));
  Type(std::string(kLongest, 'x'));
  EXPECT_THAT(answers_, ElementsAre("65536 bytes"));
}

TEST_F(TypedAnswersTest, LineTypedBeforeAnyQuestionAnswersNone) {
  Type("yes");
  EXPECT_THAT(said_,
              ElementsAre("No question is open: that line answers nothing."));
  AskAndShow("close 1");
  EXPECT_THAT(answers_, IsEmpty());
}

TEST_F(TypedAnswersTest, LineThatWasReadBeforeTheQuestionIsShownAnswersNone) {
  sequence_.Post([this] { source_->OnLine("yes"); });
  Ask("close 1");
  sequence_.Run();
  EXPECT_THAT(said_,
              ElementsAre("No question is open: that line answers nothing.",
                          "(input dropped)",
                          "What is the answer to close 1? You have 5.0 s."));
  EXPECT_THAT(answers_, IsEmpty());
}

TEST_F(TypedAnswersTest, QuestionsAreShownOneAfterTheOther) {
  AskAndShow("close 1");
  Ask("close 2");
  sequence_.Run();
  EXPECT_THAT(said_, IsEmpty());
  // Both at once: the second was typed before its question was shown.
  source_->OnLine("yes");
  source_->OnLine("yes");
  sequence_.Run();
  EXPECT_THAT(answers_, ElementsAre("close 1: yes"));
  EXPECT_THAT(said_,
              ElementsAre("No question is open: that line answers nothing.",
                          "(input dropped)",
                          "What is the answer to close 2? You have 5.0 s."));
  Type("no");
  EXPECT_THAT(answers_, ElementsAre("close 1: yes", "close 2: no"));
}

TEST_F(TypedAnswersTest, QuestionEndsWhenItsTimeIsUpAndTheNextIsShown) {
  AskAndShow("close 1");
  Ask("close 2", seconds(7));
  sequence_.Advance(seconds(5) - milliseconds(1));
  EXPECT_THAT(answers_, IsEmpty());
  sequence_.Advance(milliseconds(1));
  EXPECT_THAT(answers_, ElementsAre("close 1: there was no answer in time"));
  EXPECT_THAT(said_,
              ElementsAre("(input dropped)",
                          "What is the answer to close 2? You have 2.0 s."));
}

TEST_F(TypedAnswersTest, QuestionThatWaitsBehindAnotherEndsInTimeToo) {
  AskAndShow("close 1");
  Ask("close 2", seconds(1));
  sequence_.Advance(seconds(1));
  EXPECT_THAT(answers_, ElementsAre("close 2: there was no answer in time"));
  Type("yes");
  EXPECT_THAT(answers_, ElementsAre("close 2: there was no answer in time",
                                    "close 1: yes"));
}

TEST_F(TypedAnswersTest, QuestionWhoseTimeIsUpBeforeItIsShownIsNotShown) {
  Ask("close 1", milliseconds(0));
  sequence_.Run();
  EXPECT_THAT(answers_, IsEmpty());
  sequence_.Advance(milliseconds(0));
  EXPECT_THAT(answers_, ElementsAre("close 1: there was no answer in time"));
  EXPECT_THAT(said_, IsEmpty());
}

TEST_F(TypedAnswersTest, InputThatEndsIsExhaustedAlsoWithAnOpenQuestion) {
  AskAndShow("close 1");
  source_->OnLine(std::nullopt);
  EXPECT_EQ(0, exhausted_);
  sequence_.Run();
  EXPECT_EQ(1, exhausted_);
}

TEST_F(TypedAnswersTest, NothingIsShownAfterItsDestruction) {
  Ask("close 1");
  source_.reset();
  sequence_.Run();
  EXPECT_THAT(said_, IsEmpty());
  EXPECT_EQ(0u, sequence_.timers());
}

}  // namespace
}  // namespace rpcctl
