// Unary calls end to end, client and server on one loop.

#include <gmock/gmock.h>
#include <google/protobuf/io/coded_stream.h>
#include <google/protobuf/io/zero_copy_stream_impl_lite.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "core/common/rpc/serving/client_record.h"
#include "core/common/rpc/transport/testing/lab.h"

namespace rpc::transport {
namespace {

using lab::Lab_Stub;

TEST(UnaryCall, ABlockingCallReturnsTheResponse) {
  Lab lab;
  const auto client = lab.NewClient();
  EXPECT_EQ(CallText(*client, &Lab_Stub::Echo, "hello").value(), "hello");
}

TEST(UnaryCall, AnAsynchronousCallRunsItsClosureOnTheLoop) {
  Lab lab;
  const auto client = lab.NewClient();
  TextCall call;
  call.Start(*client, &Lab_Stub::Echo, "hello");
  EXPECT_FALSE(call.over());
  lab.RunUntil([&] { return call.over(); });
  EXPECT_TRUE(call.controller.status().ok());
  EXPECT_EQ(call.response.text(), "hello");
}

TEST(UnaryCall, EveryMethodReachesItsOwnCode) {
  Lab lab;
  const auto client = lab.NewClient();
  EXPECT_EQ(CallText(*client, &Lab_Stub::Echo, "a").value(), "a");
  EXPECT_EQ(CallText(*client, &Lab_Stub::Fail, "b").status(),
            absl::UnknownError("b"));

  lab::Number size;
  size.set_number(3);
  lab::Text made;
  ClientController controller;
  Lab_Stub(client.get()).Make(&controller, &size, &made, nullptr);
  EXPECT_EQ(made.text(), "xxx");

  TextCall parked;
  parked.Start(*client, &Lab_Stub::Park, "d");
  lab.RunUntil([&] { return lab.service.parked.size() == 1; });
  lab.service.parked[0].Complete();
  lab.RunUntil([&] { return parked.over(); });
  EXPECT_EQ(parked.response.text(), "d");
}

TEST(UnaryCall, ManyCallsInFlightAreAnsweredInAnyOrder) {
  Lab lab;
  const auto client = lab.NewClient();
  constexpr size_t kCalls = 300;
  std::vector<size_t> order;
  std::vector<std::unique_ptr<TextCall>> calls;
  for (size_t i = 0; i < kCalls; ++i) {
    calls.push_back(
        std::make_unique<TextCall>([&order, i] { order.push_back(i); }));
    calls[i]->Start(*client, &Lab_Stub::Park, std::to_string(i));
  }
  lab.RunUntil([&] { return lab.service.parked.size() == kCalls; });
  for (size_t i = kCalls; i-- > 0;) {
    lab.service.parked[i].Complete();
  }
  lab.RunUntil([&] { return order.size() == kCalls; });
  for (size_t i = 0; i < kCalls; ++i) {
    EXPECT_EQ(order[i], kCalls - 1 - i);
    EXPECT_EQ(calls[i]->response.text(), std::to_string(i));
  }
}

TEST(UnaryCall, AMethodThatNobodyImplementsIsUnimplemented) {
  Lab lab;
  const auto client = lab.NewClient();
  EXPECT_EQ(CallText(*client, &Lab_Stub::Forget, "").status(),
            absl::UnimplementedError("Method Forget() not implemented."));
}

TEST(UnaryCall, TheTextOfAnotherUnimplementedMethodIsOnlyAText) {
  Lab lab;
  const auto client = lab.NewClient();
  EXPECT_EQ(
      CallText(*client, &Lab_Stub::Fail, "Method Forget() not implemented.")
          .status(),
      absl::UnknownError("Method Forget() not implemented."));
}

TEST(UnaryCall, AServiceChoosesTheCodeOfAFailure) {
  Lab lab;
  const auto client = lab.NewClient();
  lab.service.on_echo = [](serving::CallContext* controller) {
    controller->Fail(absl::NotFoundError("no window 7"));
  };
  EXPECT_EQ(CallText(*client, &Lab_Stub::Echo, "").status(),
            absl::NotFoundError("no window 7"));
}

TEST(UnaryCall, AFailureTextNeedNotBeUtf8) {
  Lab lab;
  const auto client = lab.NewClient();
  lab.service.on_echo = [](serving::CallContext* controller) {
    controller->SetFailed("\xff\xfe");
  };
  EXPECT_EQ(CallText(*client, &Lab_Stub::Echo, "").status(),
            absl::UnknownError("\xff\xfe"));
}

TEST(UnaryCall, ALongFailureTextIsCut) {
  Lab lab;
  const auto client = lab.NewClient();
  lab.service.on_echo = [](serving::CallContext* controller) {
    controller->SetFailed(std::string(1'000'000, 'x'));
  };
  EXPECT_EQ(CallText(*client, &Lab_Stub::Echo, "").status(),
            absl::UnknownError(std::string(4096, 'x')));
}

TEST(UnaryCall, ARequestThatDoesNotParseIsRefusedByItsType) {
  Lab lab;
  const auto peer = lab.NewPeer();
  CallFrame call;
  call.set_call_id(1);
  call.set_method_id(peer->IdOf("Echo"));
  call.set_request("\xff\xff");
  peer->Send(Frame::kCall, call);
  const std::optional<Frame> reply = peer->Receive();
  ASSERT_TRUE(reply && reply->has_reply());
  EXPECT_EQ(reply->reply().status().code(), 3);
  EXPECT_EQ(reply->reply().status().text(),
            "the request of lab.Lab.Echo does not parse as a lab.Text");
  EXPECT_EQ(lab.server->counters().calls_refused, 1u);
}

// So many groups, one within the other, in a field that nobody knows.
std::string NestedGroups(size_t depth) {
  constexpr char kStart = (15 << 3) | 3;
  constexpr char kEnd = (15 << 3) | 4;
  return std::string(depth, kStart) + std::string(depth, kEnd);
}

TEST(UnaryCall, ARequestThatIsNestedTooDeeplyIsRefused) {
  Lab lab{WithLargeRequests()};
  const auto peer = lab.NewPeer();
  CallFrame call;
  call.set_call_id(1);
  call.set_method_id(peer->IdOf("Echo"));
  call.set_request(NestedGroups(50));
  peer->Send(Frame::kCall, call);
  std::optional<Frame> reply = peer->Receive();
  ASSERT_TRUE(reply && reply->has_reply());
  EXPECT_FALSE(reply->reply().has_status());

  call.set_request(NestedGroups(1'000'000));
  peer->Send(Frame::kCall, call);
  reply = peer->Receive();
  ASSERT_TRUE(reply && reply->has_reply());
  EXPECT_EQ(reply->reply().status().text(),
            "the request of lab.Lab.Echo does not parse as a lab.Text");
}

TEST(UnaryCall, AFrameThatIsNestedTooDeeplyBreaksTheProtocol) {
  Lab lab{WithLargeRequests()};
  const auto peer = lab.NewPeer();
  const std::string body = NestedGroups(1'000'000);
  std::string bytes;
  {
    google::protobuf::io::StringOutputStream output(&bytes);
    google::protobuf::io::CodedOutputStream coded(&output);
    coded.WriteVarint32(static_cast<uint32_t>(body.size()) + 4);
    coded.WriteTag((Frame::kCancel << 3) | 2);
    coded.WriteVarint32(static_cast<uint32_t>(body.size()));
  }
  peer->SendBytes(bytes + body);
  EXPECT_EQ(peer->AwaitGoodbye(),
            absl::InvalidArgumentError(
                "a frame does not parse as a rpc.transport.CancelFrame"));
}

TEST(UnaryCall, HalfAFrameAndThenSilenceHoldsUpNobody) {
  Lab lab;
  const auto peer = lab.NewPeer();
  // Says that 60,000 bytes will come, and sends a few.
  peer->SendBytes("\xe0\xd4\x03\x1a and so on");
  lab.RunReady();
  const auto client = lab.NewClient();
  EXPECT_EQ(CallText(*client, &Lab_Stub::Echo, "x").value(), "x");
  EXPECT_EQ(lab.server->counters().connections_now, 2u);
  peer->Close();
  lab.RunUntil([&] { return lab.server->counters().connections_now == 1; });
  EXPECT_EQ(lab.server->counters().protocol_violations, 0u);
}

TEST(UnaryCall, AnUnknownMethodIdIsAnsweredToTheCallAlone) {
  Lab lab;
  const auto peer = lab.NewPeer();
  CallFrame call;
  call.set_call_id(5);
  call.set_method_id(1000);
  peer->Send(Frame::kCall, call);
  std::optional<Frame> reply = peer->Receive();
  ASSERT_TRUE(reply && reply->has_reply());
  EXPECT_EQ(reply->reply().call_id(), 5u);
  EXPECT_EQ(reply->reply().status().code(), 12);
  EXPECT_EQ(reply->reply().status().text(), "no method has the id 1000");

  call.set_method_id(peer->IdOf("Echo"));
  peer->Send(Frame::kCall, call);
  reply = peer->Receive();
  ASSERT_TRUE(reply && reply->has_reply());
  EXPECT_FALSE(reply->reply().has_status());
}

TEST(UnaryCall, AStreamCannotBeCalled) {
  Lab lab;
  const auto peer = lab.NewPeer();
  CallFrame call;
  call.set_method_id(peer->IdOf("Watch"));
  peer->Send(Frame::kCall, call);
  const std::optional<Frame> reply = peer->Receive();
  ASSERT_TRUE(reply && reply->has_reply());
  EXPECT_EQ(reply->reply().status().code(), 12);
  EXPECT_EQ(reply->reply().status().text(), "lab.Lab.Watch is a stream");
}

TEST(UnaryCall, AnIdInUseBreaksTheProtocol) {
  Lab lab;
  const auto peer = lab.NewPeer();
  const CallFrame call = peer->CallOf("Park", 9);
  peer->Send(Frame::kCall, call);
  peer->Send(Frame::kCall, call);
  testing::internal::CaptureStderr();
  EXPECT_EQ(peer->AwaitGoodbye(),
            absl::InvalidArgumentError("call id 9 is in use"));
  EXPECT_EQ(lab.server->counters().protocol_violations, 1u);
  EXPECT_THAT(testing::internal::GetCapturedStderr(),
              testing::HasSubstr(
                  "Closed the connection of raw (" +
                  serving::Describe({.pid = getpid(), .user = getuid()}) +
                  "): INVALID_ARGUMENT: call id 9 is in use"));
  ASSERT_EQ(lab.service.parked.size(), 1u);
  lab.service.parked[0].Complete();
}

TEST(UnaryCall, LargeMessagesTravelWhole) {
  Lab lab{WithLargeRequests()};
  const auto client = lab.NewClient();
  std::string text(3'000'000, 'x');
  for (size_t i = 0; i < text.size(); i += 1000) {
    text[i] = static_cast<char>('a' + i / 1000 % 26);
  }
  EXPECT_EQ(CallText(*client, &Lab_Stub::Echo, text).value(), text);
}

TEST(UnaryCall, TheServiceSeesWhoCalls) {
  Lab lab;
  ClientOptions options;
  options.name = "tester\n";
  const auto client = lab.NewClient(options);
  std::string peer;
  lab.service.on_echo = [&](serving::CallContext* controller) {
    peer = controller->peer();
  };
  ASSERT_TRUE(CallText(*client, &Lab_Stub::Echo, "").ok());
  EXPECT_EQ(peer, "tester\\n (pid " + std::to_string(getpid()) + ")");
}

TEST(UnaryCall, ABlockingCallInsideACallbackOfTheSameClientIsRefused) {
  Lab lab;
  const auto client = lab.NewClient();
  absl::Status inner;
  TextCall call(
      [&] { inner = CallText(*client, &Lab_Stub::Echo, "inner").status(); });
  call.Start(*client, &Lab_Stub::Echo, "outer");
  lab.RunUntil([&] { return call.over(); });
  EXPECT_EQ(inner, absl::FailedPreconditionError(
                       "a blocking call of lab.Lab.Echo from within a callback "
                       "of the same client"));
}

TEST(UnaryCall, ABlockingCallInsideACallbackOfAnotherClientWorks) {
  Lab lab;
  const auto client = lab.NewClient();
  const auto other = lab.NewClient();
  std::string inner;
  TextCall call(
      [&] { inner = CallText(*other, &Lab_Stub::Echo, "inner").value(); });
  call.Start(*client, &Lab_Stub::Echo, "outer");
  lab.RunUntil([&] { return call.over(); });
  EXPECT_EQ(inner, "inner");
}

TEST(UnaryCall, AControllerMayBeUsedAgainAfterReset) {
  Lab lab;
  const auto client = lab.NewClient();
  TextCall call;
  call.Start(*client, &Lab_Stub::Fail, "no");
  lab.RunUntil([&] { return call.over(); });
  EXPECT_TRUE(call.controller.Failed());
  EXPECT_EQ(call.controller.ErrorText(), "no");
  call.controller.Reset();
  EXPECT_FALSE(call.controller.Failed());
  call.Start(*client, &Lab_Stub::Echo, "yes");
  lab.RunUntil([&] { return call.done.runs() == 2; });
  EXPECT_EQ(call.response.text(), "yes");
}

// A call of each length around what a connection reads at first, with the end
// of the client right behind it.
TEST(UnaryCall, WhatComesBeforeTheEndOfAClientIsHandledWhateverItsLength) {
  constexpr size_t kFirstBytes = 2 << 10;
  for (size_t bytes = kFirstBytes - 2; bytes <= kFirstBytes + 2; ++bytes) {
    Lab lab;
    const std::unique_ptr<RawPeer> peer = lab.NewPeer();
    CallFrame call;
    call.set_call_id(1);
    call.set_method_id(peer->IdOf("Echo"));
    lab::Text request;
    std::string frame;
    for (size_t length = kFirstBytes - 100; frame.size() < bytes; ++length) {
      request.set_text(std::string(length, 'x'));
      request.SerializeToString(call.mutable_request());
      frame.clear();
      AppendFrame(Frame::kCall, call, FrameSize(call), &frame);
    }
    ASSERT_EQ(frame.size(), bytes);
    peer->SendBytes(frame);
    peer->Close();
    lab.RunUntil(
        [&lab] { return lab.server->counters().connections_now == 0; });
    EXPECT_EQ(lab.server->counters().calls_started, 1u) << bytes;
  }
}

}  // namespace
}  // namespace rpc::transport
