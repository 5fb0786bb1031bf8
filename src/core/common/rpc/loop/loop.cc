#include "core/common/rpc/loop/loop.h"

#include <string>
#include <system_error>
#include <utility>

#include "core/common/rpc/loop/asio.h"
#include "core/common/rpc/loop/exception_boundary.h"

namespace rpc::loop {
namespace {

// Asio may have taken the wait for over when it is cancelled, so the task
// itself is what is called off.
class AsioTimer final : public Timer {
 public:
  AsioTimer(asio::io_context& context, Clock::time_point time, Task task)
      : timer_(context, time), task_(std::make_shared<Task>(std::move(task))) {
    timer_.async_wait(
        [weak_task = std::weak_ptr<Task>(task_)](const std::error_code& error) {
          const std::shared_ptr<Task> task = weak_task.lock();
          if (!error && task != nullptr) {
            (*task)();
          }
        });
  }

 private:
  asio::steady_timer timer_;
  // Shared with its own run, within which the timer may be destroyed.
  std::shared_ptr<Task> task_;
};

// Tasks and callbacks are entered from here. A service's methods say themselves
// which of them has thrown.
std::string TaskOfLoop() {
  return "A task or callback on the loop";
}

}  // namespace

// Not with the hint that one thread runs it: Asio would then keep what a task
// posts to itself until that task is over, and a task that waits in RunUntil()
// for what it has posted would wait for ever.
Loop::Loop() : context_(std::make_unique<asio::io_context>()) {}

Loop::~Loop() = default;

void Loop::Post(Task task) {
  asio::post(*context_, std::move(task));
}

bool Loop::IsCurrent() const {
  return runner_.load() == std::this_thread::get_id() ||
         context_->get_executor().running_in_this_thread();
}

Clock::time_point Loop::Now() const {
  return Clock::now();
}

std::unique_ptr<Timer> Loop::RunAt(Clock::time_point time, Task task) {
  return std::make_unique<AsioTimer>(*context_, time, std::move(task));
}

void Loop::Run() {
  const Running running(*this);
  EndOnException([this] { context_->run(); }, TaskOfLoop);
}

void Loop::RunReady() {
  const Running running(*this);
  EndOnException(
      [this] {
        while (context_->poll() > 0) {
        }
      },
      TaskOfLoop);
}

void Loop::Stop() {
  context_->stop();
}

bool Loop::IsStopped() const {
  return depth_ > 0 && context_->stopped();
}

// Asio stays stopped when it has run out of work or was told to stop. A nested
// run must not undo that for the one around it.
Loop::Running::Running(Loop& loop) : loop_(loop) {
  if (loop_.depth_++ > 0) {
    return;
  }
  loop_.runner_ = std::this_thread::get_id();
  if (loop_.context_->stopped()) {
    loop_.context_->restart();
  }
}

Loop::Running::~Running() {
  if (--loop_.depth_ == 0) {
    loop_.runner_ = std::thread::id();
  }
}

bool Loop::RunOne() {
  bool has_run = false;
  EndOnException([&] { has_run = context_->run_one() > 0; }, TaskOfLoop);
  return has_run;
}

Loop::Work::Work(Loop& loop) : loop_(loop) {
  loop_.context().get_executor().on_work_started();
}

Loop::Work::~Work() {
  loop_.context().get_executor().on_work_finished();
}

}  // namespace rpc::loop
