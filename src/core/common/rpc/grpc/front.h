// Serves what a backend offers to gRPC clients: calls, streams of events,
// streams of questions, and beside them health checks and reflection.
//
//   rpc::loop::Loop loop;
//   rpc::grpc::Front front(loop, backend);
//   absl::StatusOr<int> port = front.Listen("127.0.0.1:50051");
//   front.SetServing({{"rpc.BrowserWindow"}, files});
//   loop.Run();
//
// A program that has services uses Server (server.h), which is a front with a
// backend for them. What a client sees is described in docs/gateway.md.
//
// A gRPC peer is one connection of a client. The backend's client for it lives
// while it has something under way, and for `idle_peer` after that: gRPC does
// not say when a connection closes.
//
// Ownership: the program's. The loop and the backend outlive it.
//
// Sequence: the loop's; the backend is used nowhere else. gRPC has threads of
// its own, which post there.
//
// Failure: Listen() says why it cannot. Without descriptors connections wait.
// The constructor ends the process for limits that serving::Validate() refuses,
// and for max_incoming_bytes without room for the longest message.

#ifndef CORE_COMMON_RPC_GRPC_FRONT_H_
#define CORE_COMMON_RPC_GRPC_FRONT_H_

#include <chrono>
#include <cstddef>
#include <functional>
#include <memory>
#include <string>

#include "absl/status/statusor.h"
#include "core/common/rpc/grpc/backend.h"
#include "core/common/rpc/grpc/offer.h"
#include "core/common/rpc/grpc/security.h"
#include "core/common/rpc/loop/loop.h"
#include "core/common/rpc/serving/limits.h"

namespace rpc::grpc {

class FrontCore;

struct FrontOptions {
  // Of these the front keeps max_connections, as peers; max_calls and
  // max_streams, which together are what gRPC lets a peer have at a time;
  // max_client_frame_bytes, as the longest message from a client;
  // max_outbox_bytes; and accept_pause. The backend keeps the others.
  serving::Limits limits;

  // Messages of a client on one stream of events. Each costs the server memory
  // for as long as the stream lasts.
  size_t max_event_messages = 10'000;

  // Bytes of messages on their way in, of all peers together; no less than the
  // longest message. gRPC takes in a whole message, however long, before it
  // refuses it. Beyond this it ends streams with RESOURCE_EXHAUSTED, until
  // there is room again; it chooses them by chance, so that others than those
  // to blame may be among them.
  size_t max_incoming_bytes = 64 << 20;

  // A peer from which nothing was heard for the first of these is asked whether
  // it is there, and lost when it has not said so within the second.
  std::chrono::milliseconds keepalive_time{60'000};
  std::chrono::milliseconds keepalive_timeout{20'000};

  // A peer that has had nothing under way for so long is forgotten, or twice as
  // long at most.
  std::chrono::milliseconds idle_peer{30'000};

  Security security;
};

class Front {
 public:
  Front(loop::Loop& loop, Backend& backend, FrontOptions options = {});
  Front(const Front&) = delete;
  Front& operator=(const Front&) = delete;

  // Ends everything that is under way with UNAVAILABLE. Blocks until gRPC has
  // let go, which takes a second at most if the front was stopping. Not from
  // within the backend.
  ~Front();

  // Listens at `address`, "HOST:PORT", and returns the port, which is chosen
  // for port 0. Once. Why not: security.h; UNAVAILABLE where the port is taken
  // or not of this machine, and for certificates that are no good.
  absl::StatusOr<int> Listen(const std::string& address);

  // What reflection and health checks tell from now on: these services are
  // served. Before, and after SetNotServing(), nothing is served.
  void SetServing(const Offer& offer);
  void SetNotServing();

  // Streams end with UNAVAILABLE, and so does what begins from now on. Streams
  // end a few on each turn, so that others on the loop go on. Then calls may
  // take `grace` and are cancelled. After them the front listens no longer,
  // closes all connections, which may take a second more, and runs
  // `on_stopped`, on a later turn. Once, after Listen().
  void Stop(std::chrono::milliseconds grace, std::function<void()> on_stopped);

 private:
  const std::shared_ptr<FrontCore> core_;
};

}  // namespace rpc::grpc

#endif  // CORE_COMMON_RPC_GRPC_FRONT_H_
