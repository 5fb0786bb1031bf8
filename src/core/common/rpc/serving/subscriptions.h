// Counts what the streams of one connection are subscribed to: the windows that
// event streams hear about, and those that callback streams answer for.
//
// The streams note their subscriptions in registries that know no bound, so
// they are counted here as well.
//
// A window that a newer client has taken over still counts for the stream that
// had it, until that unsubscribes or ends.
//
// Ownership: Streams', whose entries own their keys. The counters outlive it.
//
// Sequence: the server's.

#ifndef CORE_COMMON_RPC_SERVING_SUBSCRIPTIONS_H_
#define CORE_COMMON_RPC_SERVING_SUBSCRIPTIONS_H_

#include <cstddef>
#include <string>

#include "absl/container/flat_hash_set.h"
#include "core/common/rpc/serving/counters.h"
#include "core/common/rpc/serving/window_message_reader.h"

namespace rpc::serving {

class Subscriptions {
 public:
  // Those of one stream: the names of the windows, serialised.
  using Keys = absl::flat_hash_set<std::string>;

  Subscriptions(size_t max, Counters& counters);
  Subscriptions(const Subscriptions&) = delete;
  Subscriptions& operator=(const Subscriptions&) = delete;

  // Notes in `keys` what a message of their stream's client changes. False,
  // with nothing noted, when it would be one subscription too many.
  bool Note(const WindowMessage& message, Keys& keys);

  // The stream that has `keys` is over.
  void Forget(Keys& keys);

 private:
  bool Add(const std::string& key, Keys& keys);
  void Remove(const std::string& key, Keys& keys);

  const size_t max_;
  Counters& counters_;
  size_t count_ = 0;
};

}  // namespace rpc::serving

#endif  // CORE_COMMON_RPC_SERVING_SUBSCRIPTIONS_H_
