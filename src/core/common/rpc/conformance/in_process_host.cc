// The shortest transport: calls go straight into the service. What the service
// sends is handed over by the loop, so that a client never runs inside a
// stream.

#include <google/protobuf/descriptor.h>

#include <deque>
#include <utility>

#include "core/common/rpc/conformance/link.h"
#include "core/common/rpc/conformance/scripted_service.h"
#include "core/common/rpc/stream/stream_channel.h"
#include "core/common/rpc/testing/recording_call.h"

namespace rpc::conformance {
namespace {

using Tasks = std::deque<std::function<void()>>;

class InProcessStream : public ClientStream,
                        public std::enable_shared_from_this<InProcessStream> {
 public:
  explicit InProcessStream(Tasks& tasks) : tasks_(tasks) {}

  void Connect(torvane::Service& service,
               const google::protobuf::MethodDescriptor* method) {
    stream_ = service.OpenStream(
        method, torvane::StreamChannel(
                    std::make_unique<Endpoint>(tasks_, weak_from_this())));
  }

  void Send(const transport::StreamMessage& frame) override {
    tasks_.push_back([self = shared_from_this(), frame = frame]() mutable {
      self->stream_->OnNext(&frame);
    });
  }

  void SendError(const transport::StreamMessage& frame) override {
    tasks_.push_back([self = shared_from_this(), frame = frame]() mutable {
      self->stream_->OnError(&frame);
    });
  }

  void End() override {
    tasks_.push_back([self = shared_from_this()] { self->Complete(); });
  }

  // What a transport owes every stream, once.
  void Complete() {
    if (!stream_)
      return;
    stream_->OnCompleted();
    stream_.reset();
  }

 private:
  class Endpoint : public torvane::StreamChannel::Endpoint {
   public:
    Endpoint(Tasks& tasks, std::weak_ptr<InProcessStream> stream)
        : tasks_(tasks), stream_(std::move(stream)) {}

    bool Send(const transport::StreamMessage& frame) override {
      tasks_.push_back([stream = stream_, frame] {
        if (const auto client = stream.lock())
          client->received.push_back(frame);
      });
      return true;
    }

    void Complete() override {
      tasks_.push_back([stream = stream_] {
        if (const auto client = stream.lock())
          client->over = true;
      });
    }

   private:
    Tasks& tasks_;
    const std::weak_ptr<InProcessStream> stream_;
  };

  Tasks& tasks_;
  std::unique_ptr<torvane::AbstractStream> stream_;
};

class InProcessLink : public Link {
 public:
  InProcessLink(ScriptedService& service, Tasks& tasks)
      : service_(service), tasks_(tasks) {}

  ~InProcessLink() override { CompleteStreams(); }

  std::shared_ptr<UnaryCall> Call(
      int method,
      const google::protobuf::Message& request) override {
    struct Running {
      std::unique_ptr<google::protobuf::Message> request;
      torvane::RecordingController controller;
      std::unique_ptr<torvane::RecordingClosure> done;
    };
    const auto* descriptor = service_.GetDescriptor()->method(method);
    auto call = std::make_shared<UnaryCall>();
    call->response.reset(service_.GetResponsePrototype(descriptor).New());
    auto running = std::make_shared<Running>();
    running->request.reset(request.New());
    running->request->CopyFrom(request);
    running->done = std::make_unique<torvane::RecordingClosure>(
        [this, call, state = running.get()] {
          call->failure = state->controller.ErrorText();
          // On the loop, as over any transport.
          tasks_.push_back([call] { call->over = true; });
        });
    running_.push_back(running);
    tasks_.push_back([this, descriptor, call, running] {
      service_.CallMethod(descriptor, &running->controller,
                          running->request.get(), call->response.get(),
                          running->done.get());
    });
    return call;
  }

  std::shared_ptr<ClientStream> Open(int method) override {
    auto stream = std::make_shared<InProcessStream>(tasks_);
    stream->Connect(service_, service_.GetDescriptor()->method(method));
    streams_.push_back(stream);
    return stream;
  }

  void RunUntil(const std::function<bool()>& condition) override {
    while (!condition()) {
      if (tasks_.empty())
        abort();
      const auto task = std::move(tasks_.front());
      tasks_.pop_front();
      task();
    }
  }

  void Break() override {
    tasks_.push_back([this] { CompleteStreams(); });
  }

 private:
  void CompleteStreams() {
    for (const auto& stream : streams_)
      stream->Complete();
  }

  ScriptedService& service_;
  Tasks& tasks_;
  std::vector<std::shared_ptr<InProcessStream>> streams_;
  std::vector<std::shared_ptr<void>> running_;
};

class InProcess : public Host {
 public:
  std::unique_ptr<Link> Connect() override {
    return std::make_unique<InProcessLink>(service_, tasks_);
  }

 private:
  Tasks tasks_;
  ScriptedService service_;
};

}  // namespace

std::unique_ptr<Host> InProcessHost() {
  return std::make_unique<InProcess>();
}

}  // namespace rpc::conformance
