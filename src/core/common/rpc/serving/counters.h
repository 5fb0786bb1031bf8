// What a server, or a client, has seen and done since it was made; see
// Server::counters() and Client::counters(). A client counts only what goes
// over its socket.
//
// A name that ends in _now goes up and down; all others only grow.
//
// Ownership: the server's or the client's. Plain numbers: copy them to keep
// them.
//
// Sequence: their owner's.

#ifndef CORE_COMMON_RPC_SERVING_COUNTERS_H_
#define CORE_COMMON_RPC_SERVING_COUNTERS_H_

#include <cstdint>

namespace rpc::serving {

// How often each limit has taken effect, by its name.
struct LimitHits {
#define RPC_SIZE_LIMIT(name, value, least, most, meaning) uint64_t name = 0;
#define RPC_TIME_LIMIT(name, value, meaning) uint64_t name = 0;
#include "core/common/rpc/serving/limit_table.inc"
#undef RPC_SIZE_LIMIT
#undef RPC_TIME_LIMIT
};

struct Counters {
  // Connections.
  uint64_t connections_now = 0;  // until the last of its streams has ended
  uint64_t connections_accepted = 0;
  uint64_t connections_refused = 0;  // too many, or another user's
  uint64_t handshakes_failed = 0;    // too late, wrong version, not a client
  uint64_t protocol_violations = 0;  // closed for what they sent

  // Unary calls.
  uint64_t calls_now = 0;            // neither answered nor given up
  uint64_t calls_abandoned_now = 0;  // given up, but their methods go on
  uint64_t calls_started = 0;
  uint64_t calls_refused = 0;  // too many, unknown method, bad request
  uint64_t calls_cancelled = 0;
  uint64_t calls_expired = 0;
  uint64_t results_late = 0;  // completed when nobody waited any more

  // Streams.
  uint64_t streams_now = 0;
  uint64_t streams_opened = 0;
  uint64_t streams_refused = 0;
  uint64_t subscriptions_now = 0;
  uint64_t messages_refused = 0;  // their streams have ended for them

  // What went over the sockets; frames count as written when taken for that.
  uint64_t frames_read = 0;
  uint64_t frames_written = 0;
  uint64_t bytes_read = 0;
  uint64_t bytes_written = 0;
  uint64_t writes = 0;  // system calls

  LimitHits limit_hits;
};

}  // namespace rpc::serving

#endif  // CORE_COMMON_RPC_SERVING_COUNTERS_H_
