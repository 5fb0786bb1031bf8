// Signals of the process, as tasks on a loop.
//
//   SignalWatch stop(loop, {SIGINT, SIGTERM}, [&](int) { server.Stop(); });
//
// While a watch lives its signals have no other effect, and it keeps the loop
// running.
//
// Ownership: the program's; the loop must outlive it. The handler may destroy
// it.
//
// Sequence: the loop's.
//
// Failure: a signal that can't be watched ends the process.

#ifndef CORE_COMMON_RPC_LOOP_SIGNAL_WATCH_H_
#define CORE_COMMON_RPC_LOOP_SIGNAL_WATCH_H_

#include <functional>
#include <initializer_list>
#include <memory>

#include "core/common/rpc/loop/loop.h"

namespace rpc::loop {

class SignalWatch {
 public:
  // Called with each signal that arrives.
  using Handler = std::function<void(int signal)>;

  SignalWatch(Loop& loop, std::initializer_list<int> signals, Handler handler);
  SignalWatch(const SignalWatch&) = delete;
  SignalWatch& operator=(const SignalWatch&) = delete;
  ~SignalWatch();

 private:
  struct State;
  const std::shared_ptr<State> state_;
};

}  // namespace rpc::loop

#endif  // CORE_COMMON_RPC_LOOP_SIGNAL_WATCH_H_
