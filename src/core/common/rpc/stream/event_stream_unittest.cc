// Subscriptions on event streams, and how a stream ends. Delivery has tests of
// its own (event_stream_publish_unittest.cc).

#include "core/common/rpc/stream/event_stream.h"

#include <google/protobuf/wrappers.pb.h>
#include <gtest/gtest.h>

#include <memory>
#include <new>

#include "core/common/rpc/stream/event_stream_test_support.h"
#include "core/common/rpc/testing/allocation_counter.h"
#include "core/common/rpc/testing/fake_endpoint.h"
#include "core/common/rpc/testing/virtual_slot.h"
#include "rpc/browser/browser_window.rpc.h"

namespace torvane {
namespace {

using google::protobuf::Message;

TEST_F(EventStreamTest, OverridesTheOperationsOfItsBaseAndAddsNone) {
  EXPECT_EQ(SlotOf(&Stream::OnNext), kDestructorSlots);
  EXPECT_EQ(SlotOf(&Stream::OnError), kDestructorSlots + 1);
  EXPECT_EQ(SlotOf(&Stream::OnCompleted), kDestructorSlots + 2);
  struct Next : Stream {
    virtual void Operation() {}
  };
  EXPECT_EQ(SlotOf(&Next::Operation), kDestructorSlots + 3);
  EXPECT_EQ(sizeof(Stream), sizeof(AbstractStream) + 2 * sizeof(void*));
}

TEST_F(EventStreamTest, OpensWithoutSubscriptions) {
  const auto stream = Open();
  EXPECT_EQ(Entries(), 0u);
}

TEST_F(EventStreamTest, SubscribesToTheWindowThatAFrameNames) {
  const auto stream = Open();
  Subscribe(*stream, 7);
  EXPECT_EQ(SubscribersOf(7), Streams{stream.get()});
  EXPECT_EQ(Entries(), 1u);
}

TEST_F(EventStreamTest, StoresACopyOfTheKeyAndNotTheCallersObject) {
  const auto stream = Open();
  BrowserId key = WindowId(7);
  stream->Subscribe(key);
  const Message* stored = Stream::stream_map_.begin()->first;
  EXPECT_NE(stored, &key);
  EXPECT_EQ(stored->GetArena(), nullptr);
  key.set_value(8);
  EXPECT_EQ(SubscribersOf(7), Streams{stream.get()});
  EXPECT_TRUE(SubscribersOf(8).empty());
}

TEST_F(EventStreamTest, StoresACopyOfTheKeysOwnType) {
  const auto stream = Open();
  google::protobuf::StringValue key;
  key.set_value("seven");
  stream->Subscribe(key);
  const Message* stored = Stream::stream_map_.begin()->first;
  EXPECT_NE(stored, &key);
  ASSERT_EQ(stored->GetDescriptor(), key.GetDescriptor());
  EXPECT_EQ(stored->SerializeAsString(), key.SerializeAsString());
}

TEST_F(EventStreamTest, HoldsEqualKeysOfOneStreamOnce) {
  const auto stream = Open();
  stream->Subscribe(WindowId(7));
  const Message* stored = Stream::stream_map_.begin()->first;
  const auto before = CountAllocations().allocations;
  const BrowserId equal = WindowId(7);
  stream->Subscribe(equal);
  EXPECT_EQ(CountAllocations().allocations, before);
  EXPECT_EQ(Entries(), 1u);
  EXPECT_EQ(Stream::stream_map_.begin()->first, stored);
  EXPECT_EQ(SubscribersOf(7), Streams{stream.get()});
}

TEST_F(EventStreamTest, OneUnsubscribeUndoesAnyNumberOfSubscribes) {
  const auto stream = Open();
  stream->Subscribe(WindowId(7));
  stream->Subscribe(WindowId(7));
  stream->Unsubscribe(WindowId(7));
  EXPECT_EQ(Entries(), 0u);
}

TEST_F(EventStreamTest, DestroysTheKeyCopyWithTheEntry) {
  const auto stream = Open();
  const BrowserId key = WindowId(7);
  const ptrdiff_t before = CountAllocations().live();
  stream->Subscribe(key);
  EXPECT_GT(CountAllocations().live(), before);
  stream->Unsubscribe(key);
  EXPECT_EQ(CountAllocations().live(), before);
}

TEST_F(EventStreamTest, FindsASubscriptionByTheContentOfTheKey) {
  const auto stream = Open();
  Subscribe(*stream, 7);
  Unsubscribe(*stream, 7);
  EXPECT_EQ(Entries(), 0u);
}

TEST_F(EventStreamTest, KeepsASharedKeyWhenOneOfTwoUnsubscribes) {
  const auto stream = Open();
  const auto other = Open();
  Subscribe(*stream, 7);
  const Message* stored = Stream::stream_map_.begin()->first;
  Subscribe(*other, 7);
  Unsubscribe(*stream, 7);
  EXPECT_EQ(SubscribersOf(7), Streams{other.get()});
  EXPECT_EQ(Stream::stream_map_.begin()->first, stored);
}

TEST_F(EventStreamTest, UnsubscribingFromAKeyHeldOnlyByOthersChangesNothing) {
  const auto stream = Open();
  const auto other = Open();
  Subscribe(*other, 7);
  Unsubscribe(*stream, 7);
  EXPECT_EQ(SubscribersOf(7), Streams{other.get()});
}

TEST_F(EventStreamTest, UnsubscribingFromAnUnknownKeyDestroysTheKeyPassed) {
  const auto stream = Open();
  BrowserId* const key = new BrowserId(WindowId(7));
  const ptrdiff_t before = CountAllocations().live();
  stream->Unsubscribe(*key);
  EXPECT_EQ(CountAllocations().live(), before - 1);
  EXPECT_EQ(Entries(), 0u);
}

TEST_F(EventStreamTest, AnUnsubscribeFrameForAnUnknownKeyLeavesNoEntry) {
  const auto stream = Open();
  Unsubscribe(*stream, 7);
  EXPECT_EQ(Entries(), 0u);
}

TEST_F(EventStreamTest, FramesThatAskForNothingChangeNothing) {
  const auto stream = Open();
  Subscribe(*stream, 7);
  Deliver(*stream, "");
  Deliver(*stream, rpc::EventSubscription().SerializeAsString());
  EXPECT_EQ(SubscribersOf(7), Streams{stream.get()});
  EXPECT_EQ(Entries(), 1u);
}

TEST_F(EventStreamTest, APayloadCountsAsFarAsItParsed) {
  const auto stream = Open();
  rpc::EventSubscription subscription;
  *subscription.mutable_subscribe_to() = WindowId(7);
  // A field that announces more bytes than there are.
  Deliver(*stream, subscription.SerializeAsString() + "\x1a\x7f");
  EXPECT_EQ(SubscribersOf(7), Streams{stream.get()});

  Deliver(*stream, "\xff\xff\xff");
  EXPECT_EQ(Entries(), 1u);
}

// How many blocks stay allocated when a frame has been handled.
ptrdiff_t BlocksLeftBy(AbstractStream& stream,
                       const rpc::EventSubscription& subscription) {
  rpc::transport::StreamMessage frame;
  subscription.SerializeToString(frame.mutable_payload());
  const ptrdiff_t before = CountAllocations().live();
  stream.OnNext(&frame);
  return CountAllocations().live() - before;
}

TEST_F(EventStreamTest, NeverFreesTheRequestOfAFrame) {
  const auto stream = Open();
  EXPECT_EQ(BlocksLeftBy(*stream, {}), 1);

  rpc::EventSubscription subscribe;
  *subscribe.mutable_subscribe_to() = WindowId(7);
  stream->Subscribe(WindowId(7));
  // The request and the key in it.
  EXPECT_EQ(BlocksLeftBy(*stream, subscribe), 2);

  rpc::EventSubscription unsubscribe;
  *unsubscribe.mutable_unsubscribe_from() = WindowId(7);
  const auto other = Open();
  other->Subscribe(WindowId(7));
  EXPECT_EQ(BlocksLeftBy(*other, unsubscribe), 2 - 1)
      << "the request, its key, less the place in the set";
}

TEST_F(EventStreamTest, AnUnsubscribeFrameForAnUnknownKeyDestroysItsKey) {
  const auto stream = Open();
  rpc::EventSubscription unsubscribe;
  *unsubscribe.mutable_unsubscribe_from() = WindowId(7);
  // The request is left, without the key that it carried.
  EXPECT_EQ(BlocksLeftBy(*stream, unsubscribe), 1);
}

TEST_F(EventStreamTest, IgnoresErrorsOfTheClient) {
  const auto client = std::make_shared<FakeClient>();
  const auto stream = Open(client);
  Subscribe(*stream, 7);
  rpc::EventSubscription subscription;
  *subscription.mutable_unsubscribe_from() = WindowId(7);
  rpc::transport::StreamMessage frame;
  subscription.SerializeToString(frame.mutable_payload());
  stream->OnError(&frame);
  stream->OnError(nullptr);
  EXPECT_EQ(SubscribersOf(7), Streams{stream.get()});
  EXPECT_EQ(client->completions, 0);
}

TEST_F(EventStreamTest, LeavesTheKeysThatItAloneHeldAndThenCompletes) {
  const auto client = std::make_shared<FakeClient>();
  size_t entries_at_completion = 99;
  client->on_complete = [&] { entries_at_completion = Entries(); };
  const auto stream = Open(client);
  const ptrdiff_t before = CountAllocations().live();
  stream->Subscribe(WindowId(1));
  stream->Subscribe(WindowId(2));
  stream->Subscribe(WindowId(3));
  stream->OnCompleted();
  EXPECT_EQ(entries_at_completion, 0u);
  EXPECT_EQ(client->completions, 1);
  EXPECT_EQ(CountAllocations().live(), before);
}

TEST_F(EventStreamTest, StaysInTheKeysThatItSharesWhenItCompletes) {
  const auto client = std::make_shared<FakeClient>();
  const auto stream = Open(client);
  const auto other = Open();
  Subscribe(*stream, 1);
  Subscribe(*stream, 2);
  Subscribe(*other, 2);
  const Message* shared = [] {
    const BrowserId key = WindowId(2);
    return Stream::stream_map_.find(&key)->first;
  }();
  stream->OnCompleted();
  EXPECT_EQ(Entries(), 1u);
  EXPECT_EQ(SubscribersOf(2), (Streams{stream.get(), other.get()}));
  EXPECT_EQ(Stream::stream_map_.begin()->first, shared);
  EXPECT_EQ(client->completions, 1);
}

TEST_F(EventStreamTest, CompletesWithoutSubscriptionsToo) {
  const auto client = std::make_shared<FakeClient>();
  const auto stream = Open(client);
  stream->OnCompleted();
  EXPECT_EQ(client->completions, 1);
  EXPECT_EQ(Entries(), 0u);
}

TEST_F(EventStreamTest, LeavesOthersKeysAloneWhenItCompletes) {
  const auto stream = Open();
  const auto other = Open();
  Subscribe(*stream, 1);
  Subscribe(*other, 2);
  stream->OnCompleted();
  EXPECT_EQ(SubscribersOf(2), Streams{other.get()});
  EXPECT_EQ(Entries(), 1u);
}

TEST_F(EventStreamTest, LeavesNothingBehindOfKeysThatOnlyOthersHold) {
  const auto other = Open();
  for (const int64_t window : {1, 2, 3})
    Subscribe(*other, window);
  // Whatever the first completion of all allocates stays.
  Open()->OnCompleted();
  alignas(Stream) char memory[sizeof(Stream)];
  Stream* stream = new (memory)
      Stream(&service_, rpc::BrowserWindowRpc::descriptor()->method(37),
             MakeChannel());
  const ptrdiff_t before = CountAllocations().live();
  stream->OnCompleted();
  EXPECT_EQ(CountAllocations().live(), before);
  stream->~Stream();
}

TEST_F(EventStreamTest, RemovesAnEntryThatHoldsNobodyWhenItCompletes) {
  const auto stream = Open();
  const auto before = CountAllocations().live();
  Stream::stream_map_.try_emplace(new BrowserId(WindowId(7)));
  stream->OnCompleted();
  EXPECT_EQ(Entries(), 0u);
  EXPECT_EQ(CountAllocations().live(), before);
}

TEST_F(EventStreamTest, MayBeDestroyedWithinItsOwnCompletion) {
  const auto client = std::make_shared<FakeClient>();
  Stream* const stream = Open(client).release();
  Subscribe(*stream, 1);
  client->on_complete = [stream] { delete stream; };
  stream->OnCompleted();
  EXPECT_EQ(client->endpoints_destroyed, 1);
}

TEST_F(EventStreamTest, DestructionDoesNotTouchTheRegistry) {
  auto stream = Open();
  Subscribe(*stream, 7);
  Stream* const address = stream.get();
  stream.reset();
  EXPECT_EQ(SubscribersOf(7), Streams{address});
}

}  // namespace
}  // namespace torvane
