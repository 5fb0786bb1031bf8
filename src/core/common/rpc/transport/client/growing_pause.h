// How long to wait before the next attempt to connect: each time twice as long,
// up to a limit.
//
//   GrowingPause pause(milliseconds(50), seconds(5));
//   pause.Next();                    // 50 ms, then 100 ms, 200 ms, ... 5 s
//   pause.ConnectionLasted(time);    // begins anew, if it was long enough
//
// A server that welcomes clients and fails at once is no better than one that
// is absent, so only a connection that has lasted begins anew.
//
// Ownership: none. Sequence: any one. Failure: none.

#ifndef CORE_COMMON_RPC_TRANSPORT_CLIENT_GROWING_PAUSE_H_
#define CORE_COMMON_RPC_TRANSPORT_CLIENT_GROWING_PAUSE_H_

#include <algorithm>
#include <chrono>
#include <utility>

#include "core/common/rpc/loop/sequence.h"

namespace rpc::transport {

class GrowingPause {
 public:
  using Milliseconds = std::chrono::milliseconds;

  GrowingPause(Milliseconds first, Milliseconds longest)
      : first_(std::min(first, longest)), longest_(longest), next_(first_) {}

  Milliseconds Next() {
    // Not twice the longest, which might be more than can be counted.
    const Milliseconds after = next_ > longest_ / 2 ? longest_ : next_ * 2;
    return std::exchange(next_, after);
  }

  // Begins anew if it was as long as the longest pause, or longer.
  void ConnectionLasted(loop::Clock::duration time) {
    if (time >= longest_) {
      next_ = first_;
    }
  }

 private:
  const Milliseconds first_;
  const Milliseconds longest_;
  Milliseconds next_;
};

}  // namespace rpc::transport

#endif  // CORE_COMMON_RPC_TRANSPORT_CLIENT_GROWING_PAUSE_H_
