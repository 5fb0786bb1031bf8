// Streams that write down what a server does to them.

#ifndef CORE_COMMON_RPC_TRANSPORT_TESTING_PROBE_SERVICE_H_
#define CORE_COMMON_RPC_TRANSPORT_TESTING_PROBE_SERVICE_H_

#include <gtest/gtest.h>

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "core/common/rpc/testing/socket_pair.h"
#include "core/common/rpc/transport/testing/lab.h"
#include "rpc/event_subscription.pb.h"

namespace rpc::transport {

using Log = std::vector<std::string>;

// A subscription to a window whose number stands for `name`, of up to seven
// characters: something that a stream of events is given.
inline std::string SubscriptionTo(const std::string& name) {
  int64_t window = 0;
  for (const char character : name) {
    window = window << 8 | character;
  }
  EventSubscription subscription;
  subscription.mutable_subscribe_to()->set_value(window);
  return subscription.SerializeAsString();
}

// The name again.
inline std::string SubscribedTo(const std::string& payload) {
  EventSubscription subscription;
  subscription.ParseFromString(payload);
  std::string name;
  for (int64_t window = subscription.subscribe_to().value(); window != 0;
       window >>= 8) {
    name.insert(name.begin(), static_cast<char>(window & 0x7f));
  }
  return name;
}

// A stream that writes down what happens to it and does what the test says.
class ProbeStream final : public torvane::AbstractStream {
 public:
  ProbeStream(torvane::StreamChannel channel, std::string name, Log& log)
      : AbstractStream(std::move(channel)), name_(std::move(name)), log_(log) {}
  ~ProbeStream() override {
    EXPECT_FALSE(busy_) << name_ << " is destroyed within one of its calls";
    log_.push_back(name_ + " destroyed");
  }

  void OnNext(StreamMessage* message) override {
    Note("next " + SubscribedTo(message->payload()));
  }
  void OnError(StreamMessage* message) override {
    Note("error " + message->payload());
  }
  void OnCompleted() override {
    Note("completed");
    if (completes) {
      Complete();
    }
  }

  // Runs once, inside the next of the calls above.
  std::function<void()> meanwhile = [] {};
  // Whether OnCompleted does what it should.
  bool completes = true;

  bool Say(const std::string& payload, int64_t call_id = 0) {
    StreamMessage message;
    message.set_payload(payload);
    message.set_call_id(call_id);
    busy_ = true;
    const bool sent = Send(message);
    busy_ = false;
    return sent;
  }
  void Finish() { Complete(); }

 private:
  void Note(const std::string& what) {
    log_.push_back(name_ + " " + what);
    busy_ = true;
    std::exchange(meanwhile, [] {})();
    busy_ = false;
  }

  const std::string name_;
  Log& log_;
  bool busy_ = false;
};

// Serves probes: the first is "1", and so on.
class ProbeService final : public lab::LabRpc {
 public:
  std::unique_ptr<torvane::AbstractStream> OpenStream(
      const google::protobuf::MethodDescriptor*,
      torvane::StreamChannel channel) override {
    auto stream = std::make_unique<ProbeStream>(
        std::move(channel), std::to_string(streams.size() + 1), log);
    streams.push_back(stream.get());
    return stream;
  }

  // Says something on the first stream before it answers.
  void Echo(google::protobuf::RpcController*,
            const lab::Text* request,
            lab::Text*,
            google::protobuf::Closure* done) override {
    streams[0]->Say(request->text());
    done->Run();
  }

  std::vector<ProbeStream*> streams;
  Log log;
};

// A server of probes and one raw client.
class ProbeTest : public ::testing::Test {
 protected:
  void Serve(ServerOptions options = {}) {
    server.emplace(loop, options);
    server->AddService(&service);
    peer = NewPeer();
  }
  std::unique_ptr<RawPeer> NewPeer() {
    auto [ours, theirs] = torvane::SocketPair();
    server->Adopt(std::move(theirs));
    auto peer = std::make_unique<RawPeer>(loop, std::move(ours));
    peer->SendHello();
    EXPECT_TRUE(peer->Receive());
    return peer;
  }

  void Open(uint64_t id, const std::string& method = "Watch") {
    StreamOpenFrame open;
    open.set_stream_id(id);
    open.set_method_id(peer->IdOf(method));
    peer->Send(Frame::kStreamOpen, open);
    RunReady();
  }
  // Subscribes to the window of that name.
  void SendData(uint64_t id, const std::string& name) {
    StreamDataFrame data;
    data.add_stream_ids(id);
    data.mutable_message()->set_payload(SubscriptionTo(name));
    peer->Send(Frame::kStreamData, data);
    RunReady();
  }
  void SendError(uint64_t id, const std::string& payload) {
    StreamErrorFrame error;
    error.set_stream_id(id);
    error.mutable_message()->set_payload(payload);
    peer->Send(Frame::kStreamError, error);
    RunReady();
  }
  void End(uint64_t id) {
    StreamEndFrame end;
    end.set_stream_id(id);
    peer->Send(Frame::kStreamEnd, end);
    RunReady();
  }

  // The next frame is the end of stream `id`; returns its status.
  RpcStatus ReceiveEnd(uint64_t id) {
    const std::optional<Frame> frame = peer->Receive();
    if (!frame || !frame->has_stream_end()) {
      ADD_FAILURE() << "no end of a stream";
      return {};
    }
    EXPECT_EQ(frame->stream_end().stream_id(), id);
    return frame->stream_end().status();
  }
  StreamDataFrame ReceiveData() {
    const std::optional<Frame> frame = peer->Receive();
    EXPECT_TRUE(frame && frame->has_stream_data());
    return frame ? frame->stream_data() : StreamDataFrame();
  }

  void RunReady() { loop.RunReady(); }
  Log TakeLog() { return std::exchange(service.log, {}); }
  const serving::Counters& counters() { return server->counters(); }

  loop::Loop loop;
  ProbeService service;
  std::optional<Server> server;
  std::unique_ptr<RawPeer> peer;
};

}  // namespace rpc::transport

#endif  // CORE_COMMON_RPC_TRANSPORT_TESTING_PROBE_SERVICE_H_
