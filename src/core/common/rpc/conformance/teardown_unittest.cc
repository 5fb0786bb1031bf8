// Whatever ends a stream may come before, after or while something else
// happens to it. All ordered pairs of such events, over two transports: each
// question is settled once, and nothing stays behind.

#include <gtest/gtest.h>

#include <chrono>
#include <cstddef>
#include <functional>
#include <iterator>
#include <memory>
#include <ostream>
#include <string>
#include <utility>
#include <vector>

#include "core/common/rpc/conformance/teardown_wire.h"
#include "core/common/rpc/stream/callback_stream.h"
#include "core/common/rpc/stream/event_stream.h"
#include "core/common/rpc/transport/question.h"
#include "rpc/browser/browser_window.rpc.h"
#include "rpc/event_subscription.pb.h"

namespace rpc::conformance {
namespace {

using transport::QuestionOutcome;

BrowserId Window() {
  BrowserId window;
  window.set_value(7);
  return window;
}

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
  explicit Scene(std::unique_ptr<TeardownWire> wire) : wire_(std::move(wire)) {}

  // The events.

  void Subscribe() {
    EventSubscription subscription;
    *subscription.mutable_subscribe_to() = Window();
    transport::StreamMessage frame;
    subscription.SerializeToString(frame.mutable_payload());
    wire_->SendOnEvents(frame);
    SetAnswering(true);
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
    for (const transport::StreamMessage& question : wire_->TakeQuestions()) {
      CloseWindow answer;
      *answer.mutable_browser_id() = Window();
      answer.mutable_response()->set_allowed(true);
      transport::StreamMessage frame;
      frame.set_call_id(question.call_id());
      answer.SerializeToString(frame.mutable_payload());
      wire_->SendOnQuestions(frame);
    }
  }

  void Cancel() { SetAnswering(false); }
  void PassDeadline() {
    outcomes_.emplace_back();
    transport::AskWithin<CloseWindow>(
        wire_->loop, std::chrono::milliseconds(0), Question(),
        [this, number = outcomes_.size() - 1](QuestionOutcome outcome,
                                              const CloseWindow&) {
          Settled(number, outcome);
        });
  }
  void Disconnect() { wire_->Disconnect(); }
  void StopHost() { wire_->StopHost(); }
  void DestroyStreams() { wire_->EndStreams(); }

  void Run() { wire_->Run(); }

  // Called once, soon after the next question is settled: a callback of a
  // stream may not ask again.
  std::function<void()> when_settled;

  // How often each question was settled, in the order of asking, and how.
  const std::vector<std::vector<QuestionOutcome>>& outcomes() const {
    return outcomes_;
  }

  bool StreamsAreGone() const { return wire_->StreamsAreGone(); }

 private:
  void SetAnswering(bool answering) {
    CloseWindow subscription;
    *subscription.mutable_browser_id() = Window();
    subscription.set_subscribe(answering);
    transport::StreamMessage frame;
    subscription.SerializeToString(frame.mutable_payload());
    wire_->SendOnQuestions(frame);
  }

  static CloseWindow Question() {
    CloseWindow question;
    *question.mutable_browser_id() = Window();
    question.mutable_question();
    return question;
  }

  void Settled(size_t number, QuestionOutcome outcome) {
    outcomes_[number].push_back(outcome);
    if (when_settled)
      asio::post(wire_->loop, std::exchange(when_settled, nullptr));
  }

  const std::unique_ptr<TeardownWire> wire_;
  std::vector<std::vector<QuestionOutcome>> outcomes_;
};

// What is to be seen of a scene whose events are far apart.
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
    {"stream destruction", &Scene::DestroyStreams, &Model::Leave},
};

struct Transport {
  const char* name;
  std::unique_ptr<TeardownWire> (*connect)();
};

void PrintTo(const Transport& transport, std::ostream* out) {
  *out << transport.name;
}

constexpr Transport kTransports[] = {
    {"InProcess", &InProcessTeardownWire},
    {"OverASocket", &SocketTeardownWire},
};

class TeardownTest : public testing::TestWithParam<Transport> {
 protected:
  using Pair = std::function<void(Scene&, const Event&, const Event&)>;

  // Has each pair happen to a client that has been asked once and has not
  // answered, and lets everything go.
  void ForEachPair(const Pair& pair, bool is_orderly) {
    for (const Event& first : kEvents) {
      for (const Event& second : kEvents) {
        SCOPED_TRACE(std::string(first.name) + ", " + second.name);
        Scene scene(GetParam().connect());
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
    EXPECT_TRUE(scene.StreamsAreGone());
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

INSTANTIATE_TEST_SUITE_P(Transports,
                         TeardownTest,
                         testing::ValuesIn(kTransports),
                         [](const auto& info) { return info.param.name; });

TEST_P(TeardownTest, SettlesEveryQuestionWhenOneEventFollowsAnother) {
  ForEachPair(
      [](Scene& scene, const Event& first, const Event& second) {
        (scene.*first.happen)();
        scene.Run();
        (scene.*second.happen)();
      },
      /*is_orderly=*/true);
}

// The second happens before anybody has heard of the first.
TEST_P(TeardownTest, SettlesEveryQuestionWhenTwoEventsCross) {
  ForEachPair(
      [](Scene& scene, const Event& first, const Event& second) {
        (scene.*first.happen)();
        (scene.*second.happen)();
      },
      /*is_orderly=*/false);
}

// The second happens where the end of the question is heard of.
TEST_P(TeardownTest, SettlesEveryQuestionWhenItsEndBringsAboutAnotherEvent) {
  ForEachPair(
      [](Scene& scene, const Event& first, const Event& second) {
        scene.when_settled = [&scene, &second] { (scene.*second.happen)(); };
        (scene.*first.happen)();
      },
      /*is_orderly=*/false);
}

}  // namespace
}  // namespace rpc::conformance
