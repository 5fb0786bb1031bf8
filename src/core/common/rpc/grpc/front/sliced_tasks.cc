#include "core/common/rpc/grpc/front/sliced_tasks.h"

#include <utility>

#include "core/common/rpc/serving/ending_queue.h"

namespace rpc::grpc {

void SlicedTasks::Add(loop::Task task) {
  waiting_.push_back(std::move(task));
  if (state_ == State::kIdle) {
    Schedule();
  }
}

void SlicedTasks::Schedule() {
  state_ = State::kScheduled;
  sequence_.Post([weak_self = weak_from_this()] {
    if (const auto self = weak_self.lock()) {
      self->RunSlice();
    }
  });
}

void SlicedTasks::RunSlice() {
  state_ = State::kRunning;
  const loop::Clock::time_point start = sequence_.Now();
  while (!waiting_.empty() && sequence_.Now() - start < serving::kEndingSlice) {
    loop::Task task = std::move(waiting_.front());
    waiting_.pop_front();
    task();
  }
  state_ = State::kIdle;
  if (!waiting_.empty()) {
    Schedule();
  }
}

}  // namespace rpc::grpc
