#include "tools/soak/deaths.h"

namespace soak {

void Deaths::Add(int64_t client, size_t questions, TimePoint when) {
  if (questions > 0)
    pending_[client] = {when, questions};
}

void Deaths::OnSettled(int64_t client, TimePoint when) {
  const auto death = pending_.find(client);
  if (death == pending_.end() || --death->second.questions > 0)
    return;
  times_->Add(when - death->second.when);
  pending_.erase(death);
}

}  // namespace soak
