// A gRPC client in C++ that measures a server, which may be a gateway: with
// generated code of the contract for gRPC clients, over TCP.
//
//   grpc_client unary|events ADDRESS PROCESS...
//
// Calls block; streams use a completion queue. An event goes to 100 streams on
// 10 connections, is asked for by a call, and is over when all have it and the
// call has returned. Prints a line of JSON as Measurement does, where CPU time
// is that of this process and of those that are named.

#include <google/protobuf/wrappers.pb.h>
#include <grpcpp/grpcpp.h>
#include <unistd.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "bench/support/measurement.h"
#include "bench/support/process_pair.h"
#include "rpc/browser/browser_window.grpc.pb.h"

namespace {

using bench::Fail;
using bench::Measurement;
using google::protobuf::BoolValue;
using rpc::BrowserWindow;
using rpc::BrowserWindowClosed;
using rpc::EventSubscription;

constexpr int kConnections = 10;
constexpr int kStreamsPerConnection = 10;
constexpr int kStreams = kConnections * kStreamsPerConnection;

// Closed until every stream has heard of it, and then never again.
constexpr int kProbedWindow = bench::kWindow + 1;

BrowserId Window(int64_t value = bench::kWindow) {
  BrowserId id;
  id.set_value(value);
  return id;
}

std::unique_ptr<BrowserWindow::Stub> Connect(const std::string& address) {
  grpc::ChannelArguments arguments;
  arguments.SetInt(GRPC_ARG_USE_LOCAL_SUBCHANNEL_POOL, 1);
  return BrowserWindow::NewStub(grpc::CreateCustomChannel(
      address, grpc::InsecureChannelCredentials(), arguments));
}

void MeasureUnary(const std::string& address, Measurement& measurement) {
  const auto stub = Connect(address);
  const BrowserId window = Window();
  BoolValue visible;
  while (measurement.Next()) {
    grpc::ClientContext context;
    const grpc::Status status = stub->IsVisible(&context, window, &visible);
    if (!status.ok() || !visible.value())
      Fail(status.error_message());
  }
}

// The tag of an operation, which the completion queue returns.
class Event {
 public:
  virtual ~Event() = default;
  virtual void Happen() = 0;
};

void HandleNext(grpc::CompletionQueue& queue) {
  void* event = nullptr;
  bool ok = false;
  if (!queue.Next(&event, &ok) || !ok)
    Fail("a call or a stream ended");
  static_cast<Event*>(event)->Happen();
}

// How many streams have heard of each of the two windows.
struct Heard {
  int closed = 0;
  int probed = 0;
};

// Subscribes to the window, then to the probed one: whoever has heard of that
// hears of the other, too.
class Watcher final : public Event {
 public:
  Watcher(BrowserWindow::Stub& stub, grpc::CompletionQueue& queue, Heard& heard)
      : heard_(heard),
        stream_(stub.AsyncWhenBrowserWindowClosed(&context_, &queue, this)) {}

  void Happen() override {
    switch (state_) {
      case State::kOpening:
        state_ = State::kSubscribing;
        return Subscribe(bench::kWindow);
      case State::kSubscribing:
        state_ = State::kSubscribingToProbe;
        return Subscribe(kProbedWindow);
      case State::kSubscribingToProbe:
        state_ = State::kWatching;
        break;
      case State::kWatching:
        Note();
        break;
    }
    stream_->Read(&event_, this);
  }

 private:
  enum class State { kOpening, kSubscribing, kSubscribingToProbe, kWatching };

  void Subscribe(int64_t window) {
    EventSubscription subscription;
    *subscription.mutable_subscribe_to() = Window(window);
    stream_->Write(subscription, this);
  }

  void Note() {
    if (event_.browser_id().value() == bench::kWindow) {
      ++heard_.closed;
    } else if (!has_heard_of_probe_) {
      has_heard_of_probe_ = true;
      ++heard_.probed;
    }
  }

  Heard& heard_;
  State state_ = State::kOpening;
  bool has_heard_of_probe_ = false;
  BrowserWindowClosed event_;
  grpc::ClientContext context_;
  const std::unique_ptr<
      grpc::ClientAsyncReaderWriter<EventSubscription, BrowserWindowClosed>>
      stream_;
};

// A call that closes a window.
class CloseCall final : public Event {
 public:
  CloseCall(BrowserWindow::Stub& stub,
            grpc::CompletionQueue& queue,
            int64_t window)
      : reader_(stub.AsyncClose(&context_, Window(window), &queue)) {
    reader_->Finish(&response_, &status_, this);
  }

  void Happen() override {
    if (!status_.ok())
      Fail(status_.error_message());
    is_over_ = true;
  }

  bool is_over() const { return is_over_; }

 private:
  grpc::ClientContext context_;
  BoolValue response_;
  grpc::Status status_;
  bool is_over_ = false;
  const std::unique_ptr<grpc::ClientAsyncResponseReader<BoolValue>> reader_;
};

void MeasureEvents(const std::string& address, Measurement& measurement) {
  grpc::CompletionQueue queue;
  Heard heard;
  std::vector<std::unique_ptr<BrowserWindow::Stub>> stubs;
  std::vector<std::unique_ptr<Watcher>> watchers;
  for (int i = 0; i < kConnections; ++i) {
    stubs.push_back(Connect(address));
    for (int j = 0; j < kStreamsPerConnection; ++j)
      watchers.push_back(
          std::make_unique<Watcher>(*stubs.back(), queue, heard));
  }
  const auto close = [&](int64_t window) {
    const CloseCall call(*stubs.front(), queue, window);
    while (!call.is_over())
      HandleNext(queue);
  };
  while (heard.probed < kStreams)
    close(kProbedWindow);
  while (measurement.Next()) {
    heard.closed = 0;
    close(bench::kWindow);
    while (heard.closed < kStreams)
      HandleNext(queue);
  }
  measurement.Print();
  // Not the destructors of queue and streams, which would have to be drained.
  fflush(stdout);
  _exit(0);
}

}  // namespace

int main(int argc, char** argv) {
  const std::string_view mode = argc > 2 ? argv[1] : "";
  if (mode != "unary" && mode != "events") {
    fprintf(stderr, "usage: grpc_client unary|events ADDRESS PROCESS...\n");
    return 2;
  }
  const std::string address = argv[2];
  std::vector<pid_t> others;
  for (int i = 3; i < argc; ++i)
    others.push_back(atoi(argv[i]));
  Measurement measurement(others);
  if (mode == "events")
    MeasureEvents(address, measurement);
  MeasureUnary(address, measurement);
  measurement.Print();
}
