// The numbers that a server or a client keeps to; limit_table.inc has them,
// with their reasons. All can be set per server or client; the defaults suit a
// desktop.
//
// Whoever is refused something, or closed, gets a status that names the limit
// and its value; not so for max_questions, where the asker hears that nobody
// answers. Each limit has a counter of the same name (counters.h).
// busy_outbox_bytes and accept_pause refuse nothing.
//
// Ownership: plain values, which a server or a client copies when it is made.
//
// Sequence: any, since there is no state.
//
// Failure: Validate() says which limit is wrong.

#ifndef CORE_COMMON_RPC_SERVING_LIMITS_H_
#define CORE_COMMON_RPC_SERVING_LIMITS_H_

#include <chrono>
#include <cstddef>

#include "absl/status/status.h"

namespace rpc::serving {

// The least that either side may take as the longest frame. Whatever has
// to be said in any case fits: the longest status has a text of 4,096 bytes.
inline constexpr size_t kMinFrameBytes = 8 << 10;

// What a time may be set to. A day is as good as for ever, and fits in what is
// made of it.
inline constexpr std::chrono::milliseconds kMinTime{1};
inline constexpr std::chrono::milliseconds kMaxTime = std::chrono::hours(24);

struct Limits {
#define RPC_SIZE_LIMIT(name, value, least, most, meaning) size_t name = value;
#define RPC_TIME_LIMIT(name, value, meaning) \
  std::chrono::milliseconds name{value};
#include "core/common/rpc/serving/limit_table.inc"
#undef RPC_SIZE_LIMIT
#undef RPC_TIME_LIMIT
};

// OK, or INVALID_ARGUMENT with a text that names the limit that is out of its
// range, or that does not go with another.
absl::Status Validate(const Limits& limits);

}  // namespace rpc::serving

#endif  // CORE_COMMON_RPC_SERVING_LIMITS_H_
