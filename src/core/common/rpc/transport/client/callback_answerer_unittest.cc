#include "core/common/rpc/transport/callback_answerer.h"

#include <gtest/gtest.h>

#include <functional>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "core/common/rpc/stream/callback_stream.h"
#include "core/common/rpc/testing/window_id.h"
#include "core/common/rpc/transport/testing/lab.h"

namespace rpc::transport {
namespace {

using torvane::WindowId;

using Answerer = CallbackAnswerer<lab::Decision>;

const google::protobuf::MethodDescriptor* Decide() {
  return lab::Lab::descriptor()->FindMethodByName("Decide");
}

lab::Decision Response(const std::string& text) {
  lab::Decision answer;
  answer.mutable_response()->set_text(text);
  return answer;
}

// Asks about a window and keeps how each question ended: "=" and the answer,
// "cancelled", "failed" or "nobody".
class Asker {
 public:
  void Ask(int64_t window, const std::string& text) {
    lab::Decision question;
    *question.mutable_browser_id() = WindowId(window);
    question.mutable_question()->set_text(text);
    const bool asked = torvane::CallbackStream<lab::Decision>::Ask(
        question, {.response_callback =
                       [this, text](lab::Decision& answer) {
                         outcomes[text] += "=" + answer.response().text();
                       },
                   .error_callback =
                       [this, text](torvane::StreamCallError error) {
                         outcomes[text] +=
                             error == torvane::StreamCallError::kCancelled
                                 ? "cancelled"
                                 : "failed";
                       }});
    if (!asked) {
      outcomes[text] += "nobody";
    }
  }

  std::map<std::string, std::string> outcomes;
};

// An answerer that keeps the questions and their reply handles.
struct Decider {
  explicit Decider(Client& client)
      : answerer(
            std::in_place,
            client,
            Decide(),
            [this](const lab::Decision& question, Answerer::Reply reply) {
              questions.push_back(question.question().text());
              replies.push_back(std::move(reply));
              meanwhile();
            },
            [this](const absl::Status& status) { ends.push_back(status); }) {}

  std::function<void()> meanwhile = [] {};
  std::vector<std::string> questions;
  std::vector<Answerer::Reply> replies;
  std::vector<absl::Status> ends;
  std::optional<Answerer> answerer;
};

using Outcomes = std::map<std::string, std::string>;

class Questions : public ::testing::Test {
 protected:
  // Has the decider answer for window 1, and then asks about it.
  void AskDecider(const std::vector<std::string>& texts) {
    decider.answerer->Subscribe(WindowId(1));
    lab.RunReady();
    for (const std::string& text : texts) {
      asker.Ask(1, text);
    }
    lab.RunReady();
  }

  Asker asker;
  Lab lab;
  std::unique_ptr<Client> client = lab.NewClient();
  Decider decider{*client};
};

TEST_F(Questions, AQuestionMayBeAnsweredAtOnce) {
  decider.meanwhile = [&] {
    EXPECT_TRUE(decider.replies.back().Answer(Response("yes")).ok());
  };
  AskDecider({"may I?"});
  EXPECT_EQ(decider.questions, std::vector<std::string>{"may I?"});
  EXPECT_EQ(asker.outcomes, (Outcomes{{"may I?", "=yes"}}));
}

TEST_F(Questions, QuestionsMayBeAnsweredLaterAndInAnyOrder) {
  decider.answerer->Subscribe(WindowId(1));
  decider.answerer->Subscribe(WindowId(2));
  lab.RunReady();
  asker.Ask(1, "a");
  asker.Ask(2, "b");
  asker.Ask(1, "c");
  lab.RunReady();
  EXPECT_TRUE(asker.outcomes.empty());
  ASSERT_EQ(decider.questions, (std::vector<std::string>{"a", "b", "c"}));
  for (const int i : {2, 0, 1}) {
    EXPECT_TRUE(decider.replies[i].Answer(Response(std::to_string(i))).ok());
  }
  lab.RunReady();
  EXPECT_EQ(asker.outcomes, (Outcomes{{"a", "=0"}, {"b", "=1"}, {"c", "=2"}}));
}

TEST_F(Questions, ADeclinedQuestionFailsOnce) {
  AskDecider({"a", "b"});
  decider.replies[0].Decline();
  decider.replies[0].Decline();
  EXPECT_EQ(decider.replies[0].Answer(Response("too late")),
            absl::FailedPreconditionError("the question is settled already"));
  lab.RunReady();
  EXPECT_EQ(asker.outcomes, (Outcomes{{"a", "failed"}}));
  EXPECT_TRUE(decider.replies[1].Answer(Response("yes")).ok());
}

TEST_F(Questions, AQuestionFailsWhenItsLastHandleIsDropped) {
  AskDecider({"a"});
  std::optional<Answerer::Reply> copy = decider.replies[0];
  decider.replies.clear();
  lab.RunReady();
  EXPECT_TRUE(asker.outcomes.empty());
  copy.reset();
  lab.RunReady();
  EXPECT_EQ(asker.outcomes, (Outcomes{{"a", "failed"}}));
}

TEST_F(Questions, AllCopiesOfAHandleAnswerOnce) {
  AskDecider({"a"});
  const Answerer::Reply copy = decider.replies[0];
  EXPECT_TRUE(copy.Answer(Response("yes")).ok());
  EXPECT_TRUE(
      absl::IsFailedPrecondition(decider.replies[0].Answer(Response("no"))));
  decider.replies.clear();
  lab.RunReady();
  EXPECT_EQ(asker.outcomes, (Outcomes{{"a", "=yes"}}));
}

TEST_F(Questions, AnAnswerWithoutAResponseIsRefused) {
  AskDecider({"a"});
  EXPECT_EQ(decider.replies[0].Answer(lab::Decision()),
            absl::InvalidArgumentError("the answer has no response"));
  EXPECT_TRUE(decider.replies[0].Answer(Response("yes")).ok());
  lab.RunReady();
  EXPECT_EQ(asker.outcomes, (Outcomes{{"a", "=yes"}}));
}

TEST_F(Questions, AnAnswerIsAboutTheWindowOfItsQuestion) {
  AskDecider({"a"});
  lab::Decision answer = Response("yes");
  *answer.mutable_browser_id() = WindowId(99);
  EXPECT_TRUE(decider.replies[0].Answer(answer).ok());
  lab.RunReady();
  EXPECT_EQ(asker.outcomes, (Outcomes{{"a", "=yes"}}));
}

TEST_F(Questions, UnsubscribingCancelsTheQuestionsAboutTheWindow) {
  AskDecider({"a"});
  EXPECT_TRUE(decider.answerer->Unsubscribe(WindowId(1)));
  lab.RunReady();
  EXPECT_EQ(asker.outcomes, (Outcomes{{"a", "cancelled"}}));
  asker.Ask(1, "b");
  EXPECT_EQ(asker.outcomes["b"], "nobody");
  EXPECT_TRUE(decider.replies[0].Answer(Response("late")).ok());
  lab.RunReady();
  EXPECT_EQ(asker.outcomes["a"], "cancelled");
}

TEST_F(Questions, AnEndedStreamCancelsItsQuestions) {
  AskDecider({"a"});
  decider.answerer->End();
  EXPECT_EQ(decider.replies[0].Answer(Response("late")),
            absl::UnavailableError("the answer cannot be sent"));
  lab.RunReady();
  EXPECT_EQ(asker.outcomes, (Outcomes{{"a", "cancelled"}}));
  EXPECT_EQ(decider.ends, std::vector<absl::Status>{absl::OkStatus()});
}

TEST_F(Questions, ADestroyedAnswererCancelsItsQuestions) {
  AskDecider({"a"});
  decider.answerer.reset();
  lab.RunReady();
  EXPECT_EQ(asker.outcomes, (Outcomes{{"a", "cancelled"}}));
  EXPECT_TRUE(absl::IsUnavailable(decider.replies[0].Answer(Response("x"))));
}

TEST_F(Questions, ADestroyedClientCancelsItsQuestions) {
  AskDecider({"a", "b"});
  client.reset();
  lab.RunReady();
  EXPECT_EQ(asker.outcomes, (Outcomes{{"a", "cancelled"}, {"b", "cancelled"}}));
}

TEST_F(Questions, ADestroyedServerCancelsItsQuestions) {
  decider.answerer->Subscribe(WindowId(1));
  lab.RunReady();
  asker.Ask(1, "a");
  lab.server.reset();
  EXPECT_EQ(asker.outcomes, (Outcomes{{"a", "cancelled"}}));
}

TEST_F(Questions, TheAnswererMayBeDestroyedByAQuestion) {
  decider.meanwhile = [&] { decider.answerer.reset(); };
  AskDecider({"a", "b"});
  EXPECT_EQ(decider.questions, std::vector<std::string>{"a"});
  EXPECT_EQ(asker.outcomes, (Outcomes{{"a", "cancelled"}, {"b", "cancelled"}}));
}

TEST_F(Questions, TheNewestAnswererOfTheWindowIsAsked) {
  const auto other_client = lab.NewClient();
  Decider newest(*other_client);
  decider.answerer->Subscribe(WindowId(1));
  lab.RunReady();
  newest.answerer->Subscribe(WindowId(1));
  lab.RunReady();
  asker.Ask(1, "a");
  lab.RunReady();
  EXPECT_TRUE(decider.questions.empty());
  EXPECT_EQ(newest.questions, std::vector<std::string>{"a"});
}

TEST_F(Questions, AQuestionThatCannotBeReadFails) {
  decider.answerer->Subscribe(WindowId(1));
  lab.RunReady();
  // A question of a kind that this program does not know.
  lab::Decision question;
  *question.mutable_browser_id() = WindowId(1);
  bool failed = false;
  EXPECT_TRUE(torvane::CallbackStream<lab::Decision>::Ask(
      question, {.response_callback = [](lab::Decision&) { FAIL(); },
                 .error_callback =
                     [&](torvane::StreamCallError error) {
                       EXPECT_EQ(error, torvane::StreamCallError::kRemoteError);
                       failed = true;
                     }}));
  lab.RunReady();
  EXPECT_TRUE(failed);
  EXPECT_TRUE(decider.questions.empty());
}

TEST_F(Questions, AThousandQuestionsAtOnceAreAllAnswered) {
  decider.answerer->Subscribe(WindowId(1));
  lab.RunReady();
  decider.meanwhile = [&] {
    EXPECT_TRUE(decider.replies.back().Answer(Response("yes")).ok());
  };
  for (int i = 0; i < 1000; ++i) {
    asker.Ask(1, std::to_string(i));
  }
  lab.RunReady();
  EXPECT_EQ(asker.outcomes.size(), 1000u);
  for (const auto& [text, outcome] : asker.outcomes) {
    EXPECT_EQ(outcome, "=yes");
  }
}

}  // namespace
}  // namespace rpc::transport
