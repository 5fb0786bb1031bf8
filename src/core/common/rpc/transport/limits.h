// Every number that the transport promises to keep, with its unit and reason.
//
// Each limit has a counter of the same name (LimitHits in counters.h). Who is
// refused something, or closed, gets a status that names the limit and its
// value; not so for max_questions, where the asker hears that nobody answers.
// goodbye_timeout, busy_outbox_bytes and accept_pause refuse nothing. All can
// be set per server or client; the defaults suit a desktop.

#ifndef CORE_COMMON_RPC_TRANSPORT_LIMITS_H_
#define CORE_COMMON_RPC_TRANSPORT_LIMITS_H_

#include <chrono>
#include <cstddef>
#include <cstdint>

namespace rpc::transport {

// The version of docs/wire-protocol.md that this code speaks.
inline constexpr uint32_t kProtocolVersion = 1;

// The least that either side may announce as its max_frame_bytes. Whatever has
// to be said in any case fits: the longest status has a text of 4,096 bytes.
inline constexpr size_t kMinFrameBytes = 8 << 10;

struct Limits {
  // Bytes of one frame without its length, kMinFrameBytes at least. The largest
  // messages about a window are a few kilobytes; this leaves room for a
  // picture.
  size_t max_frame_bytes = 4 << 20;

  // Bytes that wait to be written to one peer. A peer that lets this much pile
  // up has stopped reading; its connection is closed rather than let it grow.
  size_t max_outbox_bytes = 16 << 20;

  // Bytes of replies waiting for a client above which the server reads no more
  // from it, until half of them are written: a client that sends calls faster
  // than it takes replies is slowed down instead of closed. Events and
  // questions don't count: they do not come of reading, and answers must not
  // wait for them.
  size_t busy_outbox_bytes = 1 << 20;

  // Connections of one server. Each holds a descriptor, of which a process has
  // 1,024 by default.
  size_t max_connections = 512;

  // Calls of one connection whose methods have not run their closures. One that
  // is cancelled or late counts on, since the work for it does too. A client
  // that needs more at once has lost count.
  size_t max_calls = 10'000;

  // Streams of one connection that the server has not ended.
  size_t max_streams = 10'000;

  // Subscriptions of one connection: windows that its streams hear about, and
  // windows that they answer for. A desktop has hundreds of windows.
  size_t max_subscriptions = 10'000;

  // Bytes of a message that subscribes or unsubscribes. It holds a window's id
  // and nothing else, and a registry keeps it; an event stream keeps the whole.
  size_t max_subscription_bytes = 1 << 10;

  // Questions that wait for answers of one connection. Those that nobody waits
  // for any more count too, since only the client can end them.
  size_t max_questions = 10'000;

  // Time from connecting to the end of the handshake. A local peer needs less
  // than a millisecond; this is for a machine that swaps.
  std::chrono::milliseconds handshake_timeout{5'000};

  // Time for which a closed connection's socket is kept until its goodbye has
  // left: a peer that reads slowly still learns why, one that does not read at
  // all is not waited for.
  std::chrono::milliseconds goodbye_timeout{1'000};

  // Pause after the process had no descriptor left for a new connection. Trying
  // again at once would fail again at once, and so on for ever.
  std::chrono::milliseconds accept_pause{50};
};

}  // namespace rpc::transport

#endif  // CORE_COMMON_RPC_TRANSPORT_LIMITS_H_
