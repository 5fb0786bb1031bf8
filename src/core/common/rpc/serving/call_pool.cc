#include "core/common/rpc/serving/call_pool.h"

#include <utility>

namespace rpc::serving {

CallPool::CallPool(loop::Sequence& sequence, std::shared_ptr<Counters> counters)
    : sequence_(sequence), counters_(std::move(counters)) {}

CallPool::~CallPool() = default;

std::shared_ptr<Call> CallPool::Take() {
  // The method of an idle call may still be on the stack: it has run its
  // closure and then the sequence, within which this call is made.
  if (idle_.size() < kIdleCalls || idle_.front().use_count() > 1) {
    return std::make_shared<Call>(shared_from_this());
  }
  std::shared_ptr<Call> call = std::move(idle_.front());
  idle_.pop_front();
  return call;
}

void CallPool::Return(std::shared_ptr<Call> call) {
  call->Clear();
  if (closed_) {
    return;
  }
  idle_.push_back(std::move(call));
  if (idle_.size() > kIdleCalls) {
    idle_.pop_front();
  }
}

void CallPool::Close() {
  closed_ = true;
  idle_.clear();
}

}  // namespace rpc::serving
