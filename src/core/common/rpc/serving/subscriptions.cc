#include "core/common/rpc/serving/subscriptions.h"

namespace rpc::serving {
Subscriptions::Subscriptions(size_t max, Counters& counters)
    : max_(max), counters_(counters) {}

bool Subscriptions::Note(const WindowMessage& message, Keys& keys) {
  switch (message.kind) {
    case WindowMessage::Kind::kSubscribe:
      return Add(message.window, keys);
    case WindowMessage::Kind::kUnsubscribe:
      Remove(message.window, keys);
      return true;
    case WindowMessage::Kind::kResponse:
    case WindowMessage::Kind::kOther:
      break;
  }
  return true;
}

bool Subscriptions::Add(const std::string& key, Keys& keys) {
  if (keys.contains(key)) {
    return true;
  }
  if (count_ >= max_) {
    return false;
  }
  keys.insert(key);
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

}  // namespace rpc::serving
