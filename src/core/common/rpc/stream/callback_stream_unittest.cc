// Subscriptions on callback streams, and how a stream ends. The calls that wait
// for an answer have tests of their own (callback_stream_calls_unittest.cc).

#include "core/common/rpc/stream/callback_stream.h"

#include <gmock/gmock.h>
#include <google/protobuf/wrappers.pb.h>
#include <gtest/gtest.h>
#include <sys/wait.h>

#include <cstdlib>
#include <memory>
#include <string>

#include "base/logging.h"
#include "core/common/rpc/stream/callback_stream_test_support.h"
#include "core/common/rpc/testing/allocation_counter.h"
#include "core/common/rpc/testing/fatal_record.h"
#include "core/common/rpc/testing/log_capture.h"
#include "core/common/rpc/testing/virtual_slot.h"

namespace torvane {
namespace {

using google::protobuf::Message;
using testing::ElementsAre;
using testing::IsEmpty;

TEST_F(CallbackStreamTest, OverridesTheOperationsOfItsBaseAndAddsNone) {
  EXPECT_EQ(SlotOf(&Stream::OnNext), kDestructorSlots);
  EXPECT_EQ(SlotOf(&Stream::OnError), kDestructorSlots + 1);
  EXPECT_EQ(SlotOf(&Stream::OnCompleted), kDestructorSlots + 2);
  struct Next : Stream {
    virtual void Operation() {}
  };
  EXPECT_EQ(SlotOf(&Next::Operation), kDestructorSlots + 3);
}

TEST_F(CallbackStreamTest, OpensWithoutBindingsOrCalls) {
  const auto stream = Open();
  EXPECT_EQ(Bindings(), 0u);
  EXPECT_EQ(PendingWindows(*stream), 0u);
}

TEST_F(CallbackStreamTest, ASubscribeFrameBindsTheWindowToTheStream) {
  const auto stream = Open();
  Subscription(*stream, 7, true);
  EXPECT_EQ(StreamOf(7), stream.get());
  EXPECT_EQ(Bindings(), 1u);
}

TEST_F(CallbackStreamTest, StoresACopyOfTheKeyAndNotTheCallersObject) {
  const auto stream = Open();
  BrowserId key = WindowId(7);
  stream->Subscribe(key);
  const Message* stored = Stream::stream_map_.begin()->first;
  EXPECT_NE(stored, &key);
  EXPECT_EQ(stored->GetArena(), nullptr);
  EXPECT_EQ(stored->GetDescriptor(), BrowserId::descriptor());
  key.set_value(8);
  EXPECT_EQ(StreamOf(7), stream.get());
  EXPECT_EQ(StreamOf(8), nullptr);
}

TEST_F(CallbackStreamTest, StoresACopyOfTheKeysOwnType) {
  const auto stream = Open();
  google::protobuf::StringValue key;
  key.set_value("seven");
  stream->Subscribe(key);
  const Message* stored = Stream::stream_map_.begin()->first;
  EXPECT_NE(stored, &key);
  ASSERT_EQ(stored->GetDescriptor(), key.GetDescriptor());
  EXPECT_EQ(stored->SerializeAsString(), key.SerializeAsString());
}

TEST_F(CallbackStreamTest, SubscribingTwiceOnOneStreamChangesNothing) {
  const LogCapture log;
  const auto stream = Open();
  stream->Subscribe(WindowId(7));
  const Message* stored = Stream::stream_map_.begin()->first;
  const BrowserId equal = WindowId(7);
  const auto before = CountAllocations().allocations;
  stream->Subscribe(equal);
  EXPECT_EQ(CountAllocations().allocations, before);
  EXPECT_EQ(Bindings(), 1u);
  EXPECT_EQ(Stream::stream_map_.begin()->first, stored);
  EXPECT_THAT(log.records(), IsEmpty());
}

TEST_F(CallbackStreamTest, AFrameWithoutABrowserIdBindsTheEmptyOne) {
  const auto stream = Open();
  rpc::CloseWindow message;
  message.set_subscribe(true);
  Frame frame = FrameOf(message);
  stream->OnNext(&frame);
  EXPECT_EQ(StreamOf(0), stream.get());

  message.mutable_browser_id();
  frame = FrameOf(message);
  stream->OnNext(&frame);
  EXPECT_EQ(Bindings(), 1u);

  const auto other = Open();
  message.clear_browser_id();
  frame = FrameOf(message);
  other->OnNext(&frame);
  EXPECT_EQ(StreamOf(0), other.get());
}

TEST_F(CallbackStreamTest, TheNewestSubscriberTakesAWindowOverWithAWarning) {
  const LogCapture log;
  const auto first = Open();
  const auto second = Open();
  Subscription(*first, 7, true);
  const Message* stored = Stream::stream_map_.begin()->first;
  Subscription(*second, 7, true);

  EXPECT_EQ(StreamOf(7), second.get());
  EXPECT_EQ(Bindings(), 1u);
  EXPECT_EQ(Stream::stream_map_.begin()->first, stored);
  ASSERT_EQ(log.records().size(), 1u);
  const LogRecord& record = log.records()[0];
  EXPECT_EQ(record.severity, logging::LOGGING_WARNING);
  EXPECT_EQ(record.file, "src/core/common/rpc/stream/callback_stream.h");
  EXPECT_EQ(record.line, 194);
  EXPECT_EQ(record.text,
            "The subscriber is already associated with another stream. "
            "value: 7");
}

TEST_F(CallbackStreamTest, ATakeOverNeedsNoWarningToBeEnabled) {
  const LogCapture log;
  logging::SetMinLogLevel(logging::LOGGING_ERROR);
  const auto first = Open();
  const auto second = Open();
  Subscription(*first, 7, true);
  Subscription(*second, 7, true);
  EXPECT_EQ(StreamOf(7), second.get());
  EXPECT_THAT(log.records(), IsEmpty());
}

TEST_F(CallbackStreamTest, AWindowTakenOverStaysWithItsNewStream) {
  const LogCapture log;
  const auto client = std::make_shared<FakeClient>();
  const auto first = Open(client);
  const auto second = Open();
  Subscription(*first, 7, true);
  Subscription(*second, 7, true);
  first->OnCompleted();
  EXPECT_EQ(StreamOf(7), second.get());
  EXPECT_EQ(client->completions, 1);
  EXPECT_TRUE(client->frames.empty());
}

TEST_F(CallbackStreamTest, TheStreamThatLostAWindowKeepsItsPendingCalls) {
  const LogCapture log;
  const auto first = Open();
  const auto second = Open();
  Subscription(*first, 7, true);
  Pend(*first, 7, 1);
  Subscription(*second, 7, true);
  EXPECT_EQ(PendingCalls(*first, 7), 1u);
  EXPECT_THAT(endings_, IsEmpty());
}

TEST_F(CallbackStreamTest, AnyStreamCanReleaseAWindow) {
  const auto client = std::make_shared<FakeClient>();
  const auto owner = Open(client);
  const auto stranger = Open();
  Subscription(*owner, 7, true);
  Subscription(*stranger, 7, false);
  EXPECT_EQ(Bindings(), 0u);
  EXPECT_TRUE(client->frames.empty());
  EXPECT_EQ(client->completions, 0);
  owner->OnCompleted();
  EXPECT_EQ(Bindings(), 0u);
}

TEST_F(CallbackStreamTest, UnsubscribingAnUnknownWindowDoesNothing) {
  const LogCapture log;
  const auto stream = Open();
  Subscription(*stream, 7, true);
  Subscription(*stream, 8, false);
  EXPECT_EQ(StreamOf(7), stream.get());
  EXPECT_EQ(Bindings(), 1u);
  EXPECT_THAT(log.records(), IsEmpty());
}

TEST_F(CallbackStreamTest, DestroysTheKeyCopyWithTheBinding) {
  const auto stream = Open();
  const BrowserId key = WindowId(7);
  const ptrdiff_t before = CountAllocations().live();
  stream->Subscribe(key);
  EXPECT_GT(CountAllocations().live(), before);
  stream->Unsubscribe(key);
  EXPECT_EQ(CountAllocations().live(), before);
}

TEST_F(CallbackStreamTest, UnsubscribeItselfLeavesPendingCallsAlone) {
  const auto stream = Open();
  stream->Subscribe(WindowId(7));
  Pend(*stream, 7, 1);
  stream->Unsubscribe(WindowId(7));
  EXPECT_EQ(PendingCalls(*stream, 7), 1u);
  EXPECT_THAT(endings_, IsEmpty());
}

TEST_F(CallbackStreamTest, AnUnsubscribeFrameCancelsAfterTheWindowIsReleased) {
  const auto stream = Open();
  Subscription(*stream, 7, true);
  Stream* bound_at_cancellation = stream.get();
  CallbackStreamTestPeer::Add(
      *stream, WindowId(7), 1,
      {.response_callback = [](rpc::CloseWindow&) {},
       .error_callback =
           [&](StreamCallError) { bound_at_cancellation = StreamOf(7); }});
  Subscription(*stream, 7, false);
  EXPECT_EQ(bound_at_cancellation, nullptr);
  EXPECT_EQ(PendingWindows(*stream), 0u);
}

TEST_F(CallbackStreamTest, AnUnsubscribeFrameCancelsEvenWithoutASubscription) {
  const auto stream = Open();
  Pend(*stream, 7, 1);
  Subscription(*stream, 7, false);
  EXPECT_THAT(endings_, ElementsAre("1 error 1"));
}

TEST_F(CallbackStreamTest, DecodesFramesWithTheResponsePrototype) {
  class ResponsesOnly : public rpc::BrowserWindowRpc {
    const Message& GetRequestPrototype(
        const google::protobuf::MethodDescriptor*) const override {
      abort();
    }
  } service;
  Stream stream(&service, rpc::BrowserWindowRpc::descriptor()->method(40),
                MakeChannel());
  Subscription(stream, 7, true);
  Fail(stream, 7, 1);
  EXPECT_EQ(StreamOf(7), &stream);
  stream.OnCompleted();
}

TEST_F(CallbackStreamTest, HandlesAFrameAsFarAsItParsed) {
  const auto stream = Open();
  rpc::CloseWindow message;
  *message.mutable_browser_id() = WindowId(7);
  message.set_subscribe(true);
  Frame frame = FrameOf(message);
  // A field that announces more bytes than there are.
  frame.mutable_payload()->append("\x7a\x7f");
  stream->OnNext(&frame);
  EXPECT_EQ(StreamOf(7), stream.get());
}

TEST_F(CallbackStreamTest, LeavesTheFrameToItsOwnerAndFreesTheMessage) {
  const auto stream = Open();
  Subscription(*stream, 7, true);
  rpc::CloseWindow message;
  *message.mutable_browser_id() = WindowId(7);
  message.set_subscribe(true);
  Frame frame = FrameOf(message, 3);
  const std::string bytes = frame.SerializeAsString();
  const ptrdiff_t before = CountAllocations().live();
  stream->OnNext(&frame);
  stream->OnError(&frame);
  EXPECT_EQ(CountAllocations().live(), before);
  EXPECT_EQ(frame.SerializeAsString(), bytes);
}

TEST_F(CallbackStreamTest, CompletionCancelsThenUnbindsThenCompletes) {
  const auto client = std::make_shared<FakeClient>();
  const auto stream = Open(client);
  Subscription(*stream, 7, true);
  Subscription(*stream, 8, true);
  size_t bindings_at_cancellation = 0;
  CallbackStreamTestPeer::Add(*stream, WindowId(7), 1,
                              {.response_callback = [](rpc::CloseWindow&) {},
                               .error_callback =
                                   [&](StreamCallError error) {
                                     EXPECT_EQ(error,
                                               StreamCallError::kCancelled);
                                     bindings_at_cancellation = Bindings();
                                     EXPECT_EQ(client->completions, 0);
                                   }});
  size_t bindings_at_completion = 99;
  client->on_complete = [&] { bindings_at_completion = Bindings(); };

  stream->OnCompleted();
  EXPECT_EQ(bindings_at_cancellation, 2u);
  EXPECT_EQ(bindings_at_completion, 0u);
  EXPECT_EQ(client->completions, 1);
  EXPECT_EQ(PendingWindows(*stream), 0u);
}

TEST_F(CallbackStreamTest, CompletionLeavesNothingAllocated) {
  const auto stream = Open();
  const ptrdiff_t before = CountAllocations().live();
  stream->Subscribe(WindowId(7));
  stream->Subscribe(WindowId(8));
  for (const int64_t window : {7, 8, 9}) {
    CallbackStreamTestPeer::Add(*stream, WindowId(window), 1,
                                {.response_callback = [](rpc::CloseWindow&) {},
                                 .error_callback = [](StreamCallError) {}});
  }
  stream->OnCompleted();
  EXPECT_EQ(CountAllocations().live(), before);
}

TEST_F(CallbackStreamTest, CompletionOfAnIdleStreamOnlyCompletes) {
  const auto client = std::make_shared<FakeClient>();
  const auto idle = Open(client);
  const auto other = Open();
  Subscription(*other, 7, true);
  idle->OnCompleted();
  EXPECT_EQ(client->completions, 1);
  EXPECT_EQ(StreamOf(7), other.get());
}

TEST_F(CallbackStreamTest, MayBeDestroyedWithinItsOwnCompletion) {
  const auto client = std::make_shared<FakeClient>();
  Stream* const stream = Open(client).release();
  Subscription(*stream, 7, true);
  client->on_complete = [stream] { delete stream; };
  stream->OnCompleted();
  EXPECT_EQ(client->endpoints_destroyed, 1);
}

TEST_F(CallbackStreamTest, DestructionDoesNotTouchTheRegistry) {
  auto stream = Open();
  Subscription(*stream, 7, true);
  Stream* const address = stream.release();
  delete address;
  EXPECT_EQ(StreamOf(7), address);
}

using CallbackStreamDeathTest = CallbackStreamTest;

// Delivers a frame in a child process. Returns how it ended.
FatalRecord Delivery(torvane::AbstractStream& stream,
                     rpc::transport::StreamMessage frame) {
  return FatalRecordOf([&] { stream.OnNext(&frame); });
}

TEST_F(CallbackStreamDeathTest, AFrameThatSaysNothingEndsTheProcess) {
  const auto stream = Open();
  rpc::CloseWindow message;
  *message.mutable_browser_id() = WindowId(7);
  EXPECT_NE(Delivery(*stream, FrameOf(message)).signal, 0);
  EXPECT_NE(Delivery(*stream, Frame()).signal, 0);
}

TEST_F(CallbackStreamDeathTest, AQuestionFromTheClientEndsTheProcess) {
  const auto stream = Open();
  rpc::CloseWindow message;
  message.mutable_question();
  EXPECT_NE(Delivery(*stream, FrameOf(message)).signal, 0);
}

TEST_F(CallbackStreamDeathTest, TheEndComesWithoutAnyText) {
  const auto stream = Open();
  EXPECT_EXIT(
      {
        Frame frame;
        stream->OnNext(&frame);
      },
      [](int status) { return WIFSIGNALED(status); }, IsEmpty());
}

TEST_F(CallbackStreamDeathTest, FramesThatAreHandledDoNotEndTheProcess) {
  const auto stream = Open();
  EXPECT_EQ(Delivery(*stream, FrameOf(AnswerAbout(7))).signal, 0);
}

}  // namespace
}  // namespace torvane
