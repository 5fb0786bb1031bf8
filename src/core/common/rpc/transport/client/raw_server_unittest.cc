// A client whose server breaks the protocol, or goes without a word.

#include <gtest/gtest.h>

#include <cstddef>
#include <functional>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "core/common/rpc/transport/client/client_stream.h"
#include "core/common/rpc/transport/testing/lab.h"

namespace rpc::transport {
namespace {

using lab::Lab_Stub;

class BadServer : public ::testing::Test {
 protected:
  void Run(const std::function<bool()>& condition) {
    ASSERT_TRUE(loop.RunUntil(condition));
  }
  void Reply(const ReplyFrame& reply) {
    server.peer.Send(Frame::kReply, reply);
  }

  loop::Loop loop;
  TextCall call;
  RawServer server{loop};
};

TEST_F(BadServer, AResponseThatDoesNotParseFailsItsCall) {
  call.Start(*server.client, &Lab_Stub::Echo, "x");
  ReplyFrame reply;
  reply.set_call_id(1);
  reply.set_response("\xff\xff");
  Reply(reply);
  Run([&] { return call.over(); });
  EXPECT_EQ(call.controller.status(),
            absl::InternalError("the response does not parse as a lab.Text"));
  EXPECT_TRUE(server.client->status().ok());
}

TEST_F(BadServer, ACodeThatIsNotCanonicalIsUnknown) {
  call.Start(*server.client, &Lab_Stub::Echo, "x");
  ReplyFrame reply;
  reply.set_call_id(1);
  reply.mutable_status()->set_code(4711);
  Reply(reply);
  Run([&] { return call.over(); });
  EXPECT_EQ(call.controller.status().code(), absl::StatusCode::kUnknown);
}

TEST_F(BadServer, FramesForUnknownCallsAndStreamsAreIgnored) {
  ReplyFrame reply;
  reply.set_call_id(77);
  Reply(reply);
  StreamDataFrame data;
  data.add_stream_ids(77);
  server.peer.Send(Frame::kStreamData, data);
  StreamEndFrame end;
  end.set_stream_id(77);
  server.peer.Send(Frame::kStreamEnd, end);

  call.Start(*server.client, &Lab_Stub::Echo, "x");
  reply.set_call_id(1);
  Reply(reply);
  Run([&] { return call.over(); });
  EXPECT_TRUE(call.controller.status().ok());
}

TEST_F(BadServer, GarbageEndsAllThatIsOpen) {
  absl::Status stream_end;
  ClientStream stream(
      *server.client, lab::Lab::descriptor()->FindMethodByName("Watch"),
      [](const StreamMessage&) {},
      [&](const absl::Status& status) { stream_end = status; });
  call.Start(*server.client, &Lab_Stub::Echo, "x");
  server.peer.SendBytes(std::string(1, '\0'));
  Run([&] { return call.over(); });
  const absl::Status why = absl::InvalidArgumentError("a frame is empty");
  EXPECT_EQ(call.controller.status(), why);
  EXPECT_EQ(stream_end, why);
  EXPECT_EQ(server.client->status(), why);
}

TEST_F(BadServer, AFrameOfTheClientsSideEndsTheConnection) {
  server.peer.Send(Frame::kCall, CallFrame());
  Run([&] { return !server.client->status().ok(); });
  EXPECT_EQ(server.client->status(),
            absl::InvalidArgumentError("a server sends no frame of kind 3"));
}

TEST_F(BadServer, ASecondWelcomeEndsTheConnection) {
  server.peer.Send(Frame::kWelcome, WelcomeFrame());
  Run([&] { return !server.client->status().ok(); });
  EXPECT_EQ(server.client->status(),
            absl::InvalidArgumentError("a second welcome"));
}

TEST_F(BadServer, AGoodbyeWithoutAReasonEndsTheConnection) {
  server.peer.Send(Frame::kGoodbye, GoodbyeFrame());
  Run([&] { return !server.client->status().ok(); });
  EXPECT_EQ(server.client->status(),
            absl::UnavailableError("the server said goodbye"));
}

TEST_F(BadServer, AFrameWhoseBodyDoesNotParseEndsTheConnection) {
  const std::pair<FrameKind, std::string> kinds[] = {
      {Frame::kReply, "ReplyFrame"},
      {Frame::kStreamData, "StreamDataFrame"},
      {Frame::kStreamEnd, "StreamEndFrame"},
      {Frame::kGoodbye, "GoodbyeFrame"}};
  for (const auto& [kind, name] : kinds) {
    RawServer bad(loop);
    bad.peer.SendBytes({3, static_cast<char>(kind << 3 | 2), 1, '\xff'});
    Run([&] { return !bad.client->status().ok(); });
    EXPECT_EQ(bad.client->status(),
              absl::InvalidArgumentError(
                  "a frame does not parse as a rpc.transport." + name));
  }
}

TEST_F(BadServer, AControllerThatIsUsedAgainHasNotFailedYet) {
  ReplyFrame failure;
  failure.set_call_id(1);
  failure.mutable_status()->set_code(5);
  call.Start(*server.client, &Lab_Stub::Echo, "x");
  Reply(failure);
  Run([&] { return call.over(); });
  EXPECT_TRUE(call.controller.Failed());
  call.Start(*server.client, &Lab_Stub::Echo, "x");
  EXPECT_FALSE(call.controller.Failed());
}

TEST_F(BadServer, WhatTheServerSaidLastIsReadAlthoughWritingFails) {
  GoodbyeFrame goodbye;
  goodbye.mutable_status()->set_code(8);
  goodbye.mutable_status()->set_text("too much");
  server.peer.Send(Frame::kGoodbye, goodbye);
  server.peer.Close();
  EXPECT_EQ(CallText(*server.client, &Lab_Stub::Echo, "x").status(),
            absl::ResourceExhaustedError("too much"));
}

TEST_F(BadServer, AReplyThatComesWithTheGoodbyeIsTheOutcomeOfItsCall) {
  TextCall failing;
  TextCall unanswered;
  call.Start(*server.client, &Lab_Stub::Echo, "x");
  failing.Start(*server.client, &Lab_Stub::Echo, "y");
  unanswered.Start(*server.client, &Lab_Stub::Echo, "z");
  std::string bytes;
  const auto append = [&bytes](FrameKind kind, const auto& body) {
    AppendFrame(kind, body, FrameSize(body), &bytes);
  };
  ReplyFrame reply;
  reply.set_call_id(1);
  append(Frame::kReply, reply);
  reply.set_call_id(2);
  reply.mutable_status()->set_code(5);
  reply.mutable_status()->set_text("no such thing");
  append(Frame::kReply, reply);
  GoodbyeFrame goodbye;
  goodbye.mutable_status()->set_code(14);
  goodbye.mutable_status()->set_text("stopping");
  append(Frame::kGoodbye, goodbye);
  server.peer.SendBytes(bytes);

  Run([&] { return unanswered.over(); });
  EXPECT_TRUE(call.controller.status().ok()) << call.controller.status();
  EXPECT_EQ(failing.controller.status(), absl::NotFoundError("no such thing"));
  EXPECT_EQ(unanswered.controller.status(), absl::UnavailableError("stopping"));
  EXPECT_EQ(server.client->status(), absl::UnavailableError("stopping"));
}

TEST_F(BadServer, AServerThatDiesFailsCallsInTheirOrderAndThenStreams) {
  constexpr int kCalls = 20;
  std::vector<int> ended;
  std::vector<std::unique_ptr<TextCall>> calls;
  ClientStream stream(
      *server.client, lab::Lab::descriptor()->FindMethodByName("Watch"),
      [](const StreamMessage&) {},
      [&](const absl::Status&) { ended.push_back(kCalls); });
  for (int i = 0; i < kCalls; ++i) {
    calls.push_back(
        std::make_unique<TextCall>([&ended, i] { ended.push_back(i); }));
    calls.back()->Start(*server.client, &Lab_Stub::Echo, "x");
  }
  loop.RunReady();
  server.peer.Close();
  Run([&] { return ended.size() > kCalls; });
  for (int i = 0; i <= kCalls; ++i) {
    EXPECT_EQ(ended[static_cast<size_t>(i)], i);
  }
  // It has not read the calls.
  EXPECT_EQ(calls[0]->controller.status(),
            absl::UnavailableError(
                "the connection was lost: Connection reset by peer"));
}

}  // namespace
}  // namespace rpc::transport
