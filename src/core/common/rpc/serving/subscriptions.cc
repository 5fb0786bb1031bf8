#include "core/common/rpc/serving/subscriptions.h"

#include <utility>

namespace rpc::serving {

Subscriptions::~Subscriptions() {
  Count(0, windows_.size());
}

bool Subscriptions::Note(const WindowMessage& message, size_t max) {
  if (message.kind == WindowMessage::Kind::kUnsubscribe) {
    Count(0, windows_.erase(message.window));
  }
  if (message.kind != WindowMessage::Kind::kSubscribe ||
      windows_.contains(message.window)) {
    return true;
  }
  if (total_ >= max) {
    return false;
  }
  windows_.insert(message.window);
  Count(1, 0);
  return true;
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
