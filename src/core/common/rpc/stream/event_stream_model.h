// Does operations on event streams and the same on a simple model, and compares
// the two after each step.

#ifndef CORE_COMMON_RPC_STREAM_EVENT_STREAM_MODEL_H_
#define CORE_COMMON_RPC_STREAM_EVENT_STREAM_MODEL_H_

#include <gtest/gtest.h>
#include <sanitizer/asan_interface.h>

#include <map>
#include <memory>
#include <new>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "core/common/rpc/stream/event_stream.h"
#include "core/common/rpc/testing/choice.h"
#include "core/common/rpc/testing/fake_endpoint.h"
#include "rpc/browser/browser_window.rpc.h"

namespace torvane {

class EventStreamModel {
 public:
  explicit EventStreamModel(Choice choice) : choice_(std::move(choice)) {
    for (Slot& slot : slots_)
      Open(slot);
  }

  ~EventStreamModel() {
    for (Slot& slot : slots_)
      Destroy(slot);
    for (Slot& slot : slots_)
      ASAN_UNPOISON_MEMORY_REGION(slot.places, sizeof(slot.places));
    for (const auto& [key, streams] : Stream::stream_map_)
      delete key;
    Stream::stream_map_.clear();
  }

  void Step() {
    Slot& slot = slots_[choice_(kStreams)];
    const int64_t window = choice_(kWindows);
    switch (choice_(12)) {
      case 0:
        return End(slot);
      case 1:
        return Publish(window);
      case 2:
        return slot.stream->OnError(nullptr);
      case 3:
        return Deliver(slot, rpc::EventSubscription());
      case 4:
      case 5:
      case 6:
      case 7:
        return Unsubscribe(slot, window);
      default:
        return Subscribe(slot, window);
    }
  }

  // Compares the registry with the model, window by window.
  void Check() const {
    std::map<int64_t, std::set<Stream*>> actual;
    for (const auto& [key, streams] : Stream::stream_map_) {
      const int64_t window = static_cast<const BrowserId*>(key)->value();
      ASSERT_TRUE(actual.emplace(window, streams).second);
    }
    ASSERT_EQ(actual, registry_);
  }

 private:
  using Stream = EventStream<rpc::BrowserWindowClosed>;

  static constexpr int kStreams = 5;
  static constexpr int kWindows = 4;

  // Streams are created at few addresses, so that new ones meet the lapsed
  // subscriptions of old ones. A slot without a stream must not be touched.
  struct Slot {
    alignas(Stream) char places[2][sizeof(Stream)];
    Stream* stream = nullptr;
    std::shared_ptr<FakeClient> client;
    // The windows that this stream has subscribed to. The registry may have its
    // address for others as well: lapsed subscriptions of an earlier stream.
    std::set<int64_t> windows;
    size_t events = 0;
  };

  static void Destroy(Slot& slot) {
    slot.stream->~Stream();
    ASAN_POISON_MEMORY_REGION(slot.stream, sizeof(Stream));
    slot.stream = nullptr;
  }

  void Open(Slot& slot) {
    slot.client = std::make_shared<FakeClient>();
    slot.events = 0;
    char* const place = slot.places[choice_(2)];
    ASAN_UNPOISON_MEMORY_REGION(place, sizeof(Stream));
    slot.stream = new (place)
        Stream(&service_, rpc::BrowserWindowRpc::descriptor()->method(37),
               MakeChannel(slot.client));
  }

  void Deliver(Slot& slot, const rpc::EventSubscription& subscription) {
    rpc::transport::StreamMessage frame;
    subscription.SerializeToString(frame.mutable_payload());
    slot.stream->OnNext(&frame);
  }

  void Subscribe(Slot& slot, int64_t window) {
    rpc::EventSubscription subscription;
    subscription.mutable_subscribe_to()->set_value(window);
    Deliver(slot, subscription);
    registry_[window].insert(slot.stream);
    slot.windows.insert(window);
  }

  void Unsubscribe(Slot& slot, int64_t window) {
    rpc::EventSubscription subscription;
    subscription.mutable_unsubscribe_from()->set_value(window);
    Deliver(slot, subscription);
    slot.windows.erase(window);
    const auto entry = registry_.find(window);
    if (entry == registry_.end())
      return;
    entry->second.erase(slot.stream);
    if (entry->second.empty())
      registry_.erase(entry);
  }

  // Completes a stream, sometimes publishes to what it leaves behind, destroys
  // it and opens another in its place.
  void End(Slot& slot) {
    Stream* const stream = slot.stream;
    stream->OnCompleted();
    ASSERT_EQ(slot.client->completions, 1);
    for (int64_t window = 0; window < kWindows; ++window) {
      const auto entry = registry_.find(window);
      if (entry != registry_.end() && entry->second == std::set{stream})
        registry_.erase(entry);
    }
    slot.windows.clear();
    Check();
    if (choice_(2) == 0)
      Publish(choice_(kWindows));
    Destroy(slot);
    if (choice_(2) == 0)
      Publish(choice_(kWindows));
    Open(slot);
  }

  void Publish(int64_t window) {
    BrowserId key;
    key.set_value(window);
    size_t expected = 0;
    for (Slot& slot : slots_) {
      const bool subscribed = slot.windows.contains(window);
      slot.events += subscribed;
      expected += subscribed;
    }
    ASSERT_EQ(Stream::Publish(key, rpc::BrowserWindowClosed()), expected);
    for (const Slot& slot : slots_)
      ASSERT_EQ(slot.client->frames.size(), slot.events);
  }

  rpc::BrowserWindowRpc service_;
  const Choice choice_;
  Slot slots_[kStreams];
  std::map<int64_t, std::set<Stream*>> registry_;
};

}  // namespace torvane

#endif  // CORE_COMMON_RPC_STREAM_EVENT_STREAM_MODEL_H_
