#include "core/common/rpc/serving/subscriptions.h"

#include <utility>

namespace rpc::serving {

Subscriptions::~Subscriptions() {
  Count(0, windows_.size());
}

Subscriptions::Change Subscriptions::Note(const WindowMessage& message,
                                          const Limits& limits) {
  switch (message.kind) {
    case WindowMessage::Kind::kSubscribe:
      return Add(message.window, limits);
    case WindowMessage::Kind::kUnsubscribe:
      return Remove(message.window);
    case WindowMessage::Kind::kResponse:
    case WindowMessage::Kind::kOther:
      return Change::kNone;
  }
  return Change::kNone;
}

Subscriptions::Change Subscriptions::Add(const std::string& window,
                                         const Limits& limits) {
  if (windows_.contains(window)) {
    return Change::kNone;
  }
  if (total_ >= limits.max_subscriptions) {
    return Change::kTooManyOfClient;
  }
  if (counters_.subscriptions_now >= limits.max_server_subscriptions) {
    return Change::kTooManyOfServer;
  }
  windows_.insert(window);
  Count(1, 0);
  return Change::kSubscribed;
}

Subscriptions::Change Subscriptions::Remove(const std::string& window) {
  if (windows_.erase(window) == 0) {
    return Change::kNone;
  }
  Count(0, 1);
  return Change::kUnsubscribed;
}

std::string Subscriptions::TakeOne() {
  std::string window = std::move(windows_.extract(windows_.begin()).value());
  Count(0, 1);
  return window;
}

void Subscriptions::Count(size_t added, size_t removed) {
  total_ += added - removed;
  counters_.subscriptions_now += added - removed;
}

}  // namespace rpc::serving
