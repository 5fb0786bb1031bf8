#include "core/common/rpc/stream/event_stream.h"

#include <gtest/gtest.h>

#include <memory>
#include <set>
#include <string>
#include <utility>

#include "core/common/rpc/testing/allocation_counter.h"
#include "core/common/rpc/testing/fake_endpoint.h"
#include "core/common/rpc/testing/virtual_slot.h"
#include "rpc/browser/browser_window.rpc.h"

namespace torvane {
namespace {

using google::protobuf::Message;
using Stream = EventStream<rpc::BrowserWindowClosed>;
using Streams = std::set<Stream*>;

BrowserId Window(int64_t value) {
  BrowserId id;
  id.set_value(value);
  return id;
}

class EventStreamTest : public testing::Test {
 protected:
  // Descriptors are made when they are first needed, which tests that count
  // allocations must not see.
  EventStreamTest() { EXPECT_NE(BrowserId::descriptor(), nullptr); }

  ~EventStreamTest() override {
    for (const auto& [key, streams] : Stream::stream_map_)
      delete key;
    Stream::stream_map_.clear();
  }

  std::unique_ptr<Stream> Open(
      std::shared_ptr<FakeClient> client = std::make_shared<FakeClient>()) {
    return std::make_unique<Stream>(
        &service_, rpc::BrowserWindowRpc::descriptor()->method(37),
        MakeChannel(std::move(client)));
  }

  // A frame as the transport delivers it. Frames must outlive their handling
  // only.
  static void Deliver(Stream& stream, const std::string& payload) {
    rpc::transport::StreamMessage frame;
    frame.set_payload(payload);
    frame.set_call_id(99);
    const std::string before = frame.SerializeAsString();
    stream.OnNext(&frame);
    EXPECT_EQ(frame.SerializeAsString(), before);
  }

  static void Subscribe(Stream& stream, int64_t window) {
    rpc::EventSubscription subscription;
    *subscription.mutable_subscribe_to() = Window(window);
    Deliver(stream, subscription.SerializeAsString());
  }

  static void Unsubscribe(Stream& stream, int64_t window) {
    rpc::EventSubscription subscription;
    *subscription.mutable_unsubscribe_from() = Window(window);
    Deliver(stream, subscription.SerializeAsString());
  }

  // The streams subscribed to a window; none where there is no entry.
  static Streams SubscribersOf(int64_t window) {
    const BrowserId key = Window(window);
    const auto entry = Stream::stream_map_.find(&key);
    if (entry == Stream::stream_map_.end())
      return {};
    EXPECT_FALSE(entry->second.empty());
    return entry->second;
  }

  static size_t Entries() { return Stream::stream_map_.size(); }

  rpc::BrowserWindowRpc service_;
};

TEST_F(EventStreamTest, OverridesTheOperationsOfItsBaseAndAddsNone) {
  EXPECT_EQ(SlotOf(&Stream::OnNext), kDestructorSlots);
  EXPECT_EQ(SlotOf(&Stream::OnError), kDestructorSlots + 1);
  EXPECT_EQ(SlotOf(&Stream::OnCompleted), kDestructorSlots + 2);
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
  BrowserId key = Window(7);
  stream->Subscribe(key);
  const Message* stored = Stream::stream_map_.begin()->first;
  EXPECT_NE(stored, &key);
  EXPECT_EQ(stored->GetArena(), nullptr);
  key.set_value(8);
  EXPECT_EQ(SubscribersOf(7), Streams{stream.get()});
  EXPECT_TRUE(SubscribersOf(8).empty());
}

TEST_F(EventStreamTest, HoldsEqualKeysOfOneStreamOnce) {
  const auto stream = Open();
  stream->Subscribe(Window(7));
  const Message* stored = Stream::stream_map_.begin()->first;
  const auto before = CountAllocations().allocations;
  const BrowserId equal = Window(7);
  stream->Subscribe(equal);
  EXPECT_EQ(CountAllocations().allocations, before);
  EXPECT_EQ(Entries(), 1u);
  EXPECT_EQ(Stream::stream_map_.begin()->first, stored);
  EXPECT_EQ(SubscribersOf(7), Streams{stream.get()});
}

TEST_F(EventStreamTest, OneUnsubscribeUndoesAnyNumberOfSubscribes) {
  const auto stream = Open();
  stream->Subscribe(Window(7));
  stream->Subscribe(Window(7));
  stream->Unsubscribe(Window(7));
  EXPECT_EQ(Entries(), 0u);
}

TEST_F(EventStreamTest, DestroysTheKeyCopyWithTheEntry) {
  const auto stream = Open();
  const BrowserId key = Window(7);
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
  BrowserId* const key = new BrowserId(Window(7));
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
  *subscription.mutable_subscribe_to() = Window(7);
  // A field that announces more bytes than there are.
  Deliver(*stream, subscription.SerializeAsString() + "\x1a\x7f");
  EXPECT_EQ(SubscribersOf(7), Streams{stream.get()});

  Deliver(*stream, "\xff\xff\xff");
  EXPECT_EQ(Entries(), 1u);
}

TEST_F(EventStreamTest, NeverFreesTheRequestOfAFrame) {
  const auto stream = Open();
  Subscribe(*stream, 7);
  rpc::transport::StreamMessage frame;
  const ptrdiff_t before = CountAllocations().live();
  stream->OnNext(&frame);
  EXPECT_EQ(CountAllocations().live(), before + 1);
}

TEST_F(EventStreamTest, IgnoresErrorsOfTheClient) {
  const auto client = std::make_shared<FakeClient>();
  const auto stream = Open(client);
  Subscribe(*stream, 7);
  rpc::EventSubscription subscription;
  *subscription.mutable_unsubscribe_from() = Window(7);
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
  stream->Subscribe(Window(1));
  stream->Subscribe(Window(2));
  stream->Subscribe(Window(3));
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
    const BrowserId key = Window(2);
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

class PublishTest : public EventStreamTest {
 protected:
  static rpc::BrowserWindowClosed Closed(int64_t window) {
    rpc::BrowserWindowClosed event;
    *event.mutable_browser_id() = Window(window);
    return event;
  }
};

TEST_F(PublishTest, WritesTheEventToEveryStreamOfTheKey) {
  const auto first = std::make_shared<FakeClient>();
  const auto second = std::make_shared<FakeClient>();
  const auto elsewhere = std::make_shared<FakeClient>();
  const auto stream = Open(first);
  const auto other = Open(second);
  const auto unconcerned = Open(elsewhere);
  Subscribe(*stream, 7);
  Subscribe(*other, 7);
  Subscribe(*unconcerned, 8);

  EXPECT_EQ(Stream::Publish(Window(7), Closed(7)), 2u);
  for (const auto& client : {first, second}) {
    ASSERT_EQ(client->frames.size(), 1u);
    EXPECT_EQ(client->frames[0].payload(), Closed(7).SerializeAsString());
    EXPECT_EQ(client->frames[0].call_id(), 0);
  }
  EXPECT_TRUE(elsewhere->frames.empty());
}

TEST_F(PublishTest, ReachesNobodyWhereNobodySubscribed) {
  const auto stream = Open();
  Subscribe(*stream, 8);
  EXPECT_EQ(Stream::Publish(Window(7), Closed(7)), 0u);
  EXPECT_EQ(Entries(), 1u);
}

TEST_F(PublishTest, DoesNotCountClientsThatCanNoLongerBeReached) {
  const auto client = std::make_shared<FakeClient>();
  const auto stream = Open(client);
  const auto other = Open();
  Subscribe(*stream, 7);
  Subscribe(*other, 7);
  client->reachable = false;
  EXPECT_EQ(Stream::Publish(Window(7), Closed(7)), 1u);
}

TEST_F(PublishTest, PassesOverStreamsThatCompletedUnderASharedKey) {
  const auto client = std::make_shared<FakeClient>();
  auto stream = Open(client);
  const auto other = Open();
  Subscribe(*stream, 7);
  Subscribe(*other, 7);
  stream->OnCompleted();
  EXPECT_EQ(Stream::Publish(Window(7), Closed(7)), 1u);
  stream.reset();
  EXPECT_EQ(Stream::Publish(Window(7), Closed(7)), 1u);
  EXPECT_TRUE(client->frames.empty());
}

TEST_F(PublishTest, ANewStreamDoesNotInheritTheKeysOfItsAddress) {
  alignas(Stream) char memory[sizeof(Stream)];
  const auto other = Open();
  const auto* method = rpc::BrowserWindowRpc::descriptor()->method(37);
  Stream* stream = new (memory) Stream(&service_, method, MakeChannel());
  stream->Subscribe(Window(1));
  stream->Subscribe(Window(2));
  other->Subscribe(Window(1));
  other->Subscribe(Window(2));
  stream->OnCompleted();
  other->Unsubscribe(Window(2));
  stream->~Stream();
  ASSERT_EQ(SubscribersOf(1).size(), 2u);
  ASSERT_EQ(SubscribersOf(2), Streams{stream});

  const auto client = std::make_shared<FakeClient>();
  stream = new (memory) Stream(&service_, method, MakeChannel(client));
  EXPECT_EQ(SubscribersOf(1), Streams{other.get()});
  EXPECT_TRUE(SubscribersOf(2).empty());
  stream->Subscribe(Window(2));
  EXPECT_EQ(Stream::Publish(Window(1), Closed(1)), 1u);
  EXPECT_EQ(Stream::Publish(Window(2), Closed(2)), 1u);
  EXPECT_EQ(client->frames.size(), 1u);
  stream->OnCompleted();
  stream->~Stream();
}

TEST_F(PublishTest, SurvivesStreamsThatAWriteCompletes) {
  const auto client = std::make_shared<FakeClient>();
  const std::unique_ptr<Stream> streams[] = {Open(client), Open(client),
                                             Open(client)};
  for (const auto& stream : streams)
    Subscribe(*stream, 7);
  bool is_first_write = true;
  client->on_frame = [&](const rpc::transport::StreamMessage&) {
    if (!std::exchange(is_first_write, false))
      return;
    for (const auto& stream : streams)
      stream->OnCompleted();
  };
  EXPECT_EQ(Stream::Publish(Window(7), Closed(7)), 1u);
  EXPECT_EQ(client->completions, 3);
}

TEST_F(PublishTest, SurvivesTheLastSubscribersCompletionByAWrite) {
  const auto client = std::make_shared<FakeClient>();
  const auto stream = Open(client);
  Subscribe(*stream, 7);
  client->on_frame = [&](const rpc::transport::StreamMessage&) {
    stream->OnCompleted();
  };
  EXPECT_EQ(Stream::Publish(Window(7), Closed(7)), 1u);
  EXPECT_EQ(Entries(), 0u);
}

}  // namespace
}  // namespace torvane
