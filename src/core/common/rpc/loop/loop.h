// An event loop: the sequence of a program whose main loop this is.
//
//   rpc::loop::Loop loop;
//   rpc::transport::Server server(loop);
//   ...
//   loop.Run();
//
// Asio's io_context does the work. A program with another main loop runs that
// and has it drive context().
//
// Ownership: the program's; it outlives everything that waits on it.
//
// Sequence: the thread that runs it, of which there is one at a time. Stop()
// may be called on any thread.
//
// Failure: a system that grants no event descriptor ends the process.

#ifndef CORE_COMMON_RPC_LOOP_LOOP_H_
#define CORE_COMMON_RPC_LOOP_LOOP_H_

#include <atomic>
#include <functional>
#include <memory>
#include <thread>

#include "core/common/rpc/loop/sequence.h"

namespace asio {
class io_context;
}

namespace rpc::loop {

class Loop final : public Sequence {
 public:
  Loop();
  Loop(const Loop&) = delete;
  Loop& operator=(const Loop&) = delete;
  ~Loop() override;

  // Sequence:
  void Post(Task task) override;
  bool IsCurrent() const override;
  Clock::time_point Now() const override;
  std::unique_ptr<Timer> RunAt(Clock::time_point time, Task task) override;

  // Runs until Stop() is called or nothing is left to wait for.
  void Run();

  // Runs until `condition` holds, which is asked before each turn. False when
  // Stop() was called or nothing was left to wait for. May be used inside a
  // task of this loop, and then runs other tasks meanwhile; there it waits for
  // ever if nothing is left that could happen, since its own task still runs.
  template <typename Condition>
  bool RunUntil(const Condition& condition) {
    const Running running(*this);
    while (!condition()) {
      if (!RunOne()) {
        return false;
      }
    }
    return true;
  }

  // Runs what is ready, and what becomes ready by that; waits for nothing.
  void RunReady();

  // Ends Run(), RunUntil() and RunReady(), also those that are nested, after
  // the task that is being run. Forgotten when the loop is run again after
  // that.
  void Stop();

  // Keeps Run() and RunUntil() waiting although nothing is left to wait for:
  // for tasks that other threads will post.
  class Work {
   public:
    explicit Work(Loop& loop);
    Work(const Work&) = delete;
    Work& operator=(const Work&) = delete;
    ~Work();

   private:
    Loop& loop_;
  };

  // Whether Stop() was called and what it ends is not over yet.
  bool IsStopped() const;

  // For transports and for glue to other main loops.
  asio::io_context& context() { return *context_; }

  // For as long as the loop is being run by somebody, such as glue that drives
  // context(): the loop is current for all that its thread does.
  class Running {
   public:
    explicit Running(Loop& loop);
    Running(const Running&) = delete;
    Running& operator=(const Running&) = delete;
    ~Running();

   private:
    Loop& loop_;
  };

 private:
  bool RunOne();

  const std::unique_ptr<asio::io_context> context_;
  // How many times it is being run, each inside a task of the one before.
  int depth_ = 0;
  // The thread that runs it; no thread while nobody does.
  std::atomic<std::thread::id> runner_;
};

}  // namespace rpc::loop

#endif  // CORE_COMMON_RPC_LOOP_LOOP_H_
