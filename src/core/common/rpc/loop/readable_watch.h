// A descriptor that can be read from, as tasks on a loop.
//
//   ReadableWatch output(loop, pipe, [&] { ReadSome(); });
//
// The handler is called again and again for as long as something can be read,
// or the other end is closed. The watch itself reads nothing. It puts the
// descriptor into non-blocking mode, and leaves it so.
//
// Ownership: the descriptor stays the caller's and must stay open while it is
// watched. The loop must outlive the watch, which keeps it running. The handler
// may destroy it.
//
// Sequence: the loop's.
//
// Failure: a descriptor that can't be watched, such as a file's, ends the
// process.

#ifndef CORE_COMMON_RPC_LOOP_READABLE_WATCH_H_
#define CORE_COMMON_RPC_LOOP_READABLE_WATCH_H_

#include <functional>
#include <memory>

#include "core/common/rpc/loop/loop.h"

namespace rpc::loop {

class ReadableWatch {
 public:
  using Handler = std::function<void()>;

  ReadableWatch(Loop& loop, int descriptor, Handler handler);
  ReadableWatch(const ReadableWatch&) = delete;
  ReadableWatch& operator=(const ReadableWatch&) = delete;
  ~ReadableWatch();

 private:
  struct State;
  const std::shared_ptr<State> state_;
};

}  // namespace rpc::loop

#endif  // CORE_COMMON_RPC_LOOP_READABLE_WATCH_H_
