// What a server, or a client, has seen and done since it was made; see
// Server::counters() and Client::counters(). A client counts only what goes
// over its socket.
//
// Plain numbers, changed on their owner's sequence only. A name that ends in
// _now goes up and down; all others only grow.
//
// How often each limit has bitten is told by its name:
//
//   for (const NamedLimit& limit : kNamedLimits)
//     std::cout << limit.name << ' ' << counters.limit_hits.*limit.hits <<
//     '\n';

#ifndef CORE_COMMON_RPC_TRANSPORT_COUNTERS_H_
#define CORE_COMMON_RPC_TRANSPORT_COUNTERS_H_

#include <cstdint>
#include <iterator>

namespace rpc::transport {

// How often each limit of limits.h has bitten, by its name there.
struct LimitHits {
  uint64_t max_frame_bytes = 0;    // frames too long for one of the sides
  uint64_t max_outbox_bytes = 0;   // server: clients closed; client: refusals
  uint64_t busy_outbox_bytes = 0;  // clients not read from until they read
  uint64_t max_connections = 0;    // connections refused
  uint64_t max_calls = 0;          // calls refused
  uint64_t max_streams = 0;        // streams refused
  uint64_t max_subscriptions = 0;  // streams ended
  uint64_t max_subscription_bytes = 0;  // streams ended
  uint64_t max_questions = 0;           // questions not asked
  uint64_t handshake_timeout = 0;       // connections closed
  uint64_t goodbye_timeout = 0;         // goodbyes that have not left
  uint64_t accept_pause = 0;            // pauses made
};

struct NamedLimit {
  const char* name;
  uint64_t LimitHits::*hits;
};

// All of them, in the order of Limits.
inline constexpr NamedLimit kNamedLimits[] = {
    {"max_frame_bytes", &LimitHits::max_frame_bytes},
    {"max_outbox_bytes", &LimitHits::max_outbox_bytes},
    {"busy_outbox_bytes", &LimitHits::busy_outbox_bytes},
    {"max_connections", &LimitHits::max_connections},
    {"max_calls", &LimitHits::max_calls},
    {"max_streams", &LimitHits::max_streams},
    {"max_subscriptions", &LimitHits::max_subscriptions},
    {"max_subscription_bytes", &LimitHits::max_subscription_bytes},
    {"max_questions", &LimitHits::max_questions},
    {"handshake_timeout", &LimitHits::handshake_timeout},
    {"goodbye_timeout", &LimitHits::goodbye_timeout},
    {"accept_pause", &LimitHits::accept_pause},
};
static_assert(sizeof(LimitHits) == std::size(kNamedLimits) * sizeof(uint64_t),
              "a limit is missing from the list");

struct Counters {
  // Connections.
  uint64_t connections_now = 0;
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

  // What went over the sockets; frames count as written when taken for that.
  uint64_t frames_read = 0;
  uint64_t frames_written = 0;
  uint64_t bytes_read = 0;
  uint64_t bytes_written = 0;
  uint64_t writes = 0;  // system calls

  LimitHits limit_hits;
};

}  // namespace rpc::transport

#endif  // CORE_COMMON_RPC_TRANSPORT_COUNTERS_H_
