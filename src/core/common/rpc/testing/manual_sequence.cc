#include "core/common/rpc/testing/manual_sequence.h"

#include <algorithm>

namespace rpc::loop {

class ManualSequence::ManualTimer final : public Timer {
 public:
  using Key = Timers::key_type;

  ManualTimer(std::shared_ptr<Timers> timers, const Key& key, Task task)
      : timers_(std::move(timers)), key_(key) {
    timers_->emplace(key_, std::make_shared<Task>(std::move(task)));
  }
  ~ManualTimer() override { timers_->erase(key_); }

 private:
  const std::shared_ptr<Timers> timers_;
  const Key key_;
};

ManualSequence::ManualSequence() = default;
ManualSequence::~ManualSequence() = default;

void ManualSequence::Post(Task task) {
  const std::lock_guard lock(mutex_);
  posted_.push_back(std::move(task));
}

std::unique_ptr<Timer> ManualSequence::RunAt(Clock::time_point time,
                                             Task task) {
  return std::make_unique<ManualTimer>(
      timers_, ManualTimer::Key{time, ++last_timer_}, std::move(task));
}

bool ManualSequence::RunOne() {
  Task task;
  {
    const std::lock_guard lock(mutex_);
    if (posted_.empty()) {
      return false;
    }
    task = std::move(posted_.front());
    posted_.pop_front();
  }
  RunTask(task);
  return true;
}

size_t ManualSequence::Run() {
  size_t count = 0;
  while (RunOne()) {
    ++count;
  }
  return count;
}

void ManualSequence::Advance(Clock::duration duration) {
  const Clock::time_point end = now_ + duration;
  Run();
  while (!timers_->empty() && timers_->begin()->first.first <= end) {
    const auto due = timers_->begin();
    now_ = std::max(now_, due->first.first);
    // Kept while it runs: it may destroy its own timer.
    const std::shared_ptr<Task> task = due->second;
    timers_->erase(due);
    RunTask(*task);
    Run();
  }
  now_ = end;
}

void ManualSequence::RunTask(Task& task) {
  const std::thread::id outer =
      running_on_.exchange(std::this_thread::get_id());
  task();
  running_on_ = outer;
}

}  // namespace rpc::loop
