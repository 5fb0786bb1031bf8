// Each limit is kept to the number: what is accepted at it, what is refused
// beyond it and in which words, that it is counted under its own name, that the
// host's records name the client, and that another client notices nothing.
// The limits of streams are in stream_limits_unittest.cc.

#include "core/common/rpc/serving/limits.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>

#include "absl/strings/str_cat.h"
#include "core/common/rpc/transport/testing/limits_test_support.h"

namespace rpc::transport {
namespace {

using lab::Lab_Stub;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

TEST_F(LimitsTest, ServerTurnsAwayAConnectionBeyondMaxConnections) {
  Serve({.max_connections = 2});
  auto last = NewClient();
  EXPECT_THAT(hits(), IsEmpty());
  const absl::Status refusal =
      absl::ResourceExhaustedError("max_connections, 2, are open");
  for (int i = 0; i < 2; ++i) {
    EXPECT_EQ(Client::Adopt(lab_->loop, lab_->Connect()).status(), refusal);
  }
  EXPECT_EQ(hits(), (Hits{{"max_connections", 2}}));
  const std::string record = absl::StrCat("Refused the connection of ",
                                          Process(), ": ", refusal.ToString());
  EXPECT_THAT(TakeRecords(), ElementsAre(record, record));
  ExpectBystanderIsServed();
  last.reset();
  lab_->RunReady();
  EXPECT_NE(NewClient(), nullptr);
}

TEST_F(LimitsTest, ServerRefusesACallBeyondMaxCalls) {
  Serve({.max_calls = 2});
  const auto client = NewClient();
  TextCall calls[4];
  calls[0].Start(*client, &Lab_Stub::Park, "");
  calls[1].Start(*client, &Lab_Stub::Park, "");
  lab_->RunReady();
  EXPECT_EQ(lab_->service.parked.size(), 2u);
  EXPECT_THAT(hits(), IsEmpty());

  calls[2].Start(*client, &Lab_Stub::Park, "");
  calls[3].Start(*client, &Lab_Stub::Park, "");
  lab_->RunReady();
  const absl::Status refusal =
      absl::ResourceExhaustedError("max_calls, 2, are in flight");
  EXPECT_EQ(calls[2].controller.status(), refusal);
  EXPECT_EQ(calls[3].controller.status(), refusal);
  EXPECT_EQ(hits(), (Hits{{"max_calls", 2}}));
  // The second refusal of its kind is only counted.
  EXPECT_THAT(TakeRecords(),
              ElementsAre(absl::StrCat("Refused a request of ", Who("tester"),
                                       ": ", refusal.ToString())));
  ExpectBystanderIsServed();
  lab_->service.parked[0].Complete();
  lab_->service.parked[1].Complete();
  lab_->RunReady();
  EXPECT_TRUE(CallText(*client, &Lab_Stub::Echo, "").ok());
}

TEST_F(LimitsTest, MaxCallsCountsAbandonedCallsUntilTheirMethodsEnd) {
  Serve({.max_calls = 2});
  const auto client = NewClient();
  TextCall cancelled;
  cancelled.Start(*client, &Lab_Stub::Park, "");
  cancelled.controller.StartCancel();
  TextCall late;
  late.controller.set_timeout(std::chrono::milliseconds(1));
  late.Start(*client, &Lab_Stub::Park, "");
  lab_->RunUntil([&] {
    return lab_->server->counters().calls_expired +
               lab_->server->counters().calls_cancelled ==
           2;
  });
  EXPECT_EQ(lab_->server->counters().calls_now, 0u);
  EXPECT_EQ(lab_->server->counters().calls_abandoned_now, 2u);
  EXPECT_THAT(hits(), IsEmpty());

  const absl::Status refusal =
      absl::ResourceExhaustedError("max_calls, 2, are in flight");
  EXPECT_EQ(CallText(*client, &Lab_Stub::Echo, "").status(), refusal);
  EXPECT_EQ(hits(), (Hits{{"max_calls", 1}}));
  ExpectBystanderIsServed();
  lab_->service.parked[0].Complete();
  lab_->RunReady();
  EXPECT_EQ(lab_->server->counters().calls_abandoned_now, 1u);
  EXPECT_TRUE(CallText(*client, &Lab_Stub::Echo, "").ok());
  lab_->service.parked[1].Complete();
  lab_->RunReady();
  EXPECT_EQ(lab_->server->counters().calls_abandoned_now, 0u);
}

TEST_F(LimitsTest, FramesBeyondMaxClientFrameBytesAreNeitherSentNorAccepted) {
  Serve({.max_client_frame_bytes = 10'000});
  const auto client = NewClient();
  // A frame of 10,000 bytes holds a text of 9,989.
  const std::string longest(9'989, 'x');
  EXPECT_TRUE(CallText(*client, &Lab_Stub::Echo, longest).ok());
  EXPECT_THAT(hits(), IsEmpty());

  // Our client fails the call without sending it.
  EXPECT_EQ(CallText(*client, &Lab_Stub::Echo, longest + 'x').status(),
            absl::ResourceExhaustedError(
                "the request takes a frame of 10001 bytes, more than the "
                "server's max_client_frame_bytes, 10000"));
  EXPECT_EQ(HitsOf(client->counters()), (Hits{{"max_client_frame_bytes", 1}}));
  EXPECT_TRUE(CallText(*client, &Lab_Stub::Echo, longest).ok());

  // A client that sends it is closed.
  const auto peer = lab_->NewPeer();
  CallFrame call;
  call.set_request(std::string(9'989 + 6, 'x'));
  ASSERT_EQ(FrameSize(call), 10'001u);
  peer->Send(Frame::kCall, call);
  EXPECT_EQ(
      OutcomeOf(peer->AwaitGoodbye()),
      Closed(Who("raw"), "max_client_frame_bytes",
             absl::ResourceExhaustedError("a frame of 10001 bytes exceeds "
                                          "max_client_frame_bytes, 10000")));
  ExpectBystanderIsServed();
}

// Nothing but the length of the frame has come when the connection is closed.
TEST_F(LimitsTest, AFrameBeyondMaxClientFrameBytesIsRefusedBeforeItHasCome) {
  Serve({});
  const auto peer = lab_->NewPeer();
  peer->SendBytes("\x81\x80\x04");
  EXPECT_EQ(
      OutcomeOf(peer->AwaitGoodbye()),
      Closed(Who("raw"), "max_client_frame_bytes",
             absl::ResourceExhaustedError("a frame of 65537 bytes exceeds "
                                          "max_client_frame_bytes, 65536")));
  ExpectBystanderIsServed();
}

// Whatever a client takes, and although it may send more.
TEST_F(LimitsTest, ServerSendsNoFrameBeyondItsOwnMaxFrameBytes) {
  Serve({.max_frame_bytes = 10'000});
  const auto client = NewClient();
  const std::string longest(9'989, 'x');
  EXPECT_TRUE(CallText(*client, &Lab_Stub::Echo, longest).ok());
  EXPECT_THAT(hits(), IsEmpty());

  EXPECT_EQ(
      OutcomeOf(CallText(*client, &Lab_Stub::Echo, longest + 'x').status()),
      Refused(Who("tester"), "max_frame_bytes",
              absl::ResourceExhaustedError(
                  "the response takes a frame of 10001 bytes, more than "
                  "max_frame_bytes, 10000")));
  ExpectBystanderIsServed();
}

TEST_F(LimitsTest, AResponseBeyondTheClientsMaxFrameBytesFailsItsCall) {
  Serve({});
  ClientOptions options;
  options.name = "small";
  options.limits.max_frame_bytes = 10'000;
  const auto client = lab_->NewClient(options);
  const std::string longest(9'989, 'x');
  EXPECT_TRUE(CallText(*client, &Lab_Stub::Echo, longest).ok());
  EXPECT_THAT(hits(), IsEmpty());

  EXPECT_EQ(
      OutcomeOf(CallText(*client, &Lab_Stub::Echo, longest + 'x').status()),
      Refused(Who("small"), "max_frame_bytes",
              absl::ResourceExhaustedError(
                  "the response takes a frame of 10001 bytes, more than the "
                  "client's max_frame_bytes, 10000")));
  ExpectBystanderIsServed();
}

// Has the server reply with a frame of `size` bytes.
void CallForFrameOf(RawPeer& peer, int64_t size) {
  lab::Number text_size;
  text_size.set_number(size - 12);
  CallFrame call;
  call.set_method_id(peer.IdOf("Make"));
  text_size.SerializeToString(call.mutable_request());
  peer.Send(Frame::kCall, call);
}

void CallPark(RawPeer& peer) {
  peer.Send(Frame::kCall, peer.CallOf("Park", 1));
}

TEST_F(LimitsTest, ServerClosesAConnectionThatWouldExceedMaxOutboxBytes) {
  Serve({.max_outbox_bytes = 100'000, .busy_outbox_bytes = 100'000});
  const auto peer = lab_->NewPeer();
  // In front of a frame stands its length, which takes three bytes.
  CallForFrameOf(*peer, 99'997);
  const auto reply = peer->Receive();
  ASSERT_TRUE(reply && reply->has_reply());
  EXPECT_EQ(FrameSize(reply->reply()), 99'997u);
  EXPECT_THAT(hits(), IsEmpty());

  CallForFrameOf(*peer, 99'998);
  EXPECT_EQ(OutcomeOf(peer->AwaitGoodbye()),
            Closed(Who("raw"), "max_outbox_bytes",
                   absl::ResourceExhaustedError(
                       "the client reads too slowly: more than "
                       "max_outbox_bytes, 100000, would wait for it")));
  ExpectBystanderIsServed();
}

// The reply of 1,000,000 bytes, with its length of three bytes, counts whole
// although the socket has taken a part of it. That is as much as may wait.
TEST_F(LimitsTest, ServerReadsOnWhileBusyOutboxBytesWait) {
  Serve({.busy_outbox_bytes = 1'000'003});
  const auto peer = lab_->NewPeer();
  CallForFrameOf(*peer, 1'000'000);
  CallPark(*peer);
  lab_->RunReady();
  EXPECT_GT(lab_->server->Report().connections[1].queued_bytes, 0u);
  EXPECT_EQ(lab_->service.parked.size(), 1u);
  EXPECT_THAT(hits(), IsEmpty());
  lab_->service.parked[0].Complete();
}

// The same reply is one byte too much: no further call is read.
TEST_F(LimitsTest, ServerPausesReadingOneByteBeyondBusyOutboxBytes) {
  Serve({.busy_outbox_bytes = 1'000'002});
  const auto peer = lab_->NewPeer();
  CallForFrameOf(*peer, 1'000'000);
  CallPark(*peer);
  lab_->RunReady();
  EXPECT_TRUE(lab_->service.parked.empty());
  EXPECT_EQ(hits(), (Hits{{"busy_outbox_bytes", 1}}));
  ExpectBystanderIsServed();
  // The call is read once the client has read the reply.
  const auto reply = peer->Receive();
  EXPECT_TRUE(reply && reply->has_reply());
  lab_->RunReady();
  ASSERT_EQ(lab_->service.parked.size(), 1u);
  lab_->service.parked[0].Complete();
  EXPECT_THAT(TakeRecords(), IsEmpty());
}

TEST(LimitsDeathTest, AServerWithInvalidLimitsEndsTheProcess) {
  ServerOptions options;
  options.limits.max_frame_bytes = serving::kMinFrameBytes - 1;
  EXPECT_DEATH(Lab lab(options), "max_frame_bytes is 8191, not 8192 to");
}

TEST(ClientLimits, AdoptRefusesInvalidLimitsBeforeAnythingIsSent) {
  Lab lab;
  ClientOptions options;
  options.limits.max_calls = 0;
  EXPECT_EQ(Client::Adopt(lab.loop, lab.Connect(), options).status(),
            absl::InvalidArgumentError("max_calls is 0, not 1 to 1000000"));
  EXPECT_EQ(lab.server->counters().frames_read, 0u);
  EXPECT_EQ(Client::Connect(lab.loop, "/no/such/socket", options).status(),
            absl::InvalidArgumentError("max_calls is 0, not 1 to 1000000"));
}

TEST_F(LimitsTest, ServerClosesAConnectionWithoutAHelloWithinHandshakeTimeout) {
  Serve({.handshake_timeout = std::chrono::milliseconds(5)});
  EXPECT_THAT(hits(), IsEmpty());
  RawPeer silent(lab_->loop, lab_->Connect());
  EXPECT_EQ(OutcomeOf(silent.AwaitGoodbye()),
            Closed(Process(), "handshake_timeout",
                   absl::DeadlineExceededError(
                       "no hello within handshake_timeout, 5 ms")));
  ExpectBystanderIsServed();
}

// The start of a call whose frame has 60,000 bytes.
std::string StartOfAFrame() {
  return "\xe0\xd4\x03\x1a";
}

std::string RestOfAFrame() {
  return "\xdc\xd4\x03\x22\xd8\xd4\x03" + std::string(59'992, 'x');
}

TEST_F(LimitsTest, ServerClosesAConnectionWhoseFrameIsNotWholeInTime) {
  Serve({.frame_timeout = std::chrono::milliseconds(300)});
  const auto whole = lab_->NewPeer();
  whole->SendBytes(StartOfAFrame());
  lab_->RunReady();
  whole->SendBytes(RestOfAFrame());
  whole->Receive();
  EXPECT_THAT(hits(), IsEmpty());

  const auto half = lab_->NewPeer();
  half->SendBytes(StartOfAFrame());
  EXPECT_EQ(
      OutcomeOf(half->AwaitGoodbye()),
      Closed(Who("raw"), "frame_timeout",
             absl::DeadlineExceededError(
                 "a frame did not arrive whole within frame_timeout, 300 ms")));
  // Its time began earlier, and ended with its frame.
  EXPECT_EQ(lab_->server->counters().connections_now, 2u);
  ExpectBystanderIsServed();
}

TEST_F(LimitsTest, DrippingBytesDoesNotProlongFrameTimeout) {
  Serve({.frame_timeout = std::chrono::milliseconds(50)});
  const auto peer = lab_->NewPeer();
  peer->SendBytes(StartOfAFrame());
  std::unique_ptr<loop::Timer> timer;
  int drips = 0;
  std::function<void()> drip = [&] {
    peer->SendBytes("x");
    ++drips;
    timer = lab_->loop.RunAfter(std::chrono::milliseconds(1), drip);
  };
  drip();
  EXPECT_TRUE(absl::IsDeadlineExceeded(peer->AwaitGoodbye()));
  // One in each millisecond of the time, and a few until the goodbye is read:
  // none comes before a timer that is due earlier.
  EXPECT_LE(drips, 70);
  EXPECT_EQ(hits(), (Hits{{"frame_timeout", 1}}));
}

// A client that is read no further has all the time it wants to send the frame
// behind the one that waits.
TEST_F(LimitsTest, FrameTimeoutDoesNotCountWhileTheServerDoesNotRead) {
  Serve({.busy_outbox_bytes = 1'000'002,
         .frame_timeout = std::chrono::milliseconds(5)});
  const auto paused = lab_->NewPeer();
  CallForFrameOf(*paused, 1'000'000);
  CallPark(*paused);
  paused->SendBytes(StartOfAFrame());
  lab_->RunReady();
  EXPECT_EQ(hits(), (Hits{{"busy_outbox_bytes", 1}}));
  const auto other = lab_->NewPeer();
  other->SendBytes(StartOfAFrame());
  EXPECT_TRUE(absl::IsDeadlineExceeded(other->AwaitGoodbye()));
  EXPECT_EQ(lab_->server->counters().connections_now, 2u);
  // When it is read again its time begins. How much of the reply it has read by
  // then, and so whether a goodbye fits its socket, is the machine's.
  paused->AwaitGoodbye().IgnoreError();
  EXPECT_EQ(hits(), (Hits{{"busy_outbox_bytes", 1}, {"frame_timeout", 2}}));
  ASSERT_EQ(lab_->service.parked.size(), 1u);
  lab_->service.parked[0].Complete();
}

// A frame that is whole has no time any more, though the server handles it only
// when the client has taken its replies.
TEST_F(LimitsTest, FrameTimeoutEndsWithAFrameThatWaitsForThePauseToEnd) {
  Serve({.busy_outbox_bytes = 1'000'002,
         .frame_timeout = std::chrono::milliseconds(300)});
  const auto paused = lab_->NewPeer();
  CallForFrameOf(*paused, 1'000'000);
  paused->SendBytes(StartOfAFrame());
  lab_->RunReady();
  paused->SendBytes(RestOfAFrame());
  lab_->RunReady();
  EXPECT_EQ(hits(), (Hits{{"busy_outbox_bytes", 1}}));
  // Its time began later.
  const auto other = lab_->NewPeer();
  other->SendBytes(StartOfAFrame());
  EXPECT_TRUE(absl::IsDeadlineExceeded(other->AwaitGoodbye()));
  EXPECT_EQ(lab_->server->counters().connections_now, 2u);
  EXPECT_TRUE(paused->Receive()->has_reply());
  EXPECT_TRUE(paused->Receive()->has_reply());
}

// While too many replies wait, half a frame in front of the pause is read on,
// and so its time counts.
TEST_F(LimitsTest, ABusyClientHasNoMoreThanFrameTimeoutEither) {
  Serve({.busy_outbox_bytes = 1'000'002,
         .frame_timeout = std::chrono::milliseconds(5)});
  const auto peer = lab_->NewPeer();
  CallForFrameOf(*peer, 1'000'000);
  peer->SendBytes(StartOfAFrame());
  // Its socket is full, so it gets no goodbye.
  lab_->loop.RunUntil(
      [&] { return lab_->server->counters().connections_now == 1; });
  EXPECT_EQ(hits(), (Hits{{"frame_timeout", 1}}));
}

}  // namespace
}  // namespace rpc::transport
