// A client that has shut the reading side of its socket, so that nothing
// reaches it, while its writing side stays open. The server closes the
// connection when it first writes.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdint>
#include <memory>
#include <string>

#include "core/common/rpc/stream/callback_stream.h"
#include "core/common/rpc/testing/log_capture.h"
#include "core/common/rpc/testing/window_id.h"
#include "core/common/rpc/transport/testing/lab.h"

namespace rpc::transport {
namespace {

using torvane::WindowId;

class ShutClient : public ::testing::Test {
 protected:
  void Shut() {
    std::error_code error;
    peer->socket().shutdown(asio::socket_base::shutdown_receive, error);
    ASSERT_FALSE(error);
  }

  void Call(const std::string& method, uint64_t id, const std::string& text) {
    lab::Text request;
    request.set_text(text);
    CallFrame call;
    call.set_call_id(id);
    call.set_method_id(peer->IdOf(method));
    request.SerializeToString(call.mutable_request());
    peer->Send(Frame::kCall, call);
  }

  // Opens a stream that answers for window 1.
  void AnswerForWindow() {
    StreamOpenFrame open;
    open.set_stream_id(1);
    open.set_method_id(peer->IdOf("Decide"));
    peer->Send(Frame::kStreamOpen, open);
    lab::Decision subscription;
    *subscription.mutable_browser_id() = WindowId(1);
    subscription.set_subscribe(true);
    StreamDataFrame data;
    data.add_stream_ids(1);
    subscription.SerializeToString(data.mutable_message()->mutable_payload());
    peer->Send(Frame::kStreamData, data);
    lab.RunUntil([this] { return counters().subscriptions_now == 1; });
  }

  const serving::Counters& counters() { return lab.server->counters(); }
  void RunUntilClosed() {
    lab.RunUntil([this] { return counters().connections_now == 0; });
  }

  torvane::LogCapture log;
  Lab lab{WithLargeRequests()};
  std::unique_ptr<RawPeer> peer = lab.NewPeer();
};

// Nothing is written down, as for any connection that is lost.
TEST_F(ShutClient, IsClosedByTheFirstReply) {
  Shut();
  Call("Park", 1, "");
  Call("Echo", 2, "");
  lab.RunUntil([this] { return counters().calls_started == 2; });
  RunUntilClosed();
  EXPECT_EQ(counters().calls_now, 0u);
  EXPECT_EQ(counters().calls_abandoned_now, 1u);
  EXPECT_EQ(counters().protocol_violations, 0u);
  EXPECT_THAT(log.TakeTexts(), ::testing::IsEmpty());
  EXPECT_TRUE(lab.service.parked[0].controller->IsCanceled());
  lab.service.parked[0].Complete();
}

// Those that have been read together with the first are handled with it.
TEST_F(ShutClient, HasNoFurtherCallsRun) {
  Shut();
  Call("Echo", 1, "");
  RunUntilClosed();
  Call("Echo", 2, "");
  lab.RunReady();
  EXPECT_EQ(counters().calls_started, 1u);
}

TEST_F(ShutClient, IsClosedByTheFirstQuestionWhichSettles) {
  AnswerForWindow();
  Shut();
  lab::Decision question;
  *question.mutable_browser_id() = WindowId(1);
  question.mutable_question()->set_text("may it?");
  int errors = 0;
  ASSERT_TRUE(torvane::CallbackStream<lab::Decision>::Ask(
      question,
      {.response_callback = [](lab::Decision&) { FAIL() << "an answer"; },
       .error_callback =
           [&](torvane::StreamCallError error) {
             EXPECT_EQ(error, torvane::StreamCallError::kCancelled);
             ++errors;
           }}));
  RunUntilClosed();
  EXPECT_EQ(errors, 1);
  EXPECT_EQ(counters().streams_now, 0u);
  EXPECT_EQ(counters().subscriptions_now, 0u);
}

// A reply of this size is written at once, within the method that gives it.
TEST_F(ShutClient, IsNotClosedWithinTheMethodThatReplies) {
  Call("Park", 1, std::string(1'000'000, 'x'));
  lab.RunUntil([this] { return lab.service.parked.size() == 1; });
  Shut();
  const uint64_t frames = counters().frames_written;
  lab.loop.Post([&] {
    lab.service.parked[0].Complete();
    EXPECT_EQ(counters().frames_written, frames + 1);
    EXPECT_EQ(lab.server->Report().connections[0].queued_bytes, 0u);
    EXPECT_EQ(counters().connections_now, 1u);
  });
  lab.RunReady();
  EXPECT_EQ(counters().connections_now, 0u);
}

}  // namespace
}  // namespace rpc::transport
