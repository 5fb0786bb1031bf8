// How many streams of a server are subscribed to each window's events.
//
// A stream that ends does not leave the registry's entry of a window that
// others are subscribed to: its address stays there for good, takes memory, and
// is walked over whenever a stream ends. So a stream that shares a window is
// unsubscribed from it before it ends. From a window of its own it is not: that
// entry goes with the stream, while the message that unsubscribes is never
// freed.
//
// Ownership: ServedMethods'. The streams' Subscriptions count themselves.
//
// Sequence: the server's.
//
// Failure: none. Two servers of one process know nothing of each other: what
// streams of both share is not found.

#ifndef CORE_COMMON_RPC_SERVING_SUBSCRIBERS_H_
#define CORE_COMMON_RPC_SERVING_SUBSCRIBERS_H_

#include <cstddef>
#include <string>

#include "absl/container/flat_hash_map.h"

namespace rpc::serving {

class Subscribers {
 public:
  // One more stream is subscribed to `window`, as WindowMessage names it.
  void Add(const std::string& window) { ++streams_[window]; }

  // One stream less is. There must be one.
  void Remove(const std::string& window) {
    const auto entry = streams_.find(window);
    if (--entry->second == 0) {
      streams_.erase(entry);
    }
  }

  // Whether more than one stream is subscribed to it.
  bool AreSeveral(const std::string& window) const {
    const auto entry = streams_.find(window);
    return entry != streams_.end() && entry->second > 1;
  }

 private:
  absl::flat_hash_map<std::string, size_t> streams_;
};

}  // namespace rpc::serving

#endif  // CORE_COMMON_RPC_SERVING_SUBSCRIBERS_H_
