// Whatever ends a stream may come before, after or while something else
// happens to it. All ordered pairs of such events: each question is settled
// once, and nothing stays behind.
//
// Over the transports whose host shares the test's process: the test is the
// browser that asks, and looks into the registries for what has stayed.

#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <iterator>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "core/common/rpc/conformance/conformance_test_support.h"
#include "core/common/rpc/conformance/transport_under_test.h"
#include "core/common/rpc/serving/ask_within.h"
#include "core/common/rpc/stream/callback_stream.h"
#include "core/common/rpc/stream/event_stream.h"
#include "core/common/rpc/testing/window_id.h"
#include "rpc/browser/browser_window.rpc.h"

namespace rpc::conformance {
namespace {

using serving::QuestionOutcome;

constexpr int64_t kWindow = 7;

std::vector<std::string> Names(const std::vector<QuestionOutcome>& outcomes) {
  static constexpr const char* kNames[] = {
      "answered", "nobody answers", "client failed", "client left", "too late"};
  std::vector<std::string> names;
  for (const QuestionOutcome outcome : outcomes)
    names.push_back(kNames[static_cast<size_t>(outcome)]);
  return names;
}

// A client that answers for a window, and the browser that asks it.
class Scene {
 public:
  explicit Scene(std::unique_ptr<Host> host) : host_(std::move(host)) {}

  // The events.

  void Subscribe() {
    events_.Send(SubscribeToEvents(kWindow));
    questions_.Send(SubscribeToQuestions(kWindow));
  }

  // Asks without a deadline, so that it shows when the stream itself settles a
  // question twice.
  void Ask() {
    const size_t number = outcomes_.size();
    outcomes_.emplace_back();
    const bool asked = torvane::CallbackStream<CloseWindow>::Ask(
        Question(), {.response_callback =
                         [this, number](CloseWindow&) {
                           Settled(number, QuestionOutcome::kAnswered);
                         },
                     .error_callback =
                         [this, number](torvane::StreamCallError error) {
                           Settled(number,
                                   error == torvane::StreamCallError::kCancelled
                                       ? QuestionOutcome::kClientLeft
                                       : QuestionOutcome::kClientFailed);
                         }});
    if (!asked)
      Settled(number, QuestionOutcome::kNobodyAnswers);
  }

  void Answer() {
    for (; answered_ < questions_.received.size(); ++answered_) {
      CloseWindow answer;
      *answer.mutable_browser_id() = torvane::WindowId(kWindow);
      answer.mutable_response()->set_allowed(true);
      questions_.Send(
          StreamMessageOf(answer, questions_.received[answered_].call_id()));
    }
  }

  void Cancel() {
    questions_.Send(SubscribeToQuestions(kWindow, /*subscribe=*/false));
  }
  void PassDeadline() {
    outcomes_.emplace_back();
    serving::AskWithin<CloseWindow>(
        host_->loop(), std::chrono::milliseconds(0), Question(),
        [this, number = outcomes_.size() - 1](QuestionOutcome outcome,
                                              const CloseWindow&) {
          Settled(number, outcome);
        });
  }
  void Disconnect() { link_->Break(); }
  void StopHost() { host_->Stop(); }
  void EndStreams() {
    questions_.End();
    events_.End();
  }

  void Run() { host_->RunReady(); }

  // Called once, soon after the next question is settled: a callback of a
  // stream may not ask again.
  std::function<void()> when_settled;

  // How often each question was settled, in the order of asking, and how.
  const std::vector<std::vector<QuestionOutcome>>& outcomes() const {
    return outcomes_;
  }

  bool HasStreams() const { return host_->HasStreams(); }

 private:
  static CloseWindow Question() {
    CloseWindow question;
    *question.mutable_browser_id() = torvane::WindowId(kWindow);
    question.mutable_question();
    return question;
  }

  void Settled(size_t number, QuestionOutcome outcome) {
    outcomes_[number].push_back(outcome);
    if (when_settled)
      host_->loop().Post(std::exchange(when_settled, nullptr));
  }

  const std::unique_ptr<Host> host_;
  const std::unique_ptr<Link> link_ = host_->Connect();
  LinkStream& questions_ = link_->Open(kOnCloseWindow);
  LinkStream& events_ = link_->Open(kWhenClosed);
  size_t answered_ = 0;
  std::vector<std::vector<QuestionOutcome>> outcomes_;
};

// Predicts the outcomes when each event is fully handled before the next one.
class Model {
 public:
  void Subscribe() { answering_ = connected_; }
  void Ask() {
    if (!answering_)
      return Settled(QuestionOutcome::kNobodyAnswers);
    waiting_.push_back(outcomes_.size());
    outcomes_.emplace_back();
  }
  void Answer() {
    if (connected_)
      SettleWaiting(QuestionOutcome::kAnswered);
  }
  void Cancel() {
    answering_ = false;
    SettleWaiting(QuestionOutcome::kClientLeft);
  }
  void PassDeadline() {
    Settled(answering_ ? QuestionOutcome::kTooLate
                       : QuestionOutcome::kNobodyAnswers);
  }
  void Leave() {
    connected_ = false;
    Cancel();
  }

  const std::vector<QuestionOutcome>& outcomes() const { return outcomes_; }

 private:
  void Settled(QuestionOutcome outcome) { outcomes_.push_back(outcome); }
  void SettleWaiting(QuestionOutcome outcome) {
    for (const size_t question : std::exchange(waiting_, {}))
      outcomes_[question] = outcome;
  }

  bool connected_ = true;
  bool answering_ = false;
  std::vector<size_t> waiting_;
  std::vector<QuestionOutcome> outcomes_;
};

struct Event {
  const char* name;
  void (Scene::*happen)();
  void (Model::*expect)();
};

constexpr Event kEvents[] = {
    {"subscribe", &Scene::Subscribe, &Model::Subscribe},
    {"ask", &Scene::Ask, &Model::Ask},
    {"answer", &Scene::Answer, &Model::Answer},
    {"cancel", &Scene::Cancel, &Model::Cancel},
    {"deadline", &Scene::PassDeadline, &Model::PassDeadline},
    {"disconnect", &Scene::Disconnect, &Model::Leave},
    {"host stop", &Scene::StopHost, &Model::Leave},
    {"stream destruction", &Scene::EndStreams, &Model::Leave},
};

class Teardown : public testing::TestWithParam<TransportUnderTest> {
 protected:
  using Pair = std::function<void(Scene&, const Event&, const Event&)>;

  // Has each pair happen to a client that has been asked once and has not
  // answered, and lets everything go.
  void ForEachPair(const Pair& pair, bool is_orderly) {
    for (const Event& first : kEvents) {
      for (const Event& second : kEvents) {
        SCOPED_TRACE(std::string(first.name) + ", " + second.name);
        Scene scene(GetParam().make_host());
        scene.Subscribe();
        scene.Run();
        scene.Ask();
        scene.Run();
        pair(scene, first, second);
        scene.Run();
        scene.Disconnect();
        scene.Run();
        ExpectNothingLeft(scene);
        scene.StopHost();
        scene.Run();
        ++pairs_;
        if (is_orderly)
          ExpectAsInModel(scene, first, second);
      }
    }
    EXPECT_EQ(pairs_, std::size(kEvents) * std::size(kEvents));
  }

 private:
  static void ExpectNothingLeft(const Scene& scene) {
    for (const auto& settled : scene.outcomes())
      EXPECT_EQ(settled.size(), 1U);
    EXPECT_FALSE(scene.HasStreams());
    EXPECT_TRUE(torvane::CallbackStream<CloseWindow>::stream_map_.empty());
    EXPECT_TRUE(torvane::EventStream<BrowserWindowClosed>::stream_map_.empty());
  }

  static void ExpectAsInModel(const Scene& scene,
                              const Event& first,
                              const Event& second) {
    Model model;
    model.Subscribe();
    model.Ask();
    (model.*first.expect)();
    (model.*second.expect)();
    model.Leave();
    std::vector<QuestionOutcome> outcomes;
    for (const auto& settled : scene.outcomes())
      outcomes.insert(outcomes.end(), settled.begin(), settled.end());
    EXPECT_EQ(Names(outcomes), Names(model.outcomes()));
  }

  size_t pairs_ = 0;
};

TEST_P(Teardown, SettlesEveryQuestionWhenOneEventFollowsAnother) {
  ForEachPair(
      [](Scene& scene, const Event& first, const Event& second) {
        (scene.*first.happen)();
        scene.Run();
        (scene.*second.happen)();
      },
      /*is_orderly=*/true);
}

// Both on one turn, before any frame of the first has arrived.
TEST_P(Teardown, SettlesEveryQuestionWhenTwoEventsCross) {
  ForEachPair(
      [](Scene& scene, const Event& first, const Event& second) {
        (scene.*first.happen)();
        (scene.*second.happen)();
      },
      /*is_orderly=*/false);
}

// The second happens in the task posted when the question settles.
TEST_P(Teardown, SettlesEveryQuestionWhenItsEndBringsAboutAnotherEvent) {
  ForEachPair(
      [](Scene& scene, const Event& first, const Event& second) {
        scene.when_settled = [&scene, &second] { (scene.*second.happen)(); };
        (scene.*first.happen)();
      },
      /*is_orderly=*/false);
}

std::vector<TransportUnderTest> TransportsOpenToTest() {
  std::vector<TransportUnderTest> transports;
  std::ranges::copy_if(kTransports, std::back_inserter(transports),
                       &TransportUnderTest::is_open_to_test);
  return transports;
}

INSTANTIATE_TEST_SUITE_P(Over,
                         Teardown,
                         testing::ValuesIn(TransportsOpenToTest()),
                         testing::PrintToStringParamName());

}  // namespace
}  // namespace rpc::conformance
