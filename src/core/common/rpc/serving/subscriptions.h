// The windows that one stream is subscribed to: those that it hears about, or
// that it answers for.
//
// The stream notes its subscriptions in a registry that knows no bound, so they
// are counted here as well: for the client in its total, for the server in the
// counter subscriptions_now.
//
// A window that a newer client has taken over still counts for the stream that
// had it, until that unsubscribes or ends.
//
// Ownership: the stream's entry in Streams.
//
// Sequence: the server's.
//
// Failure: Note() says which limit is reached; the caller then ends the stream.

#ifndef CORE_COMMON_RPC_SERVING_SUBSCRIPTIONS_H_
#define CORE_COMMON_RPC_SERVING_SUBSCRIPTIONS_H_

#include <cstddef>
#include <string>
#include <vector>

#include "absl/container/flat_hash_set.h"
#include "core/common/rpc/serving/counters.h"
#include "core/common/rpc/serving/limits.h"
#include "core/common/rpc/serving/subscribers.h"
#include "core/common/rpc/serving/window_message_reader.h"

namespace rpc::serving {

class Subscriptions {
 public:
  // `total` counts those of all streams of a client, `subscribers` those of all
  // streams with the same events; it is null for a stream of questions, whose
  // windows have one client each. They and the counters outlive this.
  Subscriptions(size_t& total, Counters& counters, Subscribers* subscribers)
      : total_(total), counters_(counters), subscribers_(subscribers) {}
  Subscriptions(const Subscriptions&) = delete;
  Subscriptions& operator=(const Subscriptions&) = delete;
  ~Subscriptions();

  // What a message of the client does to the stream's subscriptions.
  enum class Change {
    // Nothing: it subscribes to what is subscribed to, unsubscribes from what
    // is not subscribed to, or does neither.
    kNone,
    kSubscribed,
    kUnsubscribed,
    // It would make more than max_subscriptions of the client, or more than
    // max_server_subscriptions: it must not take effect.
    kTooManyOfClient,
    kTooManyOfServer,
  };

  // Notes what `message` changes.
  Change Note(const WindowMessage& message, const Limits& limits);

  bool empty() const { return windows_.empty(); }

  // Notes that one of them, whichever, is over; returns its window as
  // WindowMessage names it. There must be one.
  std::string TakeOne();

  // Notes that all those are over that other streams have, too; returns their
  // windows.
  std::vector<std::string> TakeShared();

 private:
  Change Add(const std::string& window, const Limits& limits);
  Change Remove(const std::string& window);
  void CountAdded(const std::string& window);
  void CountRemoved(const std::string& window);

  size_t& total_;
  Counters& counters_;
  Subscribers* const subscribers_;
  // As WindowMessage names windows.
  absl::flat_hash_set<std::string> windows_;
};

}  // namespace rpc::serving

#endif  // CORE_COMMON_RPC_SERVING_SUBSCRIPTIONS_H_
