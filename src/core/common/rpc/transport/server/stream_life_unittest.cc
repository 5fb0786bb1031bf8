// What streams may rely on while a server runs them: who calls them when, and
// when they are destroyed.

#include <gtest/gtest.h>

#include <string>

#include "core/common/rpc/transport/testing/probe_service.h"

namespace rpc::transport {
namespace {

using StreamLife = ProbeTest;

TEST_F(StreamLife, FramesReachTheirStream) {
  Serve();
  Open(7);
  Open(8);
  SendData(8, "a");
  SendError(7, "b");
  SendData(7, "c");
  EXPECT_EQ(TakeLog(), (Log{"2 next a", "1 error b", "1 next c"}));
  EXPECT_EQ(counters().streams_now, 2u);
}

TEST_F(StreamLife, TheEndOfTheClientCompletesAndDestroysTheStream) {
  Serve();
  Open(7);
  End(7);
  EXPECT_EQ(TakeLog(), (Log{"1 completed", "1 destroyed"}));
  EXPECT_EQ(ReceiveEnd(7).code(), 0);
  EXPECT_EQ(counters().streams_now, 0u);
}

TEST_F(StreamLife, AStreamThatForgetsToCompleteEndsAllTheSame) {
  Serve();
  Open(7);
  service.streams[0]->completes = false;
  End(7);
  EXPECT_EQ(TakeLog(), (Log{"1 completed", "1 destroyed"}));
  EXPECT_EQ(ReceiveEnd(7).code(), 0);
}

TEST_F(StreamLife, ALostConnectionCompletesAndDestroysItsStreams) {
  Serve();
  Open(8);
  Open(7);
  peer->Close();
  RunReady();
  EXPECT_EQ(TakeLog(),
            (Log{"2 completed", "2 destroyed", "1 completed", "1 destroyed"}));
  EXPECT_EQ(counters().streams_now, 0u);
}

TEST_F(StreamLife, AStoppedServerCompletesAndDestroysItsStreams) {
  Serve();
  Open(7);
  server->Stop();
  EXPECT_EQ(TakeLog(), Log());
  RunReady();
  EXPECT_EQ(TakeLog(), (Log{"1 completed", "1 destroyed"}));
  EXPECT_EQ(peer->AwaitGoodbye(),
            absl::UnavailableError("the server is stopping"));
}

TEST_F(StreamLife, ADestroyedServerCompletesAndDestroysItsStreams) {
  Serve();
  Open(7);
  server.reset();
  EXPECT_EQ(TakeLog(), (Log{"1 completed", "1 destroyed"}));
}

TEST_F(StreamLife, AViolationOfTheProtocolCompletesAndDestroysTheStreams) {
  Serve();
  Open(7);
  peer->SendBytes(std::string(1, '\0'));
  EXPECT_TRUE(absl::IsInvalidArgument(peer->AwaitGoodbye()));
  EXPECT_EQ(TakeLog(), (Log{"1 completed", "1 destroyed"}));
}

TEST_F(StreamLife, AStreamMayStopTheServerWithinItsOwnCall) {
  Serve();
  Open(7);
  service.streams[0]->meanwhile = [&] { server->Stop(); };
  SendData(7, "a");
  // The next that it gets unsubscribes.
  EXPECT_EQ(TakeLog(),
            (Log{"1 next a", "1 next ", "1 completed", "1 destroyed"}));
}

TEST_F(StreamLife, AClientThatGoesWithinACallIsNoticedAfterwards) {
  Serve();
  Open(7);
  service.streams[0]->meanwhile = [&] {
    peer->Close();
    loop.RunReady();
  };
  SendData(7, "a");
  EXPECT_EQ(TakeLog(), (Log{"1 next a", "1 completed", "1 destroyed"}));
}

TEST_F(StreamLife, TheServerMayStopWhileACallRunsTheLoop) {
  Serve();
  Open(7);
  service.streams[0]->meanwhile = [&] {
    server->Stop();
    loop.RunReady();
  };
  SendData(7, "a");
  // The next that it gets unsubscribes.
  EXPECT_EQ(TakeLog(),
            (Log{"1 next a", "1 next ", "1 completed", "1 destroyed"}));
}

TEST_F(StreamLife, AStreamThatCompletesByItselfIsDestroyedSoon) {
  Serve();
  Open(7);
  service.streams[0]->Finish();
  EXPECT_EQ(TakeLog(), Log());
  RunReady();
  EXPECT_EQ(TakeLog(), (Log{"1 completed", "1 destroyed"}));
  EXPECT_EQ(ReceiveEnd(7).code(), 0);
}

TEST_F(StreamLife, AStreamThatCompletesWithinACallOutlivesTheCall) {
  Serve();
  Open(7);
  service.streams[0]->meanwhile = [&] {
    service.streams[0]->Finish();
    loop.RunReady();
  };
  SendData(7, "a");
  EXPECT_EQ(TakeLog(), (Log{"1 next a", "1 completed", "1 destroyed"}));
  EXPECT_EQ(ReceiveEnd(7).code(), 0);
}

TEST_F(StreamLife, AClientThatGoesWhileItsStreamCompletesIsNoticedOnce) {
  Serve();
  Open(7);
  service.streams[0]->Finish();
  service.streams[0]->meanwhile = [&] {
    peer->Close();
    loop.RunReady();
    // It counts until its stream has ended.
    EXPECT_EQ(counters().connections_now, 1u);
  };
  RunReady();
  EXPECT_EQ(counters().connections_now, 0u);
  EXPECT_EQ(TakeLog(), (Log{"1 completed", "1 destroyed"}));
  EXPECT_EQ(counters().streams_now, 0u);
}

TEST_F(StreamLife, AClientThatHasLeftKeepsItsPlaceUntilItsLastStreamHasEnded) {
  ServerOptions options;
  options.limits.max_connections = 1;
  Serve(options);
  Open(7);
  service.streams[0]->meanwhile = [&] {
    auto [ours, theirs] = torvane::SocketPair();
    server->Adopt(std::move(theirs));
    EXPECT_EQ(RawPeer(loop, std::move(ours)).AwaitGoodbye(),
              absl::ResourceExhaustedError("max_connections, 1, are open"));
  };
  peer->Close();
  RunReady();
  EXPECT_EQ(TakeLog(), (Log{"1 completed", "1 destroyed"}));
  EXPECT_EQ(counters().connections_refused, 1u);
  peer = NewPeer();
  EXPECT_EQ(counters().connections_now, 1u);
}

TEST_F(StreamLife, FramesThatCrossTheEndOfTheServerAreIgnored) {
  Serve();
  Open(7);
  service.streams[0]->Finish();
  SendData(7, "late");
  SendError(7, "late");
  End(7);
  EXPECT_EQ(TakeLog(), (Log{"1 completed", "1 destroyed"}));
  EXPECT_EQ(counters().protocol_violations, 0u);

  // The id is free again.
  Open(7);
  SendData(7, "new");
  EXPECT_EQ(TakeLog(), Log{"2 next new"});
}

// If a message could name many streams, each would parse it whole: a small
// frame would cost the server much work.
TEST_F(StreamLife, AMessageOfTheClientIsForOneStream) {
  Serve();
  Open(7);
  Open(8);
  StreamDataFrame data;
  data.add_stream_ids(7);
  data.add_stream_ids(8);
  peer->Send(Frame::kStreamData, data);
  EXPECT_EQ(peer->AwaitGoodbye(),
            absl::InvalidArgumentError(
                "stream_data of a client names one stream, not 2"));
  EXPECT_EQ(counters().protocol_violations, 1u);
  TakeLog();

  peer = NewPeer();
  peer->Send(Frame::kStreamData, StreamDataFrame());
  EXPECT_EQ(peer->AwaitGoodbye(),
            absl::InvalidArgumentError(
                "stream_data of a client names one stream, not 0"));
}

TEST_F(StreamLife, FramesForAStreamThatWasNeverOpenedAreIgnored) {
  Serve();
  Open(7);
  SendData(8, "a");
  SendError(8, "b");
  End(8);
  EXPECT_EQ(TakeLog(), Log());
  EXPECT_EQ(counters().protocol_violations, 0u);
  EXPECT_EQ(counters().streams_now, 1u);
}

TEST_F(StreamLife, AStreamThatHasCompletedByItselfGetsNoMoreFrames) {
  Serve();
  Open(7);
  const auto first = std::move(peer);
  peer = NewPeer();
  Open(1);
  service.streams[1]->meanwhile = [&] { service.streams[0]->Finish(); };

  // Both frames are read in the same turn, the second one's first.
  StreamDataFrame data;
  data.add_stream_ids(1);
  data.mutable_message()->set_payload(SubscriptionTo("a"));
  peer->Send(Frame::kStreamData, data);
  data.set_stream_ids(0, 7);
  first->Send(Frame::kStreamData, data);
  RunReady();
  EXPECT_EQ(TakeLog(), (Log{"2 next a", "1 completed", "1 destroyed"}));
}

TEST_F(StreamLife, AnIdInUseBreaksTheProtocol) {
  Serve();
  Open(7);
  Open(7);
  EXPECT_EQ(peer->AwaitGoodbye(),
            absl::InvalidArgumentError("stream id 7 is in use"));
  EXPECT_EQ(TakeLog(), (Log{"1 completed", "1 destroyed"}));
}

TEST_F(StreamLife, AUnaryMethodCannotBeOpened) {
  Serve();
  Open(7, "Echo");
  const RpcStatus status = ReceiveEnd(7);
  EXPECT_EQ(status.code(), 12);
  EXPECT_EQ(status.text(), "lab.Lab.Echo is not a stream");
  EXPECT_EQ(counters().streams_refused, 1u);
}

TEST_F(StreamLife, AnUnknownMethodCannotBeOpened) {
  Serve();
  StreamOpenFrame open;
  open.set_stream_id(7);
  open.set_method_id(1000);
  peer->Send(Frame::kStreamOpen, open);
  const RpcStatus status = ReceiveEnd(7);
  EXPECT_EQ(status.code(), 12);
  EXPECT_EQ(status.text(), "no method has the id 1000");
}

TEST_F(StreamLife, StreamsBeyondTheLimitAreRefusedAndTheRestGoOn) {
  ServerOptions options;
  options.limits.max_streams = 2;
  Serve(options);
  Open(1);
  Open(2);
  Open(3);
  const RpcStatus status = ReceiveEnd(3);
  EXPECT_EQ(status.code(), 8);
  EXPECT_EQ(status.text(), "max_streams, 2, are open");
  SendData(1, "a");
  SendData(2, "a");
  SendData(3, "a");
  EXPECT_EQ(TakeLog(), (Log{"1 next a", "2 next a"}));
  End(1);
  Open(3);
  EXPECT_EQ(service.streams.size(), 3u);
}

}  // namespace
}  // namespace rpc::transport
