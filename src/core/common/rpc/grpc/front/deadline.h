// When a gRPC call has to be over.
//
// Ownership: values. Sequence: any.

#ifndef CORE_COMMON_RPC_GRPC_FRONT_DEADLINE_H_
#define CORE_COMMON_RPC_GRPC_FRONT_DEADLINE_H_

#include <grpc/support/time.h>

#include <chrono>
#include <optional>

namespace rpc::grpc {

// The deadline of a call, ServerContext::raw_deadline(), on the steady clock;
// nothing if there is none. ServerContext::deadline() is one by the clock of
// the day, which somebody may set, and overflows where a client has more time
// than some 235 years. Here that counts as a century, and
// so does what is longer over.
std::optional<std::chrono::steady_clock::time_point> DeadlineOf(
    gpr_timespec raw_deadline);

}  // namespace rpc::grpc

#endif  // CORE_COMMON_RPC_GRPC_FRONT_DEADLINE_H_
