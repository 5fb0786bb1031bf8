#include "core/common/rpc/conformance/teardown_wire.h"

#include <google/protobuf/descriptor.h>

#include <cstdlib>
#include <functional>
#include <optional>

#include "core/common/rpc/stream/abstract_stream.h"
#include "core/common/rpc/stream/stream_channel.h"
#include "core/common/rpc/transport/client.h"
#include "core/common/rpc/transport/client_stream.h"
#include "core/common/rpc/transport/server.h"
#include "rpc/browser/browser_window.rpc.h"

namespace rpc::conformance {
namespace {

const google::protobuf::MethodDescriptor* Method(const char* name) {
  return BrowserWindowRpc::descriptor()->FindMethodByName(name);
}

const google::protobuf::MethodDescriptor* QuestionMethod() {
  return Method("OnCloseWindow");
}

const google::protobuf::MethodDescriptor* EventMethod() {
  return Method("WhenBrowserWindowClosed");
}

class InProcessWire final : public TeardownWire {
 public:
  InProcessWire()
      : questions_stream_(Open(QuestionMethod(),
                               [this](const transport::StreamMessage& frame) {
                                 questions_.push_back(frame);
                               })),
        events_stream_(
            Open(EventMethod(), [](const transport::StreamMessage&) {})) {}

  ~InProcessWire() override { CompleteStreams(); }

  void SendOnQuestions(const transport::StreamMessage& frame) override {
    Deliver(questions_stream_, frame);
  }
  void SendOnEvents(const transport::StreamMessage& frame) override {
    Deliver(events_stream_, frame);
  }

  void EndStreams() override {
    asio::post(loop, [this] { CompleteStreams(); });
  }
  void Disconnect() override {
    connected_ = false;
    EndStreams();
  }
  void StopHost() override { CompleteStreams(); }

  bool StreamsAreGone() const override {
    return !questions_stream_ && !events_stream_;
  }

 private:
  using Stream = std::unique_ptr<torvane::AbstractStream>;
  using Receive = std::function<void(const transport::StreamMessage&)>;

  // The client never runs inside a stream.
  class Endpoint final : public torvane::StreamChannel::Endpoint {
   public:
    Endpoint(InProcessWire& wire, Receive receive)
        : wire_(wire), receive_(std::move(receive)) {}

    bool Send(const transport::StreamMessage& frame) override {
      if (wire_.connected_)
        asio::post(wire_.loop, [receive = receive_, frame] { receive(frame); });
      return wire_.connected_;
    }
    void Complete() override {}

   private:
    InProcessWire& wire_;
    const Receive receive_;
  };

  Stream Open(const google::protobuf::MethodDescriptor* method,
              Receive receive) {
    return service_.OpenStream(
        method, torvane::StreamChannel(
                    std::make_unique<Endpoint>(*this, std::move(receive))));
  }

  void Deliver(Stream& stream, const transport::StreamMessage& frame) {
    if (!connected_)
      return;
    asio::post(loop, [&stream, frame = frame]() mutable {
      if (stream)
        stream->OnNext(&frame);
    });
  }

  void CompleteStreams() {
    for (Stream* stream : {&questions_stream_, &events_stream_}) {
      if (*stream)
        (*stream)->OnCompleted();
      stream->reset();
    }
  }

  BrowserWindowRpc service_;
  bool connected_ = true;
  Stream questions_stream_;
  Stream events_stream_;
};

class SocketWire final : public TeardownWire {
 public:
  SocketWire() {
    server_.AddService(&service_);
    asio::local::stream_protocol::socket client_end(loop);
    asio::local::stream_protocol::socket server_end(loop);
    asio::local::connect_pair(client_end, server_end);
    server_.Adopt(std::move(server_end));
    auto client = transport::Client::Adopt(loop, std::move(client_end));
    if (!client.ok())
      abort();
    client_ = *std::move(client);
    questions_stream_.emplace(
        *client_, QuestionMethod(),
        [this](const transport::StreamMessage& frame) {
          questions_.push_back(frame);
        },
        nullptr);
    events_stream_.emplace(
        *client_, EventMethod(), [](const transport::StreamMessage&) {},
        nullptr);
  }

  void SendOnQuestions(const transport::StreamMessage& frame) override {
    if (questions_stream_)
      questions_stream_->Send(frame);
  }
  void SendOnEvents(const transport::StreamMessage& frame) override {
    if (events_stream_)
      events_stream_->Send(frame);
  }

  void EndStreams() override {
    if (!client_)
      return;
    questions_stream_->End();
    events_stream_->End();
  }
  void Disconnect() override {
    questions_stream_.reset();
    events_stream_.reset();
    client_.reset();
  }
  void StopHost() override { server_.Stop(); }

  bool StreamsAreGone() const override {
    return server_.counters().streams_now == 0;
  }

 private:
  BrowserWindowRpc service_;
  transport::Server server_{loop};
  std::unique_ptr<transport::Client> client_;
  std::optional<transport::ClientStream> questions_stream_;
  std::optional<transport::ClientStream> events_stream_;
};

}  // namespace

std::unique_ptr<TeardownWire> InProcessTeardownWire() {
  return std::make_unique<InProcessWire>();
}

std::unique_ptr<TeardownWire> SocketTeardownWire() {
  return std::make_unique<SocketWire>();
}

}  // namespace rpc::conformance
