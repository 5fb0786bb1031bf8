// One copy of a large payload for all connections that wait to send it: an
// event for many clients that do not read would otherwise lie in memory once
// for each.
//
// Ownership: shared by those who got it; nothing is kept when none of them has
// it any more.
//
// Sequence: payloads are shared among the connections of one thread.

#ifndef CORE_COMMON_RPC_TRANSPORT_WIRE_SHARED_PAYLOAD_H_
#define CORE_COMMON_RPC_TRANSPORT_WIRE_SHARED_PAYLOAD_H_

#include <cstddef>
#include <memory>
#include <string>

namespace rpc::transport {

using SharedPayload = std::shared_ptr<const std::string>;

// Bytes of a payload above which it is shared: what is kept for each connection
// all the same, and the write of its own that it takes, are little beside it.
// An event about a window with a very long title is larger.
inline constexpr size_t kLargePayloadBytes = 2 << 10;

// The copy that the last call gave out if that is in use and has the same
// bytes, else a new one.
SharedPayload SharePayload(const std::string& payload);

}  // namespace rpc::transport

#endif  // CORE_COMMON_RPC_TRANSPORT_WIRE_SHARED_PAYLOAD_H_
