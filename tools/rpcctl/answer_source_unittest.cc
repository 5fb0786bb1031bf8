#include "tools/rpcctl/answer_source.h"

#include <fcntl.h>
#include <unistd.h>

#include <string_view>
#include <vector>

#include "gmock/gmock.h"
#include "gtest/gtest.h"

namespace rpcctl {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

class AnswerSourceTest : public ::testing::Test {
 protected:
  // Puts a question; its answer, or its status, ends up in answers_.
  void Ask(const std::string& json = "{}") {
    Question question;
    question.json = json;
    source_->Answer(question, [this](
                                  const absl::StatusOr<std::string>& answer) {
      answers_.push_back(answer.ok() ? *answer : answer.status().ToString());
    });
  }

  void WaitForAnswers(size_t count) {
    RunUntil([&] { return answers_.size() >= count; });
  }

  template <typename Condition>
  void RunUntil(const Condition& condition) {
    const rpc::loop::Loop::Work lines_are_posted_later(loop_);
    EXPECT_TRUE(loop_.RunUntil(condition));
  }

  rpc::loop::Loop loop_;
  std::unique_ptr<AnswerSource> source_;
  std::vector<std::string> answers_;
};

TEST_F(AnswerSourceTest, FixedAnswerIsTheSameForEveryQuestion) {
  source_ = MakeFixedAnswers("yes");
  Ask("one");
  Ask("two");
  EXPECT_THAT(answers_, ElementsAre("yes", "yes"));
}

TEST_F(AnswerSourceTest, CommandIsRunForEachQuestion) {
  source_ = MakeCommandAnswers(loop_, "read question; echo to $question");
  Ask("one");
  WaitForAnswers(1);
  Ask("two");
  WaitForAnswers(2);
  EXPECT_THAT(answers_, ElementsAre("to one\n", "to two\n"));
}

TEST_F(AnswerSourceTest, CommandThatFailsIsNoAnswer) {
  source_ = MakeCommandAnswers(loop_, "echo yes; exit 1");
  Ask();
  WaitForAnswers(1);
  EXPECT_THAT(answers_,
              ElementsAre("ABORTED: the command ended with exit code 1"));
}

class LineAnswersTest : public AnswerSourceTest {
 protected:
  LineAnswersTest() {
    EXPECT_EQ(0, pipe2(pipe_, O_CLOEXEC));
    source_ = MakeLineAnswers(loop_, pipe_[0], [this] { ++exhausted_; });
  }
  ~LineAnswersTest() override {
    source_.reset();
    close(pipe_[0]);
    CloseInput();
  }

  void Write(std::string_view text) {
    EXPECT_EQ(static_cast<ssize_t>(text.size()),
              write(pipe_[1], text.data(), text.size()));
  }
  void CloseInput() {
    if (pipe_[1] >= 0)
      close(pipe_[1]);
    pipe_[1] = -1;
  }

  void WaitForExhaustion() {
    RunUntil([&] { return exhausted_ > 0; });
  }

  int pipe_[2];
  int exhausted_ = 0;
};

TEST_F(LineAnswersTest, LinesAnswerQuestionsInOrder) {
  Ask();
  Ask();
  Write("one\ntwo\n");
  WaitForAnswers(2);
  EXPECT_THAT(answers_, ElementsAre("one", "two"));
  EXPECT_EQ(0, exhausted_);
}

TEST_F(LineAnswersTest, LinesMayComeBeforeTheirQuestions) {
  Write("one\ntwo\nthree\n");
  Ask();
  WaitForAnswers(1);
  Ask();
  WaitForAnswers(2);
  EXPECT_THAT(answers_, ElementsAre("one", "two"));
}

TEST_F(LineAnswersTest, LineOfTheGreatestLengthIsAnAnswerAndALongerOneIsNone) {
  const std::string longest(65'536, 'x');
  Ask();
  Ask();
  Ask();
  Write(longest + "\n");
  WaitForAnswers(1);
  Write(longest + "x\n");
  WaitForAnswers(2);
  Write("three\n");
  WaitForAnswers(3);
  EXPECT_THAT(answers_,
              ElementsAre(longest,
                          "INVALID_ARGUMENT: a line of more than 65536 bytes "
                          "is not read",
                          "three"));
}

TEST_F(LineAnswersTest, InputThatEndsIsExhaustedWhenItsLastLineIsUsedUp) {
  Write("one\ntwo\n");
  CloseInput();
  Ask();
  WaitForAnswers(1);
  EXPECT_EQ(0, exhausted_);
  Ask();
  WaitForExhaustion();
  EXPECT_THAT(answers_, ElementsAre("one", "two"));
}

TEST_F(LineAnswersTest, EmptyInputIsExhaustedAtOnce) {
  CloseInput();
  WaitForExhaustion();
  EXPECT_THAT(answers_, IsEmpty());
  EXPECT_EQ(1, exhausted_);
}

TEST_F(LineAnswersTest, InputThatEndsWithOpenQuestionsIsExhausted) {
  Ask();
  CloseInput();
  WaitForExhaustion();
  EXPECT_THAT(answers_, IsEmpty());
}

}  // namespace
}  // namespace rpcctl
