// A gRPC client that does whatever a client may do, at random: calls, cancels,
// deadlines, streams, answers of all kinds, half-closes, nonsense, and
// connections that it drops.
//
//   stress_client HOST:PORT SEED SECONDS
//
// The host serves the scripted service of the conformance tests, which asks and
// publishes when it is told to, and whose windows never close.
//
// Prints "busy" when it is in the midst of it, and at the end what it has done.
// Exit status: 0, or 1 if it has seen what must not be.

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <map>
#include <memory>
#include <optional>
#include <random>
#include <string>
#include <vector>

#include "absl/strings/numbers.h"
#include "core/common/rpc/grpc/testing/test_client.h"
#include "core/common/rpc/loop/loop.h"
#include "rpc/browser/browser_window.pb.h"
#include "rpc/event_subscription.pb.h"

namespace rpc_gateway {
namespace {

using rpc::CloseWindow;
using rpc::grpc::TestCall;
using rpc::grpc::TestCallOptions;
using rpc::grpc::TestClient;
using rpc::grpc::TestStream;

// Few enough for clients to meet.
constexpr int kWindows = 50;
// Calls and streams at a time.
constexpr size_t kMostCalls = 50;
constexpr size_t kMostStreams = 20;
// Calls that have succeeded.
constexpr int kBusy = 20;

const std::string kService = "/rpc.BrowserWindow/";

class StressClient {
 public:
  StressClient(std::string address, unsigned seed)
      : address_(std::move(address)), random_(seed) {
    Reconnect();
  }
  ~StressClient() { client_.reset(); }

  // Returns whether all was as it may be.
  bool Run(std::chrono::seconds time) {
    const auto end = loop_.Now() + time;
    while (loop_.Now() < end) {
      DoSomething();
      loop_.RunReady();
      loop_.RunUntil([this] { return Count() < kMostCalls; });
    }
    std::printf(
        "%d calls, %d succeeded; %d streams, %d messages, %d connections\n",
        calls_begun_, succeeded_, streams_begun_, messages_, connections_);
    for (const auto& [outcome, count] : outcomes_) {
      std::printf("%8d %s\n", count, outcome.c_str());
    }
    return succeeded_ >= kBusy && messages_ > 0 && !surprised_;
  }

 private:
  int Random(int below) {
    return static_cast<int>(random_() % static_cast<unsigned>(below));
  }
  BrowserId RandomWindow() {
    BrowserId window;
    window.set_value(1 + Random(kWindows));
    return window;
  }
  // None, or a short time.
  TestCallOptions RandomTime() {
    TestCallOptions options;
    if (Random(3) == 0) {
      options.timeout = std::chrono::milliseconds(1 + Random(30));
    }
    return options;
  }

  void Reconnect() {
    ++connections_;
    calls_.clear();
    streams_.clear();
    client_.emplace(loop_, address_);
  }

  // Forgets what is over; returns how many calls are not.
  size_t Count() {
    std::erase_if(calls_, [](const auto& call) { return call->over; });
    std::erase_if(streams_, [](const auto& stream) { return stream->over; });
    return calls_.size();
  }

  void DoSomething() {
    switch (Random(14)) {
      case 0:
      case 1:
        return Call("GetTitle", RandomWindow().SerializeAsString());
      case 2:
        return Call("Hide", RandomWindow().SerializeAsString());  // Publishes.
      case 3:
        return SetTitle(RandomTitle());
      case 4:
        return SetTitle("close");  // Asks.
      case 5:
        return Call("Sing", "");
      case 6:
        return Call("GetTitle", "\377");
      case 7:
        return Call("OnCloseWindow", RandomWindow().SerializeAsString());
      case 8:
        return Listen();
      case 9:
        return AnswerFor();
      case 10:
        return CancelACall();
      case 11:
      case 12:
        return TroubleAStream();
      default:
        if (Random(50) == 0) {
          Reconnect();
        }
    }
  }

  void Call(const std::string& method, const std::string& request) {
    const auto call = client_->Call(kService + method, request, RandomTime());
    ++calls_begun_;
    call->on_over = [this, weak_call = std::weak_ptr<TestCall>(call)] {
      OnCallOver(*weak_call.lock());
    };
    calls_.push_back(call);
    if (Random(10) == 0) {
      call->Cancel();
    }
  }
  void OnCallOver(const TestCall& call) {
    ++outcomes_[call.status.ToString()];
    if (call.status.ok() && ++succeeded_ == kBusy) {
      std::puts("busy");
      std::fflush(stdout);
    }
    // What would be a fault of the gateway's.
    if (absl::IsInternal(call.status) || absl::IsUnknown(call.status)) {
      std::printf("surprised: %s\n", call.status.ToString().c_str());
      surprised_ = true;
    }
  }
  void CancelACall() {
    if (!calls_.empty()) {
      calls_[static_cast<size_t>(Random(static_cast<int>(calls_.size())))]
          ->Cancel();
    }
  }
  // Sometimes more than the gateway takes.
  std::string RandomTitle() {
    const int length = Random(20) == 0 ? 70'000 : Random(2'000);
    return std::string(static_cast<size_t>(length), 'x');
  }
  void SetTitle(const std::string& text) {
    rpc::WindowTitle title;
    *title.mutable_browser_id() = RandomWindow();
    title.set_title(text);
    Call("SetTitle", title.SerializeAsString());
  }

  TestStream* OpenStream(const std::string& method) {
    if (streams_.size() >= kMostStreams) {
      return nullptr;
    }
    ++streams_begun_;
    streams_.push_back(client_->Open(kService + method, RandomTime()));
    return streams_.back().get();
  }
  void Listen() {
    TestStream* const stream = OpenStream("WhenBrowserWindowClosed");
    if (stream == nullptr) {
      return;
    }
    stream->on_message = [this](const std::string&) { ++messages_; };
    for (int i = Random(50); i > 0; --i) {
      rpc::EventSubscription subscription;
      *subscription.mutable_subscribe_to() = RandomWindow();
      stream->Send(subscription.SerializeAsString());
    }
    if (Random(2) == 0) {
      stream->HalfClose();
    }
  }
  void AnswerFor() {
    TestStream* const stream = OpenStream("OnCloseWindow");
    if (stream == nullptr) {
      return;
    }
    stream->on_message = [this, stream](const std::string& question) {
      ++messages_;
      AnswerSomehow(*stream, question);
    };
    for (int i = Random(50); i > 0; --i) {
      SubscribeToQuestions(*stream, true);
    }
  }
  void SubscribeToQuestions(TestStream& stream, bool subscribe) {
    CloseWindow subscription;
    *subscription.mutable_browser_id() = RandomWindow();
    subscription.set_subscribe(subscribe);
    stream.Send(subscription.SerializeAsString());
  }
  void AnswerSomehow(TestStream& stream, const std::string& question) {
    CloseWindow answer;
    // Its call_id is a field that this contract does not know, and stays.
    answer.ParseFromString(question);
    answer.mutable_response()->set_allowed(Random(10) == 0);
    switch (Random(8)) {
      case 0:
        return;
      case 1:
        answer.DiscardUnknownFields();
        return stream.Send(answer.SerializeAsString());
      case 2:
        return stream.Send(question + std::string{14 << 3, 1});
      case 3:
        return stream.HalfClose();
      default:
        return stream.Send(answer.SerializeAsString());
    }
  }
  void TroubleAStream() {
    if (streams_.empty()) {
      return;
    }
    TestStream& stream = *streams_[static_cast<size_t>(
        Random(static_cast<int>(streams_.size())))];
    switch (Random(6)) {
      case 0:
        return stream.Cancel();
      case 1:
        return stream.HalfClose();
      case 2:
        return stream.Send("");
      case 3:
        return stream.Send("\377");
      default:
        return SubscribeToQuestions(stream, Random(2) == 0);
    }
  }

  const std::string address_;
  std::mt19937 random_;
  rpc::loop::Loop loop_;
  std::optional<TestClient> client_;
  // Of the client that there is now.
  std::vector<std::shared_ptr<TestCall>> calls_;
  std::vector<std::shared_ptr<TestStream>> streams_;

  // How many calls have ended in each way.
  std::map<std::string, int> outcomes_;
  int calls_begun_ = 0;
  int succeeded_ = 0;
  int streams_begun_ = 0;
  int messages_ = 0;
  int connections_ = 0;
  bool surprised_ = false;
};

int Main(int argc, char** argv) {
  unsigned seed = 0;
  int seconds = 0;
  if (argc != 4 || !absl::SimpleAtoi(argv[2], &seed) ||
      !absl::SimpleAtoi(argv[3], &seconds)) {
    std::fputs("usage: stress_client HOST:PORT SEED SECONDS\n", stderr);
    return 2;
  }
  const bool all_was_well =
      StressClient(argv[1], seed).Run(std::chrono::seconds(seconds));
  return all_was_well ? EXIT_SUCCESS : EXIT_FAILURE;
}

}  // namespace
}  // namespace rpc_gateway

int main(int argc, char** argv) {
  return rpc_gateway::Main(argc, argv);
}
