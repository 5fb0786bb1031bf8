// Calls that end before they are answered: cancelled, too late, disconnected.

#include <gtest/gtest.h>

#include <chrono>
#include <string>

#include "core/common/rpc/testing/recording_call.h"
#include "core/common/rpc/transport/testing/lab.h"

namespace rpc::transport {
namespace {

using lab::Lab_Stub;
using std::chrono::milliseconds;
using torvane::CountingClosure;

// A call of Park that has reached the service.
class Cancellation : public ::testing::Test {
 protected:
  void Park(std::optional<milliseconds> timeout = std::nullopt) {
    if (timeout) {
      call.controller.set_timeout(*timeout);
    }
    call.Start(*client, &Lab_Stub::Park, "parked");
    lab.RunUntil([&] { return !lab.service.parked.empty(); });
  }
  serving::CallContext& controller() {
    return *lab.service.parked[0].controller;
  }
  void Complete() { lab.service.parked[0].Complete(); }
  const serving::Counters& counters() { return lab.server->counters(); }

  Lab lab;
  // Outlives the client, which may end it.
  TextCall call;
  std::unique_ptr<Client> client = lab.NewClient();
};

TEST_F(Cancellation, CancellingReachesTheMethodAndEndsTheCall) {
  Park();
  CountingClosure cancelled;
  controller().NotifyOnCancel(&cancelled);
  EXPECT_FALSE(controller().IsCanceled());
  call.controller.StartCancel();
  EXPECT_FALSE(call.over());
  lab.RunUntil([&] { return call.over() && cancelled.runs() > 0; });
  EXPECT_EQ(call.controller.status(),
            absl::CancelledError("the caller has cancelled it"));
  EXPECT_TRUE(controller().IsCanceled());
  EXPECT_EQ(counters().calls_cancelled, 1u);
  EXPECT_EQ(counters().calls_now, 0u);
  Complete();
  lab.RunReady();
  EXPECT_EQ(call.done.runs(), 1);
  EXPECT_EQ(cancelled.runs(), 1);
  EXPECT_EQ(counters().results_late, 1u);
}

TEST_F(Cancellation, CancellingBeforeTheCallHasLeftStillEndsIt) {
  call.Start(*client, &Lab_Stub::Echo, "x");
  call.controller.StartCancel();
  lab.RunReady();
  EXPECT_EQ(call.done.runs(), 1);
  EXPECT_EQ(call.controller.status().code(), absl::StatusCode::kCancelled);
  EXPECT_EQ(CallText(*client, &Lab_Stub::Echo, "next").value(), "next");
}

TEST_F(Cancellation, CancellingAfterTheReplyDoesNothing) {
  call.Start(*client, &Lab_Stub::Echo, "x");
  lab.RunUntil([&] { return call.over(); });
  call.controller.StartCancel();
  lab.RunReady();
  EXPECT_TRUE(call.controller.status().ok());
  EXPECT_EQ(call.done.runs(), 1);
}

TEST_F(Cancellation, CancellingWinsOverAReplyOnItsWay) {
  Park();
  Complete();
  call.controller.StartCancel();
  lab.RunReady();
  EXPECT_EQ(call.controller.status().code(), absl::StatusCode::kCancelled);
  EXPECT_EQ(counters().calls_cancelled, 0u);
  EXPECT_EQ(counters().protocol_violations, 0u);
}

TEST_F(Cancellation, CancellingWinsOverAReplyThatIsHandledNext) {
  TextCall first([&] { call.controller.StartCancel(); });
  first.Start(*client, &Lab_Stub::Echo, "1");
  call.Start(*client, &Lab_Stub::Echo, "2");
  // Both replies come in one read.
  lab.RunUntil([&] { return call.over(); });
  EXPECT_TRUE(first.controller.status().ok());
  EXPECT_EQ(call.controller.status().code(), absl::StatusCode::kCancelled);
}

TEST_F(Cancellation, CancellingTwiceCancelsOnce) {
  Park();
  call.controller.StartCancel();
  call.controller.StartCancel();
  lab.RunReady();
  EXPECT_EQ(call.done.runs(), 1);
  EXPECT_EQ(counters().calls_cancelled, 1u);
  Complete();
}

TEST_F(Cancellation, NoCancelIsSentForACallThatWasNeverSent) {
  call.controller.set_timeout(milliseconds(0));
  call.Start(*client, &Lab_Stub::Echo, "x");
  const uint64_t frames = client->counters().frames_written;
  call.controller.StartCancel();
  lab.RunReady();
  EXPECT_EQ(client->counters().frames_written, frames);
  EXPECT_EQ(call.done.runs(), 1);
  EXPECT_EQ(call.controller.status(),
            absl::DeadlineExceededError("no time was left for the call"));
}

TEST_F(Cancellation, CancellingWinsOverADeadlineThatHasPassed) {
  const auto first = lab.loop.RunAfter(milliseconds(0),
                                       [&] { call.controller.StartCancel(); });
  call.controller.set_timeout(milliseconds(1));
  call.Start(*client, &Lab_Stub::Park, "x");
  const uint64_t frames = client->counters().frames_written;
  // Both timers are due when the loop looks at them.
  asio::io_context elsewhere;
  asio::steady_timer(elsewhere, milliseconds(2)).wait();
  lab.RunReady();
  EXPECT_EQ(call.controller.status(),
            absl::CancelledError("the caller has cancelled it"));
  EXPECT_EQ(client->counters().frames_written, frames + 1);
  for (const auto& parked : lab.service.parked) {
    parked.Complete();
  }
}

TEST_F(Cancellation, ACancelOfAnUnknownCallIsIgnored) {
  const auto peer = lab.NewPeer();
  CancelFrame cancel;
  cancel.set_call_id(77);
  peer->Send(Frame::kCancel, cancel);
  CallFrame echo;
  echo.set_method_id(peer->IdOf("Echo"));
  peer->Send(Frame::kCall, echo);
  const auto reply = peer->Receive();
  EXPECT_TRUE(reply && reply->has_reply());
}

TEST_F(Cancellation, TheServerAnswersACancelledCallOnce) {
  const auto peer = lab.NewPeer();
  const CallFrame park = peer->CallOf("Park", 3);
  peer->Send(Frame::kCall, park);
  CancelFrame cancel;
  cancel.set_call_id(3);
  peer->Send(Frame::kCancel, cancel);
  auto reply = peer->Receive();
  ASSERT_TRUE(reply && reply->has_reply());
  EXPECT_EQ(reply->reply().call_id(), 3u);
  EXPECT_EQ(reply->reply().status().code(), 1);
  Complete();

  // The id may be used again; no further reply arrives in between.
  peer->Send(Frame::kCall, park);
  lab.RunUntil([&] { return lab.service.parked.size() == 2; });
  lab.service.parked[1].Complete();
  reply = peer->Receive();
  ASSERT_TRUE(reply && reply->has_reply());
  EXPECT_FALSE(reply->reply().has_status());
}

TEST_F(Cancellation, TheDeadlineEndsTheCallOnBothSides) {
  const auto start = std::chrono::steady_clock::now();
  Park(milliseconds(20));
  ASSERT_TRUE(controller().deadline());
  EXPECT_GE(*controller().deadline(), start + milliseconds(20));
  EXPECT_LE(*controller().deadline(),
            std::chrono::steady_clock::now() + milliseconds(20));
  lab.RunUntil([&] { return call.over() && controller().IsCanceled(); });
  EXPECT_EQ(call.controller.status().code(),
            absl::StatusCode::kDeadlineExceeded);
  EXPECT_EQ(counters().calls_now, 0u);
  Complete();
  lab.RunReady();
  EXPECT_EQ(counters().results_late, 1u);
}

TEST_F(Cancellation, TheServerKeepsTheDeadlineOfAClientThatDoesNot) {
  const auto peer = lab.NewPeer();
  CallFrame park = peer->CallOf("Park", 3);
  park.set_timeout_ms(1);
  peer->Send(Frame::kCall, park);
  const auto reply = peer->Receive();
  ASSERT_TRUE(reply && reply->has_reply());
  EXPECT_EQ(reply->reply().status().code(), 4);
  EXPECT_TRUE(controller().IsCanceled());
  EXPECT_EQ(counters().calls_expired, 1u);
  Complete();
}

TEST_F(Cancellation, WithoutATimeoutThereIsNoDeadline) {
  Park();
  EXPECT_FALSE(controller().deadline());
  Complete();
}

TEST_F(Cancellation, ACallWithoutTimeLeftIsNotSent) {
  call.controller.set_timeout(milliseconds(0));
  call.Start(*client, &Lab_Stub::Echo, "x");
  EXPECT_FALSE(call.over());
  lab.RunUntil([&] { return call.over(); });
  EXPECT_EQ(call.controller.status(),
            absl::DeadlineExceededError("no time was left for the call"));
  EXPECT_EQ(counters().calls_started, 0u);
}

TEST_F(Cancellation, ABlockingCallKeepsItsDeadline) {
  ClientController controller;
  controller.set_timeout(milliseconds(5));
  lab::Text request;
  lab::Text response;
  Lab_Stub(client.get()).Park(&controller, &request, &response, nullptr);
  EXPECT_EQ(controller.status(),
            absl::DeadlineExceededError("the call was not answered in time"));
  lab.RunUntil([&] { return counters().calls_now == 0; });
  Complete();
}

TEST_F(Cancellation, AnAnsweredCallLeavesNoTimerBehind) {
  call.controller.set_timeout(std::chrono::hours(1));
  call.Start(*client, &Lab_Stub::Echo, "x");
  lab.RunUntil([&] { return call.over(); });
  client.reset();
  lab.server.reset();
  // Only a timer could keep the loop running now.
  lab.loop.Run();
  EXPECT_TRUE(call.controller.status().ok());
}

TEST_F(Cancellation, NotifyOnCancelRunsItsClosureAtOnceWhenItIsTooLate) {
  Park();
  call.controller.StartCancel();
  lab.RunUntil([&] { return controller().IsCanceled(); });
  CountingClosure late;
  controller().NotifyOnCancel(&late);
  EXPECT_EQ(late.runs(), 1);
  Complete();
  lab.RunReady();
  EXPECT_EQ(late.runs(), 1);
}

TEST_F(Cancellation, NotifyOnCancelRunsItsClosureWhenAnUncancelledCallIsOver) {
  Park();
  CountingClosure over;
  controller().NotifyOnCancel(&over);
  Complete();
  EXPECT_FALSE(controller().IsCanceled());
  lab.RunUntil([&] { return call.over(); });
  EXPECT_EQ(over.runs(), 1);
  EXPECT_TRUE(call.controller.status().ok());
}

TEST_F(Cancellation, TheEndOfTheClientCancelsItsCalls) {
  Park();
  client.reset();
  EXPECT_EQ(call.controller.status(),
            absl::CancelledError("the client was destroyed"));
  lab.RunUntil([&] { return controller().IsCanceled(); });
  Complete();
}

TEST_F(Cancellation, TheEndOfTheServerFailsTheCallsOfItsClients) {
  Park();
  absl::Status closed;
  client->set_on_closed([&](const absl::Status& why) {
    EXPECT_TRUE(call.over());
    closed = why;
  });
  lab.server->Stop();
  lab.RunUntil([&] { return call.over(); });
  EXPECT_EQ(call.controller.status(),
            absl::UnavailableError("the server is stopping"));
  EXPECT_EQ(closed, call.controller.status());
  EXPECT_EQ(client->status(), closed);
  Complete();

  TextCall next;
  next.Start(*client, &Lab_Stub::Echo, "x");
  EXPECT_FALSE(next.over());
  lab.RunUntil([&] { return next.over(); });
  EXPECT_EQ(next.controller.status(), closed);
}

TEST_F(Cancellation, AClosureMayDestroyTheClient) {
  TextCall first([&] { client.reset(); });
  TextCall second;
  first.Start(*client, &Lab_Stub::Echo, "1");
  second.Start(*client, &Lab_Stub::Echo, "2");
  lab.RunUntil([&] { return second.over(); });
  EXPECT_TRUE(first.controller.status().ok());
  EXPECT_EQ(second.controller.status(),
            absl::CancelledError("the client was destroyed"));
  lab.RunReady();
  EXPECT_EQ(counters().connections_now, 0u);
}

TEST_F(Cancellation, AStoppedLoopEndsABlockingCall) {
  lab.loop.Post([&] { lab.loop.Stop(); });
  EXPECT_EQ(
      CallText(*client, &Lab_Stub::Park, "x").status(),
      absl::CancelledError("the loop was stopped while this waited on it"));
  lab.RunReady();
  ASSERT_EQ(lab.service.parked.size(), 1u);
  EXPECT_TRUE(lab.service.parked[0].controller->IsCanceled());
  lab.service.parked[0].Complete();
}

TEST_F(Cancellation, AStoppedLoopDoesNotCancelWhatWasNeverSent) {
  const uint64_t frames = client->counters().frames_written;
  lab.loop.Post([&] { lab.loop.Stop(); });
  call.controller.set_timeout(milliseconds(0));
  lab::Text request;
  lab::Text response;
  Lab_Stub(client.get()).Park(&call.controller, &request, &response, nullptr);
  EXPECT_EQ(
      call.controller.status(),
      absl::CancelledError("the loop was stopped while this waited on it"));
  EXPECT_EQ(client->counters().frames_written, frames);
}

TEST_F(Cancellation, AMethodMayStopTheServer) {
  lab.service.on_echo = [&](serving::CallContext*) { lab.server->Stop(); };
  EXPECT_EQ(CallText(*client, &Lab_Stub::Echo, "last words").value(),
            "last words");
  lab.RunUntil([&] { return !client->status().ok(); });
  EXPECT_EQ(counters().connections_now, 0u);
}

}  // namespace
}  // namespace rpc::transport
