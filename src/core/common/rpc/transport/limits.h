// Every number that the transport promises to keep, with its unit and reason.
//
// The server's limits protect the host from its clients, so each of them is
// counted when it bites (counters.h) and named in the status that the client
// gets. All can be set per server or client; the defaults suit a desktop.

#ifndef CORE_COMMON_RPC_TRANSPORT_LIMITS_H_
#define CORE_COMMON_RPC_TRANSPORT_LIMITS_H_

#include <chrono>
#include <cstddef>
#include <cstdint>

namespace rpc::transport {

// The version of docs/wire-protocol.md that this code speaks.
inline constexpr uint32_t kProtocolVersion = 1;

struct Limits {
  // Bytes of one frame without its length. The largest messages about a window
  // are a few kilobytes; this leaves room for a picture.
  size_t max_frame_bytes = 4 << 20;

  // Bytes that wait to be written to one peer. A peer that lets this much pile
  // up has stopped reading; its connection is closed rather than let it grow.
  size_t max_outbox_bytes = 16 << 20;

  // Bytes waiting for a client above which the server reads no more from it,
  // until half of them are written: a client that sends calls faster than it
  // takes replies is slowed down instead of closed.
  size_t busy_outbox_bytes = 1 << 20;

  // Connections of one server. Each holds a descriptor, of which a process has
  // 1,024 by default.
  size_t max_connections = 512;

  // Calls of one connection that have not been answered. A client that needs
  // more at once has lost count.
  size_t max_calls = 10'000;

  // Streams of one connection that are not over on both sides.
  size_t max_streams = 10'000;

  // Time from connecting to the end of the handshake. A local peer needs less
  // than a millisecond; this is for a machine that swaps.
  std::chrono::milliseconds handshake_timeout{5'000};

  // Pause after the process had no descriptor left for a new connection.
  std::chrono::milliseconds accept_pause{50};
};

}  // namespace rpc::transport

#endif  // CORE_COMMON_RPC_TRANSPORT_LIMITS_H_
