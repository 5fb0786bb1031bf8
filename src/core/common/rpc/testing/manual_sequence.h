// A sequence that a test runs by hand, with a clock that only the test moves.
//
//   ManualSequence sequence;
//   AskWithin(sequence, std::chrono::seconds(5), question, settle);
//   sequence.Advance(std::chrono::seconds(5));    // now it is too late
//
// Ownership: the test's. It outlives whatever it was handed to.
//
// Sequence: Post() may be called on any thread, and its tasks run where Run()
// or Advance() is called; everything else belongs to that one thread.

#ifndef CORE_COMMON_RPC_TESTING_MANUAL_SEQUENCE_H_
#define CORE_COMMON_RPC_TESTING_MANUAL_SEQUENCE_H_

#include <atomic>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <map>
#include <memory>
#include <mutex>
#include <thread>
#include <utility>

#include "core/common/rpc/loop/sequence.h"

namespace rpc::loop {

class ManualSequence final : public Sequence {
 public:
  ManualSequence();
  ManualSequence(const ManualSequence&) = delete;
  ManualSequence& operator=(const ManualSequence&) = delete;
  ~ManualSequence() override;

  // Sequence. It is current only within its tasks.
  void Post(Task task) override;
  bool IsCurrent() const override {
    return running_on_.load() == std::this_thread::get_id();
  }
  Clock::time_point Now() const override { return now_; }
  std::unique_ptr<Timer> RunAt(Clock::time_point time, Task task) override;

  // Runs all tasks that wait, and what they post; returns how many. Timers do
  // not run: time stands still.
  size_t Run();

  // Runs one task that waits; false when there is none.
  bool RunOne();

  // Moves the clock and runs, in their order, the timers that become due and
  // the tasks that are posted meanwhile.
  void Advance(Clock::duration duration);

  // Timers that are not due yet.
  size_t timers() const { return timers_->size(); }

 private:
  class ManualTimer;
  // By time, and among the same by the order in which they were set.
  using Timers =
      std::map<std::pair<Clock::time_point, uint64_t>, std::shared_ptr<Task>>;

  void RunTask(Task& task);

  std::mutex mutex_;
  std::deque<Task> posted_;
  // Shared with the timers, which may outlive this.
  const std::shared_ptr<Timers> timers_ = std::make_shared<Timers>();
  uint64_t last_timer_ = 0;
  // Not the epoch: a deadline of zero shall not look like one that has come.
  Clock::time_point now_{std::chrono::hours(1)};
  // The thread that runs a task just now; else none.
  std::atomic<std::thread::id> running_on_;
};

}  // namespace rpc::loop

#endif  // CORE_COMMON_RPC_TESTING_MANUAL_SEQUENCE_H_
