// Measures by how much a host's heap grows for each connection, stream,
// subscription and pending question of its clients, without the kernel's
// buffers.
//
// The client makes one kind of thing after the other and calls Focus in
// between. The host measures its heap at each of these calls.

#include <malloc.h>

#include <cstdio>
#include <functional>
#include <memory>
#include <utility>
#include <vector>

#include "bench/support/process_pair.h"
#include "core/common/rpc/loop/loop.h"
#include "core/common/rpc/stream/callback_stream.h"
#include "core/common/rpc/transport/callback_answerer.h"
#include "core/common/rpc/transport/client.h"
#include "core/common/rpc/transport/event_subscriber.h"
#include "core/common/rpc/transport/server.h"
#include "rpc/browser/browser_window.rpc.h"

namespace {

using bench::Fail;
using bench::ProcessPair;
using rpc::transport::Client;

// How many connections, and how many of each other kind of thing, are made.
constexpr int kConnections = 100;
constexpr int kThings = 1'000;

BrowserId Window(int number) {
  BrowserId id;
  id.set_value(bench::kWindow + number);
  return id;
}

void AskAll() {
  for (int i = 0; i < kThings; ++i) {
    rpc::CloseWindow question;
    *question.mutable_browser_id() = Window(i);
    question.mutable_question();
    if (!torvane::CallbackStream<rpc::CloseWindow>::Ask(
            question, {.response_callback = [](rpc::CloseWindow&) {},
                       .error_callback = [](torvane::StreamCallError) {}}))
      Fail("nobody answers");
  }
}

class Host final : public rpc::BrowserWindowRpc {
 public:
  explicit Host(ProcessPair& pair) : pair_(pair) {}

  // The client has made all things of one kind.
  void Focus(google::protobuf::RpcController*,
             const BrowserId*,
             google::protobuf::Empty*,
             google::protobuf::Closure* done) override {
    readings_.push_back(HeapBytes());
    constexpr size_t kBeforeQuestions = 6;
    if (readings_.size() == kBeforeQuestions)
      AskAll();
    done->Run();
    if (readings_.size() > kBeforeQuestions)
      Print();
  }

 private:
  static double HeapBytes() {
    const struct mallinfo2 heap = mallinfo2();
    return static_cast<double>(heap.uordblks + heap.hblkhd);
  }

  double Grown(size_t step) const {
    return readings_[step] - readings_[step - 1];
  }

  void Print() {
    printf(
        "{\"connection\": %.0f, \"event_stream\": %.0f, "
        "\"callback_stream\": %.0f, \"subscription\": %.0f, "
        "\"answered_window\": %.0f, \"question\": %.0f}\n",
        Grown(1) / kConnections, Grown(2) / kThings, Grown(3) / kThings,
        Grown(4) / kThings, Grown(5) / kThings, Grown(6) / kThings);
    pair_.End();
  }

  ProcessPair& pair_;
  std::vector<double> readings_;
};

void Serve(ProcessPair& pair) {
  rpc::loop::Loop loop;
  Host host(pair);
  // One client has all the things of each kind.
  rpc::transport::ServerOptions options;
  options.limits.max_streams = 10 * kThings;
  options.limits.max_subscriptions = 10 * kThings;
  options.limits.max_questions = 10 * kThings;
  rpc::transport::Server server(loop, options);
  server.AddService(&host);
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

// Returns when the host has handled everything that was sent before.
void Focus(Client& client) {
  rpc::transport::ClientController controller;
  google::protobuf::Empty nothing;
  const BrowserId window = Window(0);
  rpc::BrowserWindow_Stub(&client).Focus(&controller, &window, &nothing,
                                         nullptr);
  if (controller.Failed())
    Fail(controller.ErrorText());
}

void BuildUp(ProcessPair& pair) {
  using Subscriber = rpc::transport::EventSubscriber<rpc::BrowserWindowClosed>;
  using Answerer = rpc::transport::CallbackAnswerer<rpc::CloseWindow>;
  const auto* service = rpc::BrowserWindowRpc::descriptor();
  pair.Await();
  rpc::loop::Loop loop;
  const std::unique_ptr<Client> client = Connect(loop, pair);
  Subscriber first(*client,
                   service->FindMethodByName("WhenBrowserWindowClosed"),
                   [](const rpc::BrowserWindowClosed&) {});
  std::vector<Answerer::Reply> open;
  Answerer answerer(*client, service->FindMethodByName("OnCloseWindow"),
                    [&open](const rpc::CloseWindow&, Answerer::Reply reply) {
                      open.push_back(std::move(reply));
                    });
  Focus(*client);

  std::vector<std::unique_ptr<Client>> others;
  others.reserve(kConnections);
  for (int i = 0; i < kConnections; ++i)
    others.push_back(Connect(loop, pair));
  Focus(*client);

  std::vector<std::unique_ptr<Subscriber>> subscribers;
  subscribers.reserve(kThings);
  for (int i = 0; i < kThings; ++i) {
    subscribers.push_back(std::make_unique<Subscriber>(
        *client, service->FindMethodByName("WhenBrowserWindowClosed"),
        [](const rpc::BrowserWindowClosed&) {}));
  }
  Focus(*client);

  std::vector<std::unique_ptr<Answerer>> answerers;
  answerers.reserve(kThings);
  for (int i = 0; i < kThings; ++i) {
    answerers.push_back(std::make_unique<Answerer>(
        *client, service->FindMethodByName("OnCloseWindow"),
        [](const rpc::CloseWindow&, const Answerer::Reply&) {}));
  }
  Focus(*client);

  for (int i = 0; i < kThings; ++i)
    subscribers[i]->Subscribe(Window(i));
  Focus(*client);

  for (int i = 0; i < kThings; ++i)
    answerer.Subscribe(Window(i));
  Focus(*client);
  Focus(*client);
}

}  // namespace

int main(int argc, char** argv) {
  return bench::RunPair(
      argc, argv,
      {.serve = Serve, .call = BuildUp, .modes = {bench::Mode::kMemory}});
}
