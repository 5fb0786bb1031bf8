#include "core/common/rpc/serving/subscriptions.h"

#include <utility>

namespace rpc::serving {

Subscriptions::~Subscriptions() {
  for (const std::string& window : windows_) {
    CountRemoved(window);
  }
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
  CountAdded(window);
  return Change::kSubscribed;
}

Subscriptions::Change Subscriptions::Remove(const std::string& window) {
  if (windows_.erase(window) == 0) {
    return Change::kNone;
  }
  CountRemoved(window);
  return Change::kUnsubscribed;
}

std::string Subscriptions::TakeOne() {
  std::string window = std::move(windows_.extract(windows_.begin()).value());
  CountRemoved(window);
  return window;
}

std::vector<std::string> Subscriptions::TakeShared() {
  std::vector<std::string> shared;
  if (subscribers_ == nullptr) {
    return shared;
  }
  for (const std::string& window : windows_) {
    if (subscribers_->AreSeveral(window)) {
      shared.push_back(window);
    }
  }
  for (const std::string& window : shared) {
    Remove(window);
  }
  return shared;
}

void Subscriptions::CountAdded(const std::string& window) {
  ++total_;
  ++counters_.subscriptions_now;
  if (subscribers_ != nullptr) {
    subscribers_->Add(window);
  }
}

void Subscriptions::CountRemoved(const std::string& window) {
  --total_;
  --counters_.subscriptions_now;
  if (subscribers_ != nullptr) {
    subscribers_->Remove(window);
  }
}

}  // namespace rpc::serving
