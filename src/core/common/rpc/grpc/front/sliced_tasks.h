// Runs tasks for a slice of time on each turn of the sequence, so that
// everybody else is served in between. Streams end here: all do when the front
// stops, and a client that goes may leave many behind. What
// serving::EndingQueue is for streams of services, this is for those of any
// backend.
//
// Ownership: the front's.
//
// Sequence: the front's.
//
// Failure: none.

#ifndef CORE_COMMON_RPC_GRPC_FRONT_SLICED_TASKS_H_
#define CORE_COMMON_RPC_GRPC_FRONT_SLICED_TASKS_H_

#include <deque>
#include <memory>

#include "core/common/rpc/loop/sequence.h"

namespace rpc::grpc {

class SlicedTasks final : public std::enable_shared_from_this<SlicedTasks> {
 public:
  explicit SlicedTasks(loop::Sequence& sequence) : sequence_(sequence) {}
  SlicedTasks(const SlicedTasks&) = delete;
  SlicedTasks& operator=(const SlicedTasks&) = delete;

  // Runs `task` on a later turn, after those that were added before are done,
  // also where one of them runs the loop; not at all if this is gone by then.
  void Add(loop::Task task);

 private:
  enum class State { kIdle, kScheduled, kRunning };

  void Schedule();
  void RunSlice();

  loop::Sequence& sequence_;
  State state_ = State::kIdle;
  std::deque<loop::Task> waiting_;
};

}  // namespace rpc::grpc

#endif  // CORE_COMMON_RPC_GRPC_FRONT_SLICED_TASKS_H_
