// What becomes of the messages that streams send.

#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "core/common/rpc/transport/testing/probe_service.h"

namespace rpc::transport {
namespace {

using StreamSending = ProbeTest;

TEST_F(StreamSending, WhatAStreamSendsArrivesInOrderAndBeforeItsEnd) {
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

TEST_F(StreamSending, WhatAStreamSendsWhileItCompletesStillArrives) {
  Serve();
  Open(7);
  service.streams[0]->meanwhile = [&] { service.streams[0]->Say("bye"); };
  End(7);
  EXPECT_EQ(ReceiveData().message().payload(), "bye");
  ReceiveEnd(7);
}

TEST_F(StreamSending, OneMessageForManyStreamsIsOneFrameInOneWrite) {
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

TEST_F(StreamSending, OnlyTheSameMessageIsShared) {
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

TEST_F(StreamSending, TheSameMessageTwiceArrivesTwice) {
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

TEST_F(StreamSending, AMessageStaysBeforeAReplyThatFollowsIt) {
  Serve();
  Open(1);
  CallFrame call;
  lab::Text text;
  text.set_text("event");
  call.set_method_id(peer->IdOf("Echo"));
  text.SerializeToString(call.mutable_request());
  peer->Send(Frame::kCall, call);
  EXPECT_EQ(ReceiveData().message().payload(), "event");
  const auto frame = peer->Receive();
  EXPECT_TRUE(frame && frame->has_reply());
}

TEST_F(StreamSending, AMessageTooLongForTheClientEndsItsStream) {
  Serve();
  Open(1);
  // What the frame holds besides: the stream's id, tags and lengths.
  constexpr size_t kFrameBytes = 15;
  constexpr size_t kLongest = (1 << 20) - kFrameBytes;
  EXPECT_TRUE(service.streams[0]->Say(std::string(kLongest, 'x')));
  EXPECT_EQ(ReceiveData().message().payload().size(), kLongest);
  EXPECT_FALSE(service.streams[0]->Say(std::string(kLongest + 1, 'x')));
  EXPECT_FALSE(service.streams[0]->Say("short"));
  EXPECT_EQ(
      ReceiveEnd(1).text(),
      "a message takes a frame of 1048577 bytes, more than the client's "
      "max_frame_bytes, 1048576: it is lost, and so is what comes until the "
      "client opens the stream anew and subscribes again");
  RunReady();
  EXPECT_EQ(TakeLog(), (Log{"1 completed", "1 destroyed"}));
}

TEST_F(StreamSending, AMessageThatTheOutboxHasNoRoomForIsNotSentAfterAll) {
  ServerOptions options;
  options.limits.max_outbox_bytes = 8'192;
  options.limits.busy_outbox_bytes = 8'192;
  Serve(options);
  Open(1);
  EXPECT_FALSE(service.streams[0]->Say(std::string(9'000, 'x')));
  const std::optional<Frame> frame = peer->Receive();
  EXPECT_TRUE(frame && frame->has_goodbye());
}

TEST_F(StreamSending, ASharedFrameStaysWithinTheLimitOfTheClient) {
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

TEST_F(StreamSending, AnUnreadStreamHoldsUpNobodyAndEndsWhenTooMuchWaits) {
  ServerOptions options;
  options.limits.max_outbox_bytes = 1'000'000;
  options.limits.busy_outbox_bytes = 1'000'000;
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
  EXPECT_EQ(counters().limit_hits.max_outbox_bytes, 1u);
  EXPECT_EQ(TakeLog(), (Log{"1 completed", "1 destroyed"}));
  EXPECT_EQ(counters().connections_now, 1u);
}

TEST_F(StreamSending, OverflowWithinACallEndsTheStreamAfterIt) {
  ServerOptions options;
  options.limits.max_outbox_bytes = 1'000'000;
  options.limits.busy_outbox_bytes = 1'000'000;
  Serve(options);
  Open(1);
  service.streams[0]->meanwhile = [&] {
    int64_t count = 0;
    while (service.streams[0]->Say(std::string(1000, 'x'), ++count)) {
    }
    loop.RunReady();
  };
  SendData(1, "a");
  EXPECT_EQ(TakeLog(), (Log{"1 next a", "1 completed", "1 destroyed"}));
}

TEST_F(StreamSending, NothingIsSentOnceTheClientIsGone) {
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
