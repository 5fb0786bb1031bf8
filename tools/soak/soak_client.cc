#include "tools/soak/soak_client.h"

#include <google/protobuf/empty.pb.h>
#include <google/protobuf/service.h>
#include <google/protobuf/wrappers.pb.h>

#include <chrono>
#include <deque>
#include <memory>
#include <optional>
#include <random>
#include <thread>
#include <utility>

#include "absl/log/absl_check.h"
#include "core/common/rpc/loop/loop.h"
#include "core/common/rpc/transport/callback_answerer.h"
#include "core/common/rpc/transport/client.h"
#include "core/common/rpc/transport/client_controller.h"
#include "core/common/rpc/transport/event_subscriber.h"
#include "rpc/browser/browser_window.pb.h"
#include "tools/soak/tally.h"

namespace soak {
namespace {

using google::protobuf::MethodDescriptor;
using rpc::transport::Client;

// Probabilities in percent.
constexpr int kHeldQuestions = 20;
constexpr int kDeclinedQuestions = 5;
constexpr int kCallsPerQuestion = 25;

// The most questions that a client keeps for later.
constexpr size_t kMostHeld = 8;

constexpr std::chrono::milliseconds kBreak{1};

const MethodDescriptor* Method(const char* name) {
  return rpc::BrowserWindow::descriptor()->FindMethodByName(name);
}

// An asynchronous call of one method; deletes itself when it is over.
template <typename Response>
class Call final : public google::protobuf::Closure {
 public:
  explicit Call(Tally& tally) : tally_(tally) {}

  void Run() override {
    const std::unique_ptr<Call> self(this);
    ++(controller.Failed() ? tally_.failed_calls : tally_.calls);
  }

  rpc::transport::ClientController controller;
  Response response;

 private:
  Tally& tally_;
};

class SoakClient {
 public:
  SoakClient(const ClientOptions& options, Client& client, Tally& tally)
      : options_(options),
        tally_(tally),
        random_(options.seed),
        windows_(&client),
        events_(client,
                Method("WhenBrowserWindowClosed"),
                [this](const rpc::BrowserWindowClosed&) { ++tally_.events; }),
        questions_(client,
                   Method("OnShowContextMenu"),
                   [this](const rpc::ShowContextMenu& question, Reply reply) {
                     OnQuestion(question, std::move(reply));
                   }) {
    for (int64_t index = 0; index < kWindowsPerClient; ++index) {
      const BrowserId window = Window(index);
      events_.Subscribe(window);
      questions_.Subscribe(window);
    }
    const BrowserId first = Window(0);
    auto* const call = new Call<google::protobuf::Empty>(tally_);
    windows_.Focus(&call->controller, &first, &call->response, call);
  }

 private:
  using Answerer = rpc::transport::CallbackAnswerer<rpc::ShowContextMenu>;
  using Reply = Answerer::Reply;

  struct HeldQuestion {
    rpc::ShowContextMenu question;
    Reply reply;
  };

  BrowserId Window(int64_t index) const {
    BrowserId window;
    window.set_value(WindowOf(options_.number, index));
    return window;
  }

  bool Chance(int percent) {
    return std::uniform_int_distribution(0, 99)(random_) < percent;
  }

  void OnQuestion(const rpc::ShowContextMenu& question, Reply reply) {
    if (options_.manner == Manner::kSlow)
      std::this_thread::sleep_for(kBreak);
    if (Chance(kCallsPerQuestion))
      GetTitle(question.browser_id());
    if (options_.manner == Manner::kSilent || Chance(kHeldQuestions)) {
      held_.push_back({question, std::move(reply)});
      if (options_.manner != Manner::kSilent && held_.size() > kMostHeld)
        AnswerOneOfTheHeld();
      return;
    }
    if (Chance(kDeclinedQuestions)) {
      ++tally_.declined;
      reply.Decline();
      return;
    }
    Answer(question, reply);
  }

  // Copies fields of the question into the answer, by which the host checks
  // that the answer is not one to another question.
  void Answer(const rpc::ShowContextMenu& question, const Reply& reply) {
    rpc::ShowContextMenu answer;
    auto* const ids = answer.mutable_response()->mutable_omitted_command_ids();
    ids->Add(question.question().x());
    ids->Add(question.question().y());
    // Counted first: this process may be killed after it has sent the answer.
    ++tally_.answers;
    reply.Answer(std::move(answer)).IgnoreError();
  }

  void AnswerOneOfTheHeld() {
    std::uniform_int_distribution<size_t> any(0, held_.size() - 1);
    const auto held = held_.begin() + static_cast<ptrdiff_t>(any(random_));
    Answer(held->question, held->reply);
    held_.erase(held);
  }

  void GetTitle(const BrowserId& window) {
    auto* const call = new Call<google::protobuf::StringValue>(tally_);
    windows_.GetTitle(&call->controller, &window, &call->response, call);
  }

  const ClientOptions& options_;
  Tally& tally_;
  std::mt19937_64 random_;
  rpc::BrowserWindow_Stub windows_;
  std::deque<HeldQuestion> held_;
  rpc::transport::EventSubscriber<rpc::BrowserWindowClosed> events_;
  Answerer questions_;
};

}  // namespace

absl::Status RunClient(const ClientOptions& options) {
  absl::StatusOr<SharedTally> tally = SharedTally::Open(options.tally);
  if (!tally.ok())
    return tally.status();
  rpc::loop::Loop loop;
  const auto client = Client::Connect(loop, options.socket);
  if (!client.ok())
    return client.status();
  const SoakClient soak_client(options, **client, tally->get());
  ABSL_CHECK(loop.RunUntil([&] { return !(*client)->status().ok(); }));
  return (*client)->status();
}

}  // namespace soak
