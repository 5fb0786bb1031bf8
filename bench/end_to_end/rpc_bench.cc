// The service between two processes, over the reference transport with default
// options and limits.

#include <unistd.h>

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "bench/end_to_end/window_service.h"
#include "bench/support/measurement.h"
#include "bench/support/process_pair.h"
#include "core/common/rpc/loop/loop.h"
#include "core/common/rpc/serving/ask_within.h"
#include "core/common/rpc/stream/callback_stream.h"
#include "core/common/rpc/trace/trace_file.h"
#include "core/common/rpc/transport/callback_answerer.h"
#include "core/common/rpc/transport/client.h"
#include "core/common/rpc/transport/event_subscriber.h"
#include "core/common/rpc/transport/server.h"
#include "rpc/browser/browser_window.rpc.h"

namespace {

using bench::Fail;
using bench::Measurement;
using bench::Mode;
using bench::ProcessPair;
using bench::WindowService;
using google::protobuf::BoolValue;
using google::protobuf::Closure;
using google::protobuf::MethodDescriptor;
using rpc::trace::TraceFile;
using rpc::transport::Client;
using rpc::transport::ClientController;

const MethodDescriptor* Method(const char* name) {
  return rpc::BrowserWindowRpc::descriptor()->FindMethodByName(name);
}

BrowserId Window(int64_t value = bench::kWindow) {
  BrowserId id;
  id.set_value(value);
  return id;
}

rpc::CloseWindow Question(int64_t window) {
  rpc::CloseWindow question;
  *question.mutable_browser_id() = Window(window);
  question.mutable_question()->set_reason(rpc::WINDOW_CLOSE_REASON_USER);
  return question;
}

// Asks one question after the other, each in the callback of the last answer.
// Alternates between two windows, since that callback must not ask about its
// own.
class Questions {
 public:
  Questions(ProcessPair& pair, rpc::loop::Loop& loop)
      : loop_(loop), measurement_(pair) {}

  void AskNext() {
    if (!measurement_.Next()) {
      measurement_.Print();
      loop_.Stop();
      return;
    }
    window_ ^= 1;
    const bool asked = torvane::CallbackStream<rpc::CloseWindow>::Ask(
        Question(window_),
        {.response_callback = [this](rpc::CloseWindow&) { AskNext(); },
         .error_callback =
             [](torvane::StreamCallError) { Fail("a question failed"); }});
    if (!asked)
      Fail("nobody answers");
  }

  // The same with a deadline, as a browser would ask.
  void AskNextWithin() {
    if (!measurement_.Next()) {
      measurement_.Print();
      loop_.Stop();
      return;
    }
    rpc::serving::AskWithin<rpc::CloseWindow>(
        loop_, std::chrono::seconds(5), Question(window_),
        [this](rpc::serving::QuestionOutcome outcome, const rpc::CloseWindow&) {
          if (outcome != rpc::serving::QuestionOutcome::kAnswered)
            Fail("a question was not answered");
          AskNextWithin();
        });
  }

 private:
  rpc::loop::Loop& loop_;
  Measurement measurement_;
  int64_t window_ = bench::kWindow;
};

// Without a name, so that nothing is left of it.
std::unique_ptr<TraceFile> OpenTrace(rpc::loop::Loop& loop,
                                     const ProcessPair& pair) {
  constexpr size_t kLongEnough = size_t{1} << 32;
  const std::string path = pair.socket_path() + ".trace";
  auto trace = TraceFile::Open(loop, path, kLongEnough);
  if (!trace.ok())
    Fail(trace.status().ToString());
  unlink(path.c_str());
  return *std::move(trace);
}

void Serve(ProcessPair& pair) {
  rpc::loop::Loop loop;
  WindowService service;
  std::unique_ptr<TraceFile> trace;
  if (pair.mode() == Mode::kTracedUnary)
    trace = OpenTrace(loop, pair);
  rpc::transport::ServerOptions options;
  options.trace = trace.get();
  rpc::transport::Server server(loop, options);
  server.AddService(&service);
  Questions questions(pair, loop);
  service.set_on_ready([&] {
    loop.Post([&] {
      pair.mode() == Mode::kQuestion ? questions.AskNext()
                                     : questions.AskNextWithin();
    });
  });
  if (!server.Listen(pair.socket_path()).ok())
    Fail("Listen");
  pair.Signal();
  loop.Run();
}

std::unique_ptr<Client> Connect(rpc::loop::Loop& loop,
                                const ProcessPair& pair) {
  auto client = Client::Connect(loop, pair.socket_path());
  if (!client.ok())
    Fail(client.status().ToString());
  return *std::move(client);
}

void FailIf(const ClientController& controller) {
  if (controller.Failed())
    Fail(controller.ErrorText());
}

void MeasureUnary(ProcessPair& pair, Client& client) {
  rpc::BrowserWindow_Stub windows(&client);
  const BrowserId window = Window();
  BoolValue visible;
  ClientController controller;
  Measurement measurement(pair);
  while (measurement.Next()) {
    windows.IsVisible(&controller, &window, &visible, nullptr);
    FailIf(controller);
    if (!visible.value())
      Fail("IsVisible");
  }
  measurement.Print();
}

// Calls again each time that it is over.
class Call final : public Closure {
 public:
  using OnDone = std::function<bool()>;

  Call(Client& client, OnDone on_done)
      : windows_(&client), on_done_(std::move(on_done)) {}

  void Start() { windows_.IsVisible(&controller_, &window_, &visible_, this); }

  void Run() override {
    FailIf(controller_);
    if (!visible_.value())
      Fail("IsVisible");
    if (on_done_())
      Start();
  }

 private:
  rpc::BrowserWindow_Stub windows_;
  const OnDone on_done_;
  const BrowserId window_ = Window();
  ClientController controller_;
  BoolValue visible_;
};

void MeasurePipelined(ProcessPair& pair,
                      rpc::loop::Loop& loop,
                      Client& client) {
  Measurement measurement(pair, bench::kCallsInFlight);
  int completed = 0;
  int ended = 0;
  bool running = true;
  std::vector<std::unique_ptr<Call>> calls;
  for (int i = 0; i < bench::kCallsInFlight; ++i) {
    calls.push_back(std::make_unique<Call>(client, [&] {
      if (running && ++completed % bench::kCallsInFlight == 0)
        running = measurement.Next();
      ended += running ? 0 : 1;
      return running;
    }));
    calls.back()->Start();
  }
  if (!loop.RunUntil([&] { return ended >= bench::kCallsInFlight; }))
    Fail("a call has not ended");
  measurement.Print();
}

void AnswerQuestions(rpc::loop::Loop& loop, Client& client) {
  using Answerer = rpc::transport::CallbackAnswerer<rpc::CloseWindow>;
  Answerer answerer(client, Method("OnCloseWindow"),
                    [](const rpc::CloseWindow&, const Answerer::Reply& reply) {
                      rpc::CloseWindow answer;
                      answer.mutable_response()->set_allowed(true);
                      if (!reply.Answer(std::move(answer)).ok())
                        Fail("Answer");
                    });
  answerer.Subscribe(Window());
  answerer.Subscribe(Window(bench::kWindow ^ 1));
  rpc::BrowserWindow_Stub windows(&client);
  const BrowserId window = Window();
  google::protobuf::Empty nothing;
  ClientController controller;
  windows.Focus(&controller, &window, &nothing, nullptr);
  FailIf(controller);
  loop.Run();
}

void MeasureFanout(ProcessPair& pair, rpc::loop::Loop& loop) {
  using Subscriber = rpc::transport::EventSubscriber<rpc::BrowserWindowClosed>;
  int received = 0;
  std::vector<std::unique_ptr<Client>> clients;
  std::vector<std::unique_ptr<Subscriber>> subscribers;
  for (int i = 0; i < bench::kConnections; ++i) {
    clients.push_back(Connect(loop, pair));
    for (int j = 0; j < bench::kStreamsPerConnection; ++j) {
      subscribers.push_back(std::make_unique<Subscriber>(
          *clients.back(), Method("WhenBrowserWindowClosed"),
          [&received](const rpc::BrowserWindowClosed&) { ++received; }));
      subscribers.back()->Subscribe(Window());
    }
    // The reply shows that everything sent before has been handled.
    BoolValue visible;
    ClientController controller;
    const BrowserId window = Window();
    rpc::BrowserWindow_Stub(clients.back().get())
        .IsVisible(&controller, &window, &visible, nullptr);
    FailIf(controller);
  }

  rpc::BrowserWindow_Stub windows(clients.front().get());
  const BrowserId window = Window();
  BoolValue closed;
  ClientController controller;
  Measurement measurement(pair);
  while (measurement.Next()) {
    received = 0;
    windows.Close(&controller, &window, &closed, nullptr);
    FailIf(controller);
    if (!loop.RunUntil([&] { return received >= bench::kStreams; }))
      Fail("an event has not arrived");
  }
  measurement.Print();
}

void CallServer(ProcessPair& pair) {
  pair.Await();
  rpc::loop::Loop loop;
  if (pair.mode() == Mode::kFanout)
    return MeasureFanout(pair, loop);
  const std::unique_ptr<Client> client = Connect(loop, pair);
  switch (pair.mode()) {
    case Mode::kUnary:
    case Mode::kTracedUnary:
      return MeasureUnary(pair, *client);
    case Mode::kPipelined:
      return MeasurePipelined(pair, loop, *client);
    default:
      return AnswerQuestions(loop, *client);
  }
}

}  // namespace

int main(int argc, char** argv) {
  return bench::RunPair(
      argc, argv,
      {.serve = Serve,
       .call = CallServer,
       .modes = {Mode::kUnary, Mode::kTracedUnary, Mode::kPipelined,
                 Mode::kQuestion, Mode::kTimedQuestion, Mode::kFanout}});
}
