// The one sequence that services, streams and their registries live on.
//
// Nothing on it is locked, so everything that touches it runs there, one task
// after the other. Code that needs to be called later, or from another thread,
// asks for this and knows no event loop:
//
//   sequence.Post([id] { CloseWindow(id); });
//   timer_ = sequence.RunAfter(std::chrono::seconds(5), [this] { GiveUp(); });
//
// Programs run a Loop (loop.h). Tests run a ManualSequence by hand, which has a
// clock of its own (testing/manual_sequence.h).
//
// Ownership: the program's. It outlives whatever it was handed to; tasks that
// have not run when it goes are destroyed without being run.
//
// Sequence: Post() and IsCurrent() may be called on any thread, the rest on the
// sequence itself. No task runs inside the operation that it is given to.
//
// Failure: none.

#ifndef CORE_COMMON_RPC_LOOP_SEQUENCE_H_
#define CORE_COMMON_RPC_LOOP_SEQUENCE_H_

#include <algorithm>
#include <chrono>
#include <memory>
#include <utility>

#include "absl/functional/any_invocable.h"

namespace rpc::loop {

using Task = absl::AnyInvocable<void()>;
using Clock = std::chrono::steady_clock;

// A task that is due at some time. Destroying this is how it is called off: the
// task will not run after that, also where its time has come already.
class Timer {
 public:
  virtual ~Timer() = default;
};

class Sequence {
 public:
  virtual ~Sequence() = default;

  // Runs `task` on a later turn, after those that were posted before.
  virtual void Post(Task task) = 0;

  // Whether the caller runs on this sequence.
  virtual bool IsCurrent() const = 0;

  virtual Clock::time_point Now() const = 0;

  // Runs `task` once `time` has come, unless the timer is destroyed before.
  [[nodiscard]] virtual std::unique_ptr<Timer> RunAt(Clock::time_point time,
                                                     Task task) = 0;

  // When `delay` will be over. Delays of centuries, which no clock can add,
  // count as one.
  Clock::time_point TimeAfter(std::chrono::milliseconds delay) const {
    constexpr std::chrono::milliseconds kCentury =
        std::chrono::hours(24 * 365 * 100);
    return Now() + std::min(delay, kCentury);
  }

  [[nodiscard]] std::unique_ptr<Timer> RunAfter(std::chrono::milliseconds delay,
                                                Task task) {
    return RunAt(TimeAfter(delay), std::move(task));
  }
};

}  // namespace rpc::loop

#endif  // CORE_COMMON_RPC_LOOP_SEQUENCE_H_
