// All limits by name, for whoever goes through them: flags and their help, the
// status report, the check of what they are set to.
//
//   for (const LimitInfo& limit : kLimitTable)
//     std::cout << limit.name << ' ' << counters.limit_hits.*limit.hits <<
//     '\n';
//
// Constant, so that any thread may read it.

#ifndef CORE_COMMON_RPC_SERVING_LIMIT_TABLE_H_
#define CORE_COMMON_RPC_SERVING_LIMIT_TABLE_H_

#include <chrono>
#include <cstddef>
#include <cstdint>

#include "core/common/rpc/serving/counters.h"
#include "core/common/rpc/serving/limits.h"

namespace rpc::serving {

struct LimitInfo {
  const char* name;
  uint64_t LimitHits::*hits;

  // One of the two, the other is null.
  size_t Limits::*size;
  std::chrono::milliseconds Limits::*time;

  // What it may be set to; times in milliseconds.
  int64_t least;
  int64_t most;
  const char* meaning;

  // Times in milliseconds.
  int64_t ValueIn(const Limits& limits) const {
    return size != nullptr ? static_cast<int64_t>(limits.*size)
                           : (limits.*time).count();
  }
};

// In the order of limit_table.inc.
inline constexpr LimitInfo kLimitTable[] = {
#define RPC_SIZE_LIMIT(name, value, least, most, meaning) \
  {#name, &LimitHits::name, &Limits::name, nullptr, least, most, meaning},
#define RPC_TIME_LIMIT(name, value, meaning)          \
  {#name,         &LimitHits::name, nullptr,          \
   &Limits::name, kMinTime.count(), kMaxTime.count(), \
   meaning},
#include "core/common/rpc/serving/limit_table.inc"
#undef RPC_SIZE_LIMIT
#undef RPC_TIME_LIMIT
};

}  // namespace rpc::serving

#endif  // CORE_COMMON_RPC_SERVING_LIMIT_TABLE_H_
