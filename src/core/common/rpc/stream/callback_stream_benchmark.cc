// Callback streams in one process: what asking and answering, and completing
// with questions open, cost without a transport.

#include "core/common/rpc/stream/callback_stream.h"

#include <benchmark/benchmark.h>

#include <memory>
#include <string>
#include <utility>

#include "rpc/browser/browser_window.pb.h"
#include "rpc/browser/browser_window.rpc.h"

namespace torvane {
namespace {

using rpc::transport::StreamMessage;
using Stream = CallbackStream<rpc::CloseWindow>;

constexpr int64_t kFirstId = 1000;
constexpr int kCallbackMethod = 40;

BrowserId Window(int64_t number) {
  BrowserId id;
  id.set_value(kFirstId + number);
  return id;
}

// Keeps the call id of the last question, so that it can be answered.
class AskedEndpoint final : public StreamChannel::Endpoint {
 public:
  explicit AskedEndpoint(int64_t* call_id) : call_id_(call_id) {}

  bool Send(const StreamMessage& frame) override {
    *call_id_ = frame.call_id();
    return true;
  }
  void Complete() override {}

 private:
  int64_t* const call_id_;
};

class Client {
 public:
  Client()
      : stream_(&service_,
                service_.GetDescriptor()->method(kCallbackMethod),
                StreamChannel(std::make_unique<AskedEndpoint>(&call_id_))) {}
  ~Client() { stream_.OnCompleted(); }

  Stream& stream() { return stream_; }

  void Answer(const BrowserId& window) {
    rpc::CloseWindow answer;
    *answer.mutable_browser_id() = window;
    answer.mutable_response()->set_allowed(true);
    StreamMessage frame;
    frame.set_call_id(call_id_);
    answer.SerializeToString(frame.mutable_payload());
    stream_.OnNext(&frame);
  }

 private:
  rpc::BrowserWindowRpc service_;
  int64_t call_id_ = 0;
  Stream stream_;
};

// Asks about one of the windows that the client answers for; the argument is
// how many these are.
void AskAndAnswer(benchmark::State& state) {
  Client client;
  for (int i = 0; i < state.range(0); ++i)
    client.stream().Subscribe(Window(i));
  const BrowserId window = Window(state.range(0) / 2);
  rpc::CloseWindow question;
  *question.mutable_browser_id() = window;
  question.mutable_question()->set_reason(rpc::WINDOW_CLOSE_REASON_USER);
  bool answered = true;
  for (auto _ : state) {
    if (!std::exchange(answered, false))
      state.SkipWithError("a question was not answered");
    Stream::Ask(question,
                {.response_callback =
                     [&answered](rpc::CloseWindow&) { answered = true; },
                 .error_callback = [](StreamCallError) {}});
    client.Answer(window);
  }
}

// The argument is the number of windows that another client has subscribed to.
void OpenSubscribeComplete(benchmark::State& state) {
  Client other;
  for (int i = 0; i < state.range(0); ++i)
    other.stream().Subscribe(Window(i));
  const BrowserId window = Window(state.range(0));
  for (auto _ : state) {
    Client client;
    client.stream().Subscribe(window);
  }
}

BENCHMARK(AskAndAnswer)->Arg(1)->Arg(1'000);
BENCHMARK(OpenSubscribeComplete)->Arg(0)->Arg(100)->Arg(10'000);

}  // namespace
}  // namespace torvane
