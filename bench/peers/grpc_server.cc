// A bare gRPC server in C++, which the gateway is compared with: generated code
// of the contract for gRPC clients, the callback API, an insecure port of the
// loopback, default arguments.
//
//   grpc_server
//
// Prints "ready at HOST:PORT" when it listens, and serves until it is killed.

#include <google/protobuf/wrappers.pb.h>
#include <grpcpp/grpcpp.h>

#include <cstdint>
#include <cstdio>
#include <deque>
#include <map>
#include <memory>
#include <mutex>
#include <set>
#include <string>

#include "bench/support/process_pair.h"
#include "rpc/browser/browser_window.grpc.pb.h"

namespace {

using google::protobuf::BoolValue;
using rpc::BrowserWindowClosed;
using rpc::EventSubscription;

class EventStream;

// Who watches which window.
class Watchers {
 public:
  void Add(int64_t window, EventStream* stream);
  void Remove(EventStream* stream);
  void Publish(int64_t window, const BrowserWindowClosed& event);

 private:
  std::mutex mutex_;
  std::map<int64_t, std::set<EventStream*>> streams_;
};

// The stream to one watcher. Lives until gRPC is done with it.
class EventStream final
    : public grpc::ServerBidiReactor<EventSubscription, BrowserWindowClosed> {
 public:
  explicit EventStream(Watchers& watchers) : watchers_(watchers) {
    StartRead(&subscription_);
  }

  void Write(const BrowserWindowClosed& event) {
    const std::lock_guard lock(mutex_);
    waiting_.push_back(event);
    if (waiting_.size() == 1)
      StartWrite(&waiting_.front());
  }

  void OnReadDone(bool ok) override {
    if (!ok)
      return;
    watchers_.Add(subscription_.subscribe_to().value(), this);
    StartRead(&subscription_);
  }
  void OnWriteDone(bool) override {
    const std::lock_guard lock(mutex_);
    waiting_.pop_front();
    if (!waiting_.empty())
      StartWrite(&waiting_.front());
  }
  void OnCancel() override {
    watchers_.Remove(this);
    Finish(grpc::Status::CANCELLED);
  }
  void OnDone() override { delete this; }

 private:
  Watchers& watchers_;
  EventSubscription subscription_;
  std::mutex mutex_;
  // The first one is being written.
  std::deque<BrowserWindowClosed> waiting_;
};

void Watchers::Add(int64_t window, EventStream* stream) {
  const std::lock_guard lock(mutex_);
  streams_[window].insert(stream);
}

void Watchers::Remove(EventStream* stream) {
  const std::lock_guard lock(mutex_);
  for (auto& [window, streams] : streams_)
    streams.erase(stream);
}

void Watchers::Publish(int64_t window, const BrowserWindowClosed& event) {
  const std::lock_guard lock(mutex_);
  for (EventStream* stream : streams_[window])
    stream->Write(event);
}

class WindowService final : public rpc::BrowserWindow::CallbackService {
 public:
  grpc::ServerUnaryReactor* IsVisible(grpc::CallbackServerContext* context,
                                      const BrowserId* request,
                                      BoolValue* response) override {
    response->set_value(request->value() == bench::kWindow);
    return Finished(context);
  }

  grpc::ServerUnaryReactor* Close(grpc::CallbackServerContext* context,
                                  const BrowserId* request,
                                  BoolValue* response) override {
    BrowserWindowClosed event;
    *event.mutable_browser_id() = *request;
    event.set_reason(rpc::WINDOW_CLOSE_REASON_CALL);
    event.set_title(bench::kTitle);
    watchers_.Publish(request->value(), event);
    response->set_value(true);
    return Finished(context);
  }

  grpc::ServerBidiReactor<EventSubscription, BrowserWindowClosed>*
  WhenBrowserWindowClosed(grpc::CallbackServerContext*) override {
    return new EventStream(watchers_);
  }

 private:
  static grpc::ServerUnaryReactor* Finished(
      grpc::CallbackServerContext* context) {
    grpc::ServerUnaryReactor* const reactor = context->DefaultReactor();
    reactor->Finish(grpc::Status::OK);
    return reactor;
  }

  Watchers watchers_;
};

}  // namespace

int main() {
  WindowService service;
  grpc::ServerBuilder builder;
  int port = 0;
  builder.AddListeningPort("127.0.0.1:0", grpc::InsecureServerCredentials(),
                           &port);
  builder.RegisterService(&service);
  const std::unique_ptr<grpc::Server> server = builder.BuildAndStart();
  if (!server || port == 0)
    bench::Fail("BuildAndStart");
  printf("ready at 127.0.0.1:%d\n", port);
  fflush(stdout);
  server->Wait();
}
