#include "core/common/rpc/grpc/front/sliced_tasks.h"

#include <utility>

#include "core/common/rpc/serving/ending_queue.h"

namespace rpc::grpc {

void SlicedTasks::Add(loop::Task task) {
  waiting_.push_back(std::move(task));
  if (!is_scheduled_) {
    Schedule();
  }
}

void SlicedTasks::Schedule() {
  is_scheduled_ = true;
  sequence_.Post([weak_self = weak_from_this()] {
    if (const auto self = weak_self.lock()) {
      self->RunSlice();
    }
  });
}

void SlicedTasks::RunSlice() {
  is_scheduled_ = false;
  const loop::Clock::time_point start = sequence_.Now();
  while (!waiting_.empty() && sequence_.Now() - start < serving::kEndingSlice) {
    loop::Task task = std::move(waiting_.front());
    waiting_.pop_front();
    task();
  }
  if (!waiting_.empty() && !is_scheduled_) {
    Schedule();
  }
}

}  // namespace rpc::grpc
