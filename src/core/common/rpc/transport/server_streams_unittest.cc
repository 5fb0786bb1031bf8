// What streams may rely on when a server runs them.

#include "core/common/rpc/transport/server_streams.h"

#include <gtest/gtest.h>

#include <functional>
#include <map>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "core/common/rpc/transport/lab.h"

namespace rpc::transport {
namespace {

using Log = std::vector<std::string>;

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
    Note("next " + message->payload());
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

  // Done within the next of the calls above.
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

  std::vector<ProbeStream*> streams;
  Log log;
};

class ServerStreamsTest : public ::testing::Test {
 protected:
  void Serve(ServerOptions options = {}) {
    server.emplace(loop, options);
    server->AddService(&service);
    peer = NewPeer();
  }
  std::unique_ptr<RawPeer> NewPeer() {
    auto [ours, theirs] = SocketPair(loop);
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
  void SendData(const std::vector<uint64_t>& ids, const std::string& payload) {
    StreamDataFrame data;
    for (const uint64_t id : ids) {
      data.add_stream_ids(id);
    }
    data.mutable_message()->set_payload(payload);
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

  void RunReady() {
    loop.restart();
    while (loop.poll() > 0) {
    }
  }
  Log TakeLog() { return std::exchange(service.log, {}); }
  const Counters& counters() { return server->counters(); }

  asio::io_context loop{1};
  ProbeService service;
  std::optional<Server> server;
  std::unique_ptr<RawPeer> peer;
};

TEST_F(ServerStreamsTest, FramesReachTheirStream) {
  Serve();
  Open(7);
  Open(8);
  SendData({8}, "a");
  SendError(7, "b");
  SendData({7, 8}, "c");
  EXPECT_EQ(TakeLog(), (Log{"2 next a", "1 error b", "1 next c", "2 next c"}));
  EXPECT_EQ(counters().streams_now, 2u);
}

TEST_F(ServerStreamsTest, TheEndOfTheClientCompletesAndDestroysTheStream) {
  Serve();
  Open(7);
  End(7);
  EXPECT_EQ(TakeLog(), (Log{"1 completed", "1 destroyed"}));
  EXPECT_EQ(ReceiveEnd(7).code(), 0);
  EXPECT_EQ(counters().streams_now, 0u);
}

TEST_F(ServerStreamsTest, AStreamThatForgetsToCompleteEndsAllTheSame) {
  Serve();
  Open(7);
  service.streams[0]->completes = false;
  End(7);
  EXPECT_EQ(TakeLog(), (Log{"1 completed", "1 destroyed"}));
  EXPECT_EQ(ReceiveEnd(7).code(), 0);
}

TEST_F(ServerStreamsTest, ALostConnectionCompletesAndDestroysItsStreams) {
  Serve();
  Open(8);
  Open(7);
  peer->Close();
  RunReady();
  EXPECT_EQ(TakeLog(),
            (Log{"2 completed", "2 destroyed", "1 completed", "1 destroyed"}));
  EXPECT_EQ(counters().streams_now, 0u);
}

TEST_F(ServerStreamsTest, SoDoesTheStopOfTheServer) {
  Serve();
  Open(7);
  server->Stop();
  EXPECT_EQ(TakeLog(), Log());
  RunReady();
  EXPECT_EQ(TakeLog(), (Log{"1 completed", "1 destroyed"}));
  EXPECT_EQ(peer->AwaitGoodbye(),
            absl::UnavailableError("the server is stopping"));
}

TEST_F(ServerStreamsTest, SoDoesTheEndOfTheServer) {
  Serve();
  Open(7);
  server.reset();
  EXPECT_EQ(TakeLog(), (Log{"1 completed", "1 destroyed"}));
}

TEST_F(ServerStreamsTest, SoDoesAViolationOfTheProtocol) {
  Serve();
  Open(7);
  peer->SendBytes(std::string(1, '\0'));
  EXPECT_TRUE(absl::IsInvalidArgument(peer->AwaitGoodbye()));
  EXPECT_EQ(TakeLog(), (Log{"1 completed", "1 destroyed"}));
}

TEST_F(ServerStreamsTest, AStreamMayStopTheServerWithinItsOwnCall) {
  Serve();
  Open(7);
  service.streams[0]->meanwhile = [&] { server->Stop(); };
  SendData({7}, "a");
  EXPECT_EQ(TakeLog(), (Log{"1 next a", "1 completed", "1 destroyed"}));
}

TEST_F(ServerStreamsTest, AClientThatGoesWithinACallIsNoticedAfterwards) {
  Serve();
  Open(7);
  service.streams[0]->meanwhile = [&] {
    peer->Close();
    loop.poll();
  };
  SendData({7}, "a");
  EXPECT_EQ(TakeLog(), (Log{"1 next a", "1 completed", "1 destroyed"}));
}

TEST_F(ServerStreamsTest, TheServerMayStopWhileACallRunsTheLoop) {
  Serve();
  Open(7);
  service.streams[0]->meanwhile = [&] {
    server->Stop();
    loop.poll();
  };
  SendData({7}, "a");
  EXPECT_EQ(TakeLog(), (Log{"1 next a", "1 completed", "1 destroyed"}));
}

TEST_F(ServerStreamsTest, AStreamThatCompletesOutOfTurnIsDestroyedSoon) {
  Serve();
  Open(7);
  service.streams[0]->Finish();
  EXPECT_EQ(TakeLog(), Log());
  RunReady();
  EXPECT_EQ(TakeLog(), (Log{"1 completed", "1 destroyed"}));
  EXPECT_EQ(ReceiveEnd(7).code(), 0);
}

TEST_F(ServerStreamsTest, AStreamThatCompletesWithinACallOutlivesTheCall) {
  Serve();
  Open(7);
  service.streams[0]->meanwhile = [&] {
    service.streams[0]->Finish();
    loop.poll();
  };
  SendData({7}, "a");
  EXPECT_EQ(TakeLog(), (Log{"1 next a", "1 completed", "1 destroyed"}));
  EXPECT_EQ(ReceiveEnd(7).code(), 0);
}

TEST_F(ServerStreamsTest, FramesThatCrossTheEndOfTheServerAreIgnored) {
  Serve();
  Open(7);
  service.streams[0]->Finish();
  SendData({7}, "late");
  SendError(7, "late");
  End(7);
  EXPECT_EQ(TakeLog(), (Log{"1 completed", "1 destroyed"}));
  EXPECT_EQ(counters().protocol_violations, 0u);

  // The id is free again.
  Open(7);
  SendData({7}, "new");
  EXPECT_EQ(TakeLog(), Log{"2 next new"});
}

TEST_F(ServerStreamsTest, AnIdInUseBreaksTheProtocol) {
  Serve();
  Open(7);
  Open(7);
  EXPECT_EQ(peer->AwaitGoodbye(),
            absl::InvalidArgumentError("stream id 7 is in use"));
  EXPECT_EQ(TakeLog(), (Log{"1 completed", "1 destroyed"}));
}

TEST_F(ServerStreamsTest, AUnaryMethodCannotBeOpened) {
  Serve();
  Open(7, "Echo");
  const RpcStatus status = ReceiveEnd(7);
  EXPECT_EQ(status.code(), 12);
  EXPECT_EQ(status.text(), "lab.Lab.Echo is not a stream");
  EXPECT_EQ(counters().streams_refused, 1u);
}

TEST_F(ServerStreamsTest, AnUnknownMethodCannotBeOpened) {
  Serve();
  StreamOpenFrame open;
  open.set_stream_id(7);
  open.set_method_id(1000);
  peer->Send(Frame::kStreamOpen, open);
  const RpcStatus status = ReceiveEnd(7);
  EXPECT_EQ(status.code(), 12);
  EXPECT_EQ(status.text(), "no method has the id 1000");
}

TEST_F(ServerStreamsTest, StreamsBeyondTheLimitAreRefusedAndTheRestGoOn) {
  ServerOptions options;
  options.limits.max_streams = 2;
  Serve(options);
  Open(1);
  Open(2);
  Open(3);
  const RpcStatus status = ReceiveEnd(3);
  EXPECT_EQ(status.code(), 8);
  EXPECT_EQ(status.text(), "max_streams, 2, are open");
  SendData({1, 2, 3}, "a");
  EXPECT_EQ(TakeLog(), (Log{"1 next a", "2 next a"}));
  End(1);
  Open(3);
  EXPECT_EQ(service.streams.size(), 3u);
}

TEST_F(ServerStreamsTest, WhatAStreamSendsArrivesInOrderAndBeforeItsEnd) {
  Serve();
  Open(7);
  EXPECT_TRUE(service.streams[0]->Say("a", 5));
  EXPECT_TRUE(service.streams[0]->Say("b", 6));
  service.streams[0]->Finish();
  EXPECT_FALSE(service.streams[0]->Say("c"));
  StreamDataFrame data = ReceiveData();
  ASSERT_EQ(data.stream_ids_size(), 1);
  EXPECT_EQ(data.stream_ids(0), 7u);
  EXPECT_EQ(data.message().payload(), "a");
  EXPECT_EQ(data.message().call_id(), 5);
  data = ReceiveData();
  EXPECT_EQ(data.message().payload(), "b");
  EXPECT_EQ(data.message().call_id(), 6);
  ReceiveEnd(7);
}

TEST_F(ServerStreamsTest, WhatAStreamSendsWhileItCompletesStillArrives) {
  Serve();
  Open(7);
  service.streams[0]->meanwhile = [&] { service.streams[0]->Say("bye"); };
  End(7);
  EXPECT_EQ(ReceiveData().message().payload(), "bye");
  ReceiveEnd(7);
}

TEST_F(ServerStreamsTest, OneMessageForManyStreamsIsOneFrameInOneWrite) {
  Serve();
  for (uint64_t id = 1; id <= 100; ++id) {
    Open(id);
  }
  const uint64_t frames = counters().frames_written;
  const uint64_t writes = counters().writes;
  for (ProbeStream* stream : service.streams) {
    EXPECT_TRUE(stream->Say("event"));
  }
  RunReady();
  EXPECT_EQ(counters().frames_written, frames + 1);
  EXPECT_EQ(counters().writes, writes + 1);
  const StreamDataFrame data = ReceiveData();
  ASSERT_EQ(data.stream_ids_size(), 100);
  for (int i = 0; i < 100; ++i) {
    EXPECT_EQ(data.stream_ids(i), static_cast<uint64_t>(i + 1));
  }
}

TEST_F(ServerStreamsTest, OnlyTheSameMessageIsShared) {
  Serve();
  Open(1);
  Open(2);
  service.streams[0]->Say("a");
  service.streams[1]->Say("b");
  service.streams[0]->Say("b");
  service.streams[1]->Say("b", 1);
  std::vector<std::pair<std::string, int>> received;
  for (int i = 0; i < 3; ++i) {
    const StreamDataFrame data = ReceiveData();
    received.emplace_back(data.message().payload(), data.stream_ids_size());
  }
  EXPECT_EQ(received, (std::vector<std::pair<std::string, int>>{
                          {"a", 1}, {"b", 2}, {"b", 1}}));
}

TEST_F(ServerStreamsTest, TheSameMessageTwiceArrivesTwice) {
  Serve();
  Open(1);
  Open(2);
  for (int i = 0; i < 2; ++i) {
    service.streams[0]->Say("event");
    service.streams[1]->Say("event");
  }
  EXPECT_EQ(ReceiveData().stream_ids_size(), 2);
  EXPECT_EQ(ReceiveData().stream_ids_size(), 2);
}

TEST_F(ServerStreamsTest, AMessageStaysBeforeAReplyThatFollowsIt) {
  Serve();
  Open(1);
  service.streams[0]->Say("event");
  CallFrame call;
  call.set_method_id(peer->IdOf("Forget"));
  peer->Send(Frame::kCall, call);
  EXPECT_EQ(ReceiveData().message().payload(), "event");
  const auto frame = peer->Receive();
  EXPECT_TRUE(frame && frame->has_reply());
}

TEST_F(ServerStreamsTest, AMessageTooLongForTheClientIsRefused) {
  Serve();
  Open(1);
  EXPECT_FALSE(service.streams[0]->Say(std::string(1 << 20, 'x')));
  EXPECT_TRUE(service.streams[0]->Say(std::string((1 << 20) - 100, 'x')));
  EXPECT_EQ(ReceiveData().message().payload().size(), (1u << 20) - 100);
}

TEST_F(ServerStreamsTest, ASharedFrameStaysWithinTheLimitOfTheClient) {
  Serve();
  const size_t size = (1 << 20) - 500;
  for (uint64_t id = 1; id <= 100; ++id) {
    Open(id);
  }
  for (ProbeStream* stream : service.streams) {
    EXPECT_TRUE(stream->Say(std::string(size, 'x')));
  }
  int streams = 0;
  while (streams < 100) {
    const StreamDataFrame data = ReceiveData();
    ASSERT_EQ(data.message().payload().size(), size);
    EXPECT_LE(data.ByteSizeLong(), 1u << 20);
    streams += data.stream_ids_size();
  }
}

TEST_F(ServerStreamsTest, AnUnreadStreamHoldsUpNobodyAndEndsWhenTooMuchWaits) {
  ServerOptions options;
  options.limits.max_outbox_bytes = 1'000'000;
  Serve(options);
  Open(1);
  const auto unread = std::move(peer);
  peer = NewPeer();
  Open(1);

  // The second client reads everything, the first nothing.
  const std::string event(1000, 'x');
  int sent = 0;
  for (int i = 0; i < 5000; ++i) {
    // The first stream may be gone by now.
    if (counters().streams_now == 2 && service.streams[0]->Say(event)) {
      ++sent;
    }
    ASSERT_TRUE(service.streams[1]->Say(event));
    ASSERT_EQ(ReceiveData().message().payload(), event);
  }
  EXPECT_GT(sent, 900);
  EXPECT_LT(sent, 2000);
  EXPECT_EQ(counters().outbox_overflows, 1u);
  EXPECT_EQ(TakeLog(), (Log{"1 completed", "1 destroyed"}));
  EXPECT_EQ(counters().connections_now, 1u);
}

TEST_F(ServerStreamsTest, OverflowWithinACallEndsTheStreamAfterIt) {
  ServerOptions options;
  options.limits.max_outbox_bytes = 1'000'000;
  Serve(options);
  Open(1);
  service.streams[0]->meanwhile = [&] {
    int64_t count = 0;
    while (service.streams[0]->Say(std::string(1000, 'x'), ++count)) {
    }
    loop.poll();
  };
  SendData({1}, "a");
  EXPECT_EQ(TakeLog(), (Log{"1 next a", "1 completed", "1 destroyed"}));
}

TEST_F(ServerStreamsTest, NothingIsSentOnceTheClientIsGone) {
  Serve();
  Open(1);
  service.streams[0]->meanwhile = [&] {
    EXPECT_FALSE(service.streams[0]->Say("anybody there?"));
  };
  peer->Close();
  RunReady();
  EXPECT_EQ(TakeLog(), (Log{"1 completed", "1 destroyed"}));
}

}  // namespace
}  // namespace rpc::transport
