// Statuses as they travel.
//
// Functions without state, for any thread. They cannot fail: what the wire
// cannot carry is changed as said below.

#ifndef CORE_COMMON_RPC_TRANSPORT_WIRE_RPC_STATUS_H_
#define CORE_COMMON_RPC_TRANSPORT_WIRE_RPC_STATUS_H_

#include "absl/status/status.h"
#include "rpc/transport/frame.pb.h"

namespace rpc::transport {

// A code that is not among the canonical ones arrives as UNKNOWN, with its
// number in the text.
absl::Status FromWire(const RpcStatus& status);

// A text too long for a status is cut.
void ToWire(const absl::Status& status, RpcStatus* wire);

}  // namespace rpc::transport

#endif  // CORE_COMMON_RPC_TRANSPORT_WIRE_RPC_STATUS_H_
