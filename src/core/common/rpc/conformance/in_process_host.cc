// The shortest transport: calls go straight into the service. Both directions
// go over the loop, so that a client never runs inside a stream.

#include <algorithm>
#include <optional>
#include <string>
#include <utility>

#include "core/common/rpc/conformance/scripted_service.h"
#include "core/common/rpc/conformance/transport_under_test.h"
#include "core/common/rpc/serving/call_context.h"
#include "core/common/rpc/stream/abstract_stream.h"
#include "core/common/rpc/stream/stream_channel.h"

namespace rpc::conformance {
namespace {

class InProcessCall final : public LinkCall, private google::protobuf::Closure {
 public:
  InProcessCall(loop::Loop& loop,
                ScriptedService& service,
                int method,
                const google::protobuf::Message& request)
      : LinkCall(method), loop_(loop), request_(request.New()) {
    request_->CopyFrom(request);
    loop_.Post([this, &service, method] {
      context_.Start(*Method(method), "the test", std::nullopt);
      service.CallMethod(Method(method), &context_, request_.get(),
                         response.get(), this);
    });
  }

 private:
  void Run() override {
    loop_.Post([this] { End(std::string(context_.status().message())); });
  }

  loop::Loop& loop_;
  const std::unique_ptr<google::protobuf::Message> request_;
  serving::CallContext context_;
};

// Both ends of a stream.
class InProcessStream final : public LinkStream {
 public:
  InProcessStream(loop::Loop& loop, ScriptedService& service, int method)
      : loop_(loop),
        served_(service.OpenStream(
            Method(method),
            torvane::StreamChannel(std::make_unique<Endpoint>(*this)))) {}

  void Send(const transport::StreamMessage& message) override {
    Post([this, copy = message]() mutable { served_->OnNext(&copy); });
  }
  void SendError(const transport::StreamMessage& message) override {
    Post([this, copy = message]() mutable { served_->OnError(&copy); });
  }
  void End() override {
    Post([this] { Complete(); });
  }

  // The link breaks.
  void Lose() {
    End();
    connected_ = false;
  }

  // Calls OnCompleted() exactly once, as every transport must.
  void Complete() {
    if (served_) {
      served_->OnCompleted();
      served_.reset();
    }
  }

  bool is_served() const { return served_ != nullptr; }

 private:
  class Endpoint final : public torvane::StreamChannel::Endpoint {
   public:
    explicit Endpoint(InProcessStream& stream) : stream_(stream) {}

    bool Send(const transport::StreamMessage& message) override {
      if (stream_.connected_) {
        stream_.loop_.Post([&stream = stream_, message] {
          stream.received.push_back(message);
        });
      }
      return stream_.connected_;
    }
    void Complete() override {
      stream_.loop_.Post([&stream = stream_] { stream.over = true; });
    }

   private:
    InProcessStream& stream_;
  };

  // Runs the task on a later turn, unless the stream is gone by then.
  void Post(loop::Task task) {
    if (connected_) {
      loop_.Post([this, task = std::move(task)]() mutable {
        if (served_) {
          task();
        }
      });
    }
  }

  loop::Loop& loop_;
  bool connected_ = true;
  // Null once it is over.
  std::unique_ptr<torvane::AbstractStream> served_;
};

class InProcess final : public Host {
 public:
  std::unique_ptr<Link> Connect() override {
    return std::make_unique<InProcessLink>(*this);
  }
  void Stop() override {
    for (const auto& stream : streams_) {
      stream->Complete();
    }
  }
  bool HasStreams() const override {
    return std::ranges::any_of(
        streams_, [](const auto& stream) { return stream->is_served(); });
  }

 private:
  class InProcessLink final : public Link {
   public:
    explicit InProcessLink(InProcess& host) : host_(host) {}

    ~InProcessLink() override {
      for (InProcessStream* stream : streams_) {
        stream->Complete();
      }
    }

    LinkCall& Call(int method,
                   const google::protobuf::Message& request) override {
      return *host_.calls_.emplace_back(std::make_unique<InProcessCall>(
          host_.loop_, host_.service_, method, request));
    }
    LinkStream& Open(int method) override {
      streams_.push_back(host_.streams_
                             .emplace_back(std::make_unique<InProcessStream>(
                                 host_.loop_, host_.service_, method))
                             .get());
      return *streams_.back();
    }
    void Break() override {
      for (InProcessStream* stream : streams_) {
        stream->Lose();
      }
    }

   private:
    InProcess& host_;
    std::vector<InProcessStream*> streams_;
  };

  ScriptedService service_{loop_};
  // Of all links: a method may complete a call whose link has gone.
  std::vector<std::unique_ptr<InProcessCall>> calls_;
  std::vector<std::unique_ptr<InProcessStream>> streams_;
};

}  // namespace

std::unique_ptr<Host> InProcessHost() {
  return std::make_unique<InProcess>();
}

}  // namespace rpc::conformance
