// How events reach the streams that are subscribed to them.

#include <gtest/gtest.h>

#include <algorithm>
#include <iterator>
#include <memory>
#include <new>
#include <string>
#include <utility>

#include "core/common/rpc/stream/event_stream.h"
#include "core/common/rpc/stream/event_stream_test_support.h"
#include "core/common/rpc/testing/fake_endpoint.h"
#include "rpc/browser/browser_window.rpc.h"

namespace torvane {
namespace {

class PublishTest : public EventStreamTest {
 protected:
  static rpc::BrowserWindowClosed Closed(int64_t window) {
    rpc::BrowserWindowClosed event;
    *event.mutable_browser_id() = WindowId(window);
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

  EXPECT_EQ(Stream::Publish(WindowId(7), Closed(7)), 2u);
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
  EXPECT_EQ(Stream::Publish(WindowId(7), Closed(7)), 0u);
  EXPECT_EQ(Entries(), 1u);
}

TEST_F(PublishTest, DoesNotCountClientsThatCanNoLongerBeReached) {
  const auto client = std::make_shared<FakeClient>();
  const auto stream = Open(client);
  const auto other = Open();
  Subscribe(*stream, 7);
  Subscribe(*other, 7);
  client->reachable = false;
  EXPECT_EQ(Stream::Publish(WindowId(7), Closed(7)), 1u);
}

TEST_F(PublishTest, PassesOverStreamsThatCompletedUnderASharedKey) {
  const auto client = std::make_shared<FakeClient>();
  auto stream = Open(client);
  const auto other = Open();
  Subscribe(*stream, 7);
  Subscribe(*other, 7);
  stream->OnCompleted();
  EXPECT_EQ(Stream::Publish(WindowId(7), Closed(7)), 1u);
  stream.reset();
  EXPECT_EQ(Stream::Publish(WindowId(7), Closed(7)), 1u);
  EXPECT_TRUE(client->frames.empty());
}

TEST_F(PublishTest, ANewStreamDoesNotInheritTheKeysOfItsAddress) {
  alignas(Stream) char memory[sizeof(Stream)];
  const auto* method = rpc::BrowserWindowRpc::descriptor()->method(37);
  const auto other = Open();
  Stream* stream = new (memory) Stream(&service_, method, MakeChannel());
  for (const int64_t window : {1, 2, 3}) {
    stream->Subscribe(WindowId(window));
    other->Subscribe(WindowId(window));
  }
  stream->OnCompleted();
  stream->~Stream();

  // The registry stays as it is; what it says of the address no longer counts.
  const auto client = std::make_shared<FakeClient>();
  stream = new (memory) Stream(&service_, method, MakeChannel(client));
  EXPECT_EQ(SubscribersOf(1), (Streams{stream, other.get()}));
  EXPECT_EQ(Stream::Publish(WindowId(1), Closed(1)), 1u);
  EXPECT_TRUE(client->frames.empty());

  stream->Subscribe(WindowId(2));
  EXPECT_EQ(Stream::Publish(WindowId(2), Closed(2)), 2u);
  EXPECT_EQ(client->frames.size(), 1u);

  stream->Unsubscribe(WindowId(3));
  EXPECT_EQ(SubscribersOf(3), Streams{other.get()});
  stream->Subscribe(WindowId(3));
  EXPECT_EQ(Stream::Publish(WindowId(3), Closed(3)), 2u);
  stream->OnCompleted();
  stream->~Stream();
}

TEST_F(PublishTest, OpeningAStreamDoesNotTouchTheRegistry) {
  const auto other = Open();
  alignas(Stream) char memory[sizeof(Stream)];
  const auto* method = rpc::BrowserWindowRpc::descriptor()->method(37);
  Stream* stream = new (memory) Stream(&service_, method, MakeChannel());
  stream->Subscribe(WindowId(1));
  other->Subscribe(WindowId(1));
  stream->OnCompleted();
  stream->~Stream();
  const auto before = Stream::stream_map_;
  stream = new (memory) Stream(&service_, method, MakeChannel());
  EXPECT_EQ(Stream::stream_map_, before);
  stream->~Stream();
}

// An event that counts how often it is serialised.
struct CountedEvent {
  bool SerializeToString(std::string* output) const {
    ++serialised;
    *output = "event";
    return true;
  }
  mutable int serialised = 0;
};

TEST_F(PublishTest, SerialisesTheEventOnceForAllStreams) {
  using CountedStream = EventStream<CountedEvent>;
  const auto client = std::make_shared<FakeClient>();
  CountedStream first(&service_, nullptr, MakeChannel(client));
  CountedStream second(&service_, nullptr, MakeChannel(client));
  CountedStream third(&service_, nullptr, MakeChannel(client));
  for (CountedStream* stream : {&first, &second, &third})
    stream->Subscribe(WindowId(7));
  const CountedEvent event;
  EXPECT_EQ(CountedStream::Publish(WindowId(7), event), 3u);
  EXPECT_EQ(event.serialised, 1);
  EXPECT_EQ(client->frames.back().payload(), "event");

  EXPECT_EQ(CountedStream::Publish(WindowId(8), event), 0u);
  EXPECT_EQ(event.serialised, 1);
  for (CountedStream* stream : {&first, &second, &third})
    stream->Unsubscribe(WindowId(7));
}

TEST_F(PublishTest, PassesOverThoseWhoAreNoLongerSubscribedByAWrite) {
  const auto client = std::make_shared<FakeClient>();
  std::unique_ptr<Stream> streams[] = {Open(client), Open(client),
                                       Open(client)};
  std::sort(std::begin(streams), std::end(streams));
  for (const auto& stream : streams)
    Subscribe(*stream, 7);
  bool is_first_write = true;
  client->on_frame = [&](const rpc::transport::StreamMessage&) {
    if (!std::exchange(is_first_write, false))
      return;
    // The last one is then the only subscriber, and leaves the set as it
    // completes.
    streams[0]->Unsubscribe(WindowId(7));
    streams[1]->Unsubscribe(WindowId(7));
    streams[2]->OnCompleted();
  };
  EXPECT_EQ(Stream::Publish(WindowId(7), Closed(7)), 1u);
  EXPECT_EQ(client->frames.size(), 1u);
}

TEST_F(PublishTest, PassesOverAStreamThatAWriteUnsubscribesThoughOthersStay) {
  const auto client = std::make_shared<FakeClient>();
  std::unique_ptr<Stream> streams[] = {Open(client), Open(client),
                                       Open(client)};
  std::sort(std::begin(streams), std::end(streams));
  for (const auto& stream : streams)
    Subscribe(*stream, 7);
  bool is_first_write = true;
  client->on_frame = [&](const rpc::transport::StreamMessage&) {
    if (std::exchange(is_first_write, false))
      streams[1]->Unsubscribe(WindowId(7));
  };
  EXPECT_EQ(Stream::Publish(WindowId(7), Closed(7)), 2u);
  EXPECT_EQ(client->frames.size(), 2u);
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
  EXPECT_EQ(Stream::Publish(WindowId(7), Closed(7)), 1u);
  EXPECT_EQ(client->completions, 3);
}

TEST_F(PublishTest, SurvivesTheLastSubscribersCompletionByAWrite) {
  const auto client = std::make_shared<FakeClient>();
  const auto stream = Open(client);
  Subscribe(*stream, 7);
  client->on_frame = [&](const rpc::transport::StreamMessage&) {
    stream->OnCompleted();
  };
  EXPECT_EQ(Stream::Publish(WindowId(7), Closed(7)), 1u);
  EXPECT_EQ(Entries(), 0u);
}

}  // namespace
}  // namespace torvane
