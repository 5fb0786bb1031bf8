// A stream on which the browser pushes events to clients.
//
// The browser does not know who wants to hear of an event. A client opens an
// event stream and subscribes, frame by frame, to the keys it wants to be told
// about. All streams of one event type T share one registry, in which Publish
// looks the key up:
//
//   client ── rpc::EventSubscription ──> OnNext ──> stream_map_[key] += stream
//   client <── T ── stream <── stream_map_[key] <── Publish(key, event)
//
// A generated service opens the streams; the browser's part is one line:
//
//   torvane::EventStream<rpc::BrowserWindowClosed>::Publish(browser_id, event);
//
// Ownership: the transport owns the stream, which must see OnCompleted before
// it is destroyed. The registry owns its keys, copies made by Subscribe, and
// points to streams that it does not own. A stream that completes removes the
// keys that it alone is subscribed to. From the set of a key that other streams
// share, its address is not removed: the subscription has lapsed, and Publish
// ignores it, also when a new stream is created at the same address.
//
// Sequence: everything here, destruction and Publish included, runs on the one
// sequence of the service. Nothing is locked.
//
// Failure: nothing is reported or logged. A payload that does not parse is
// handled as far as it parsed.

#ifndef CORE_COMMON_RPC_STREAM_EVENT_STREAM_H_
#define CORE_COMMON_RPC_STREAM_EVENT_STREAM_H_

#include <google/protobuf/descriptor.h>
#include <google/protobuf/message.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <map>
#include <set>
#include <utility>
#include <vector>

#include "base/memory/raw_ptr.h"
#include "core/common/rpc/stream/abstract_stream.h"
#include "core/common/rpc/stream/message_comparator.h"
#include "core/common/rpc/stream/service.h"
#include "rpc/event_subscription.pb.h"
#include "rpc/transport/stream_message.pb.h"

namespace torvane {

// T is the event, a protobuf message type. Each T has a registry of its own.
template <typename T>
class EventStream : public AbstractStream {
 public:
  using StreamMap = std::map<const google::protobuf::Message*,
                             std::set<EventStream*>,
                             MessageComparator>;

  // `service` and `method` must outlive the stream.
  EventStream(Service* service,
              const google::protobuf::MethodDescriptor* method,
              StreamChannel channel)
      : AbstractStream(std::move(channel)),
        service_(service),
        method_(method) {}

  ~EventStream() override = default;

  // Writes `event`, serialised once, to every stream subscribed to `key`.
  // Returns the number of streams that have taken it; one whose client can no
  // longer be reached does not count. `key` stays the caller's.
  static size_t Publish(const google::protobuf::Message& key, const T& event) {
    const auto entry = stream_map_.find(&key);
    if (entry == stream_map_.end())
      return 0;

    rpc::transport::StreamMessage frame;
    event.SerializeToString(frame.mutable_payload());
    // A copy, since Send() may make the transport complete streams and so
    // change the set. A stream that is no longer subscribed by its turn gets
    // nothing.
    std::vector<EventStream*> streams(entry->second.size());
    std::copy(entry->second.begin(), entry->second.end(), streams.begin());
    const uint64_t changes_before = changes_;
    size_t written = 0;
    for (EventStream* stream : streams) {
      const bool is_subscribed = changes_ == changes_before
                                     ? !HasLapsed(entry->first, stream)
                                     : IsSubscribed(key, stream);
      if (is_subscribed && stream->Send(frame))
        ++written;
    }
    return written;
  }

  // AbstractStream:

  // Applies the subscription change that the frame carries, if any.
  void OnNext(rpc::transport::StreamMessage* message) override {
    google::protobuf::Message* request =
        NewRequest(service_->GetRequestPrototype(method_));
    request->ParseFromString(message->payload());

    auto& subscription = static_cast<rpc::EventSubscription&>(*request);
    switch (subscription.action_case()) {
      case rpc::EventSubscription::kSubscribeTo:
        return Subscribe(subscription.subscribe_to());
      case rpc::EventSubscription::kUnsubscribeFrom:
        return Unsubscribe(subscription.unsubscribe_from());
      case rpc::EventSubscription::ACTION_NOT_SET:
        return;
    }
  }

  // Ignored: a client's error changes no subscription.
  void OnError(rpc::transport::StreamMessage*) override {}

  void OnCompleted() override {
    // Collected first, since Unsubscribe removes entries from the map.
    std::set<const google::protobuf::Message*> held_alone;
    for (const auto& [key, streams] : stream_map_) {
      std::set<EventStream*> others = streams;
      const bool is_subscribed = others.erase(this) != 0;
      if (others.empty())
        held_alone.insert(key);
      else if (is_subscribed)
        Lapse(key);
    }
    for (const google::protobuf::Message* key : held_alone)
      Unsubscribe(*key);
    Complete();
  }

  // Adds this stream to the subscribers of `key`; a second time changes
  // nothing. A new key is copied into the registry.
  void Subscribe(const google::protobuf::Message& key) {
    auto entry = stream_map_.find(&key);
    if (entry == stream_map_.end()) {
      google::protobuf::Message* copy = key.New();
      copy->CopyFrom(key);
      entry = stream_map_.try_emplace(copy).first;
    }
    entry->second.insert(this);
    Renew(entry->first);
  }

  // Removes this stream from the subscribers of `key`, and with the last
  // subscriber the key. If the registry has no equal key, `key` itself is
  // deleted: it must be a heap object that nobody else deletes.
  void Unsubscribe(const google::protobuf::Message& key) {
    const auto entry = stream_map_.try_emplace(&key).first;
    entry->second.erase(this);
    Renew(entry->first);
    if (!entry->second.empty())
      return;

    const google::protobuf::Message* stored_key = entry->first;
    stream_map_.erase(entry);
    delete stored_key;
  }

  // The registry: which streams are subscribed to which key. No set is empty.
  static StreamMap stream_map_;

 private:
  // A key of the registry, and the address of a stream in its set.
  using Subscription =
      std::pair<const google::protobuf::Message*, const EventStream*>;

  // The message that a frame is parsed into. It is leaked on purpose, because
  // Unsubscribe may have deleted the key inside it. Never inlined, so that leak
  // detectors can name this function as the one to ignore.
  [[gnu::noinline]] static google::protobuf::Message* NewRequest(
      const google::protobuf::Message& prototype) {
    return prototype.New();
  }

  // The stream is over, and its address stays in the set of `key`.
  void Lapse(const google::protobuf::Message* key) {
    ++changes_;
    if (!lapsed_)
      lapsed_ = new std::set<Subscription>;
    lapsed_->emplace(key, this);
  }

  // Forgets that an earlier stream at this address had lapsed for `key`.
  void Renew(const google::protobuf::Message* key) {
    ++changes_;
    if (lapsed_)
      lapsed_->erase({key, this});
  }

  static bool HasLapsed(const google::protobuf::Message* key,
                        const EventStream* stream) {
    return lapsed_ && lapsed_->contains({key, stream});
  }

  static bool IsSubscribed(const google::protobuf::Message& key,
                           EventStream* stream) {
    const auto entry = stream_map_.find(&key);
    return entry != stream_map_.end() && entry->second.contains(stream) &&
           !HasLapsed(entry->first, stream);
  }

  // The subscriptions that have lapsed; null until there is one. Never freed,
  // since streams may be destroyed after static objects are.
  static inline constinit std::set<Subscription>* lapsed_ = nullptr;
  // Goes up with every change of subscriptions. While it stays the same,
  // Publish need not look a stream up again before it writes.
  static inline constinit uint64_t changes_ = 0;

  const raw_ptr<Service> service_;
  const raw_ptr<const google::protobuf::MethodDescriptor> method_;
};

template <typename T>
typename EventStream<T>::StreamMap EventStream<T>::stream_map_;

}  // namespace torvane

#endif  // CORE_COMMON_RPC_STREAM_EVENT_STREAM_H_
