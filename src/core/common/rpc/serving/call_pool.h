// Where a server's calls come from and return to.
//
// Ownership: shared by the server and its calls, each of which refers to it.
// Close() lets go of the idle ones and so breaks that circle.
//
// Sequence: the server's.

#ifndef CORE_COMMON_RPC_SERVING_CALL_POOL_H_
#define CORE_COMMON_RPC_SERVING_CALL_POOL_H_

#include <cstddef>
#include <deque>
#include <memory>

#include "core/common/rpc/loop/sequence.h"
#include "core/common/rpc/serving/call.h"
#include "core/common/rpc/serving/counters.h"

namespace rpc::serving {

// How many calls that are over lie idle, at most. A new call takes the one that
// has lain idle for longest, and only when there are so many: while a call lies
// idle, a second run of its closure is noticed. Each takes a few hundred bytes.
inline constexpr size_t kIdleCalls = 256;

class CallPool final : public std::enable_shared_from_this<CallPool> {
 public:
  CallPool(loop::Sequence& sequence, std::shared_ptr<Counters> counters);
  CallPool(const CallPool&) = delete;
  CallPool& operator=(const CallPool&) = delete;
  ~CallPool();

  std::shared_ptr<Call> Take();

  // `call` is over.
  void Return(std::shared_ptr<Call> call);

  // The server is being destroyed: calls that are over are kept no longer.
  void Close();

  loop::Sequence& sequence() { return sequence_; }
  Counters& counters() { return *counters_; }

 private:
  loop::Sequence& sequence_;
  const std::shared_ptr<Counters> counters_;
  bool closed_ = false;
  // The longest idle first.
  std::deque<std::shared_ptr<Call>> idle_;
};

}  // namespace rpc::serving

#endif  // CORE_COMMON_RPC_SERVING_CALL_POOL_H_
