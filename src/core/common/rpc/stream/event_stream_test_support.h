// What the tests of event streams share.

#ifndef CORE_COMMON_RPC_STREAM_EVENT_STREAM_TEST_SUPPORT_H_
#define CORE_COMMON_RPC_STREAM_EVENT_STREAM_TEST_SUPPORT_H_

#include <gtest/gtest.h>

#include <cstdint>
#include <memory>
#include <set>
#include <string>
#include <utility>

#include "core/common/rpc/stream/event_stream.h"
#include "core/common/rpc/testing/fake_endpoint.h"
#include "core/common/rpc/testing/window_id.h"
#include "rpc/browser/browser_window.rpc.h"

namespace torvane {

class EventStreamTest : public testing::Test {
 protected:
  using Stream = EventStream<rpc::BrowserWindowClosed>;
  using Streams = std::set<Stream*>;

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

  // Delivers a frame as a transport does, and destroys it afterwards.
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
    *subscription.mutable_subscribe_to() = WindowId(window);
    Deliver(stream, subscription.SerializeAsString());
  }

  static void Unsubscribe(Stream& stream, int64_t window) {
    rpc::EventSubscription subscription;
    *subscription.mutable_unsubscribe_from() = WindowId(window);
    Deliver(stream, subscription.SerializeAsString());
  }

  // The streams subscribed to a window; none where there is no entry.
  static Streams SubscribersOf(int64_t window) {
    const BrowserId key = WindowId(window);
    const auto entry = Stream::stream_map_.find(&key);
    if (entry == Stream::stream_map_.end())
      return {};
    EXPECT_FALSE(entry->second.empty());
    return entry->second;
  }

  static size_t Entries() { return Stream::stream_map_.size(); }

  rpc::BrowserWindowRpc service_;
};

}  // namespace torvane

#endif  // CORE_COMMON_RPC_STREAM_EVENT_STREAM_TEST_SUPPORT_H_
