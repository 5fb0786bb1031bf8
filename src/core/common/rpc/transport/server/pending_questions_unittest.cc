#include "core/common/rpc/serving/pending_questions.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <string>
#include <vector>

#include "core/common/rpc/transport/testing/lab.h"

namespace rpc::transport {
namespace {

const serving::ServedMethod& Method(const std::string& name) {
  static LabService service;
  static const serving::ServedMethods methods = [] {
    serving::ServedMethods made;
    made.Add(&service);
    return made;
  }();
  return *methods.Find(static_cast<uint32_t>(
      lab::Lab::descriptor()->FindMethodByName(name)->index()));
}

lab::Decision About(int64_t window) {
  lab::Decision decision;
  decision.mutable_browser_id()->set_value(window);
  return decision;
}

class PendingQuestionsTest : public ::testing::Test {
 protected:
  static StreamMessage Message(const lab::Decision& decision, int64_t call_id) {
    StreamMessage message;
    decision.SerializeToString(message.mutable_payload());
    message.set_call_id(call_id);
    return message;
  }

  void Ask(int64_t call_id, int64_t window) {
    lab::Decision question = About(window);
    question.mutable_question()->set_text("may it?");
    questions.OnAsked(Message(question, call_id));
  }
  void Answer(int64_t call_id, int64_t window) {
    lab::Decision answer = About(window);
    answer.mutable_response()->set_text("it may");
    Receive(Message(answer, call_id));
  }
  void Decline(int64_t call_id, int64_t window) {
    questions.OnError(Method("Decide").reader->ReadFromClient(
                          Message(About(window), call_id)),
                      call_id);
  }
  void Subscribe(int64_t window, bool subscribe, int64_t call_id = 0) {
    lab::Decision subscription = About(window);
    subscription.set_subscribe(subscribe);
    Receive(Message(subscription, call_id));
  }

  void Receive(const StreamMessage& message) {
    questions.OnData(Method("Decide").reader->ReadFromClient(message),
                     message.call_id());
  }

  serving::ConnectionReport Report() const {
    serving::ConnectionReport report;
    serving::Report(all, serving::PendingQuestion::Clock::now(), report);
    return report;
  }
  // The windows of the questions that are pending, the oldest first.
  std::vector<int64_t> Windows() const {
    const serving::ConnectionReport report = Report();
    EXPECT_EQ(report.questions, report.oldest_questions.size());
    std::vector<int64_t> windows;
    for (const serving::QuestionReport& question : report.oldest_questions) {
      windows.push_back(question.window);
    }
    return windows;
  }

  using WindowList = std::vector<int64_t>;
  serving::QuestionsOfClient all;
  serving::PendingQuestions questions{Method("Decide"), all};
};

TEST(ServedMethods, KnowWhichMethodsAskQuestions) {
  EXPECT_TRUE(Method("Decide").asks_questions());
  EXPECT_FALSE(Method("Watch").asks_questions());
  // Both its messages are of one type, which names no window.
  EXPECT_FALSE(Method("Echo").asks_questions());
}

TEST_F(PendingQuestionsTest, AQuestionIsPendingUntilItsAnswer) {
  Ask(1, 7);
  Ask(2, 8);
  Ask(3, 7);
  EXPECT_EQ(Windows(), (WindowList{7, 8, 7}));
  Answer(1, 7);
  EXPECT_EQ(Windows(), (WindowList{8, 7}));
  Answer(3, 7);
  Answer(2, 8);
  EXPECT_EQ(Windows(), WindowList());
}

TEST_F(PendingQuestionsTest, AnErrorSettlesItsQuestion) {
  Ask(1, 7);
  Ask(2, 7);
  Decline(1, 7);
  EXPECT_EQ(Report().questions, 1u);
}

TEST_F(PendingQuestionsTest, AnAnswerForAnotherWindowOrCallSettlesNothing) {
  Ask(1, 7);
  Answer(1, 8);
  Answer(2, 7);
  Decline(1, 8);
  Decline(2, 7);
  EXPECT_EQ(Windows(), WindowList{7});
}

TEST_F(PendingQuestionsTest, ReleasingAWindowEndsItsQuestions) {
  Ask(1, 7);
  Ask(2, 8);
  Ask(3, 7);
  Subscribe(7, false);
  EXPECT_EQ(Windows(), WindowList{8});
}

TEST_F(PendingQuestionsTest, SubscribingAgainEndsNoQuestions) {
  Ask(1, 7);
  Subscribe(7, true);
  Subscribe(7, true, /*call_id=*/1);
  EXPECT_EQ(Windows(), WindowList{7});
}

TEST_F(PendingQuestionsTest, ACallIdThatIsUsedAgainReplacesItsQuestion) {
  Ask(1, 7);
  Ask(2, 8);
  Ask(1, 9);
  EXPECT_EQ(Windows(), (WindowList{8, 9}));
}

TEST_F(PendingQuestionsTest, AStreamThatIsGoneLeavesTheQuestionsOfTheOthers) {
  Ask(1, 7);
  {
    serving::PendingQuestions other{Method("Decide"), all};
    lab::Decision question = About(8);
    question.mutable_question();
    other.OnAsked(Message(question, 1));
    EXPECT_EQ(Windows(), (WindowList{7, 8}));
  }
  EXPECT_EQ(Windows(), WindowList{7});
}

TEST_F(PendingQuestionsTest, AFrameIsReadAsFarAsItParses) {
  Ask(1, 7);
  lab::Decision answer = About(7);
  answer.mutable_response();
  StreamMessage message = Message(answer, 1);
  // A tag and a length, without the field that they announce.
  message.mutable_payload()->append("\x9a\x06\x7f");
  Receive(message);
  EXPECT_EQ(Windows(), WindowList());

  Ask(2, 0);
  message.set_payload("\xff");
  Receive(message);
  EXPECT_EQ(Windows(), WindowList{0});
}

// For the stream, such an answer names another window, or none.
TEST_F(PendingQuestionsTest,
       AnAnswerSettlesNothingWhereTheStreamFindsNoQuestion) {
  Ask(1, 7);
  lab::Decision answer = About(7);
  answer.mutable_response();
  BrowserId& window = *answer.mutable_browser_id();
  window.GetReflection()->MutableUnknownFields(&window)->AddVarint(99, 1);
  Receive(Message(answer, 1));
  EXPECT_EQ(Windows(), WindowList{7});

  // The response breaks off before the window.
  StreamMessage message = Message(About(7), 1);
  message.set_payload(std::string("\x22\x01\xff") + message.payload());
  Receive(message);
  EXPECT_EQ(Windows(), WindowList{7});
}

TEST_F(PendingQuestionsTest, TheLastOfSeveralValuesCounts) {
  Ask(1, 7);
  lab::Decision answer = About(7);
  answer.mutable_response();
  StreamMessage message = Message(About(8), 1);
  message.mutable_payload()->append(answer.SerializeAsString());
  Receive(message);
  EXPECT_EQ(Windows(), WindowList());

  Ask(2, 7);
  lab::Decision subscription = About(7);
  subscription.set_subscribe(false);
  message = Message(subscription, 2);
  subscription.set_subscribe(true);
  message.mutable_payload()->append(subscription.SerializeAsString());
  Receive(message);
  EXPECT_EQ(Windows(), WindowList{7});
}

TEST_F(PendingQuestionsTest,
       QuestionsAreReportedWithMethodAndAgeTheOldestFirst) {
  const auto start = std::chrono::steady_clock::now();
  for (int64_t id = 1; id <= 12; ++id) {
    Ask(id, 100 + id);
  }
  const serving::ConnectionReport report = Report();
  const auto longest = std::chrono::steady_clock::now() - start;
  EXPECT_EQ(report.questions, 12u);
  ASSERT_EQ(report.oldest_questions.size(), serving::kReportedQuestions);
  auto older = std::chrono::nanoseconds(longest);
  for (size_t i = 0; i < serving::kReportedQuestions; ++i) {
    const serving::QuestionReport& question = report.oldest_questions[i];
    EXPECT_EQ(question.method, "lab.Lab.Decide");
    EXPECT_EQ(question.window, static_cast<int64_t>(101 + i));
    EXPECT_LE(question.age, older);
    older = question.age;
  }
  EXPECT_GE(older.count(), 0);
}

}  // namespace
}  // namespace rpc::transport
