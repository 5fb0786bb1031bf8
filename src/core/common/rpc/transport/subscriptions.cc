#include "core/common/rpc/transport/subscriptions.h"

#include <google/protobuf/io/coded_stream.h>
#include <google/protobuf/message.h>
#include <google/protobuf/wire_format_lite.h>

#include <cstdint>
#include <memory>
#include <utility>

#include "rpc/event_subscription.pb.h"

namespace rpc::transport {
namespace {

using google::protobuf::internal::WireFormatLite;
using google::protobuf::io::CodedInputStream;

// Whether a message has, or may have, the field `number`. Spares the many
// answers on a stream of questions from being parsed twice.
bool MayHave(const std::string& payload, int number) {
  CodedInputStream input(reinterpret_cast<const uint8_t*>(payload.data()),
                         static_cast<int>(payload.size()));
  while (const uint32_t tag = input.ReadTag()) {
    if (WireFormatLite::GetTagFieldNumber(tag) == number ||
        !WireFormatLite::SkipField(&input, tag)) {
      return true;
    }
  }
  return !input.ConsumedEntireMessage();
}

}  // namespace

Subscriptions::Subscriptions(size_t max, Counters& counters)
    : max_(max), counters_(counters) {}

bool Subscriptions::Note(const ServedMethod& method,
                         const StreamMessage& message,
                         Keys& keys) {
  switch (method.kind) {
    case MethodKind::kEvents:
      return NoteEvents(message, keys);
    case MethodKind::kQuestions:
      return !MayHave(message.payload(), method.subscribe->number()) ||
             NoteQuestions(method, message, keys);
    case MethodKind::kUnary:
    case MethodKind::kOtherStream:
      break;
  }
  return true;
}

// What does not parse counts as far as it parsed, as it does for the stream.
bool Subscriptions::NoteEvents(const StreamMessage& message, Keys& keys) {
  EventSubscription subscription;
  subscription.ParseFromString(message.payload());
  if (subscription.has_subscribe_to()) {
    return Add(subscription.subscribe_to().SerializeAsString(), keys);
  }
  if (subscription.has_unsubscribe_from()) {
    Remove(subscription.unsubscribe_from().SerializeAsString(), keys);
  }
  return true;
}

bool Subscriptions::NoteQuestions(const ServedMethod& method,
                                  const StreamMessage& message,
                                  Keys& keys) {
  const std::unique_ptr<google::protobuf::Message> frame(
      method.service->GetRequestPrototype(method.descriptor).New());
  frame->ParseFromString(message.payload());
  const google::protobuf::Reflection& fields = *frame->GetReflection();
  if (!fields.HasField(*frame, method.subscribe)) {
    return true;
  }
  std::string key =
      fields.GetMessage(*frame, method.browser_id).SerializeAsString();
  if (fields.GetBool(*frame, method.subscribe)) {
    return Add(std::move(key), keys);
  }
  Remove(key, keys);
  return true;
}

bool Subscriptions::Add(std::string key, Keys& keys) {
  if (keys.contains(key)) {
    return true;
  }
  if (count_ >= max_) {
    return false;
  }
  keys.insert(std::move(key));
  ++count_;
  ++counters_.subscriptions_now;
  return true;
}

void Subscriptions::Remove(const std::string& key, Keys& keys) {
  const size_t removed = keys.erase(key);
  count_ -= removed;
  counters_.subscriptions_now -= removed;
}

void Subscriptions::Forget(Keys& keys) {
  count_ -= keys.size();
  counters_.subscriptions_now -= keys.size();
  keys.clear();
}

}  // namespace rpc::transport
