// The services of another process, behind a gRPC front: passes calls and stream
// messages on to its socket, as bytes. Every gRPC peer has a connection of its
// own there, so that the host's limits and its status report hold for each.
//
// A connection that is lost is made anew. Until then what is under way ends
// with UNAVAILABLE, and so does what comes.
//
// Ownership: the program's; it outlives the front.
//
// Sequence: the loop's.
//
// Failure: by the statuses of calls and streams.

#ifndef TOOLS_RPC_GATEWAY_HOST_BACKEND_H_
#define TOOLS_RPC_GATEWAY_HOST_BACKEND_H_

#include <memory>
#include <string>

#include "core/common/rpc/grpc/backend.h"
#include "core/common/rpc/loop/loop.h"
#include "core/common/rpc/transport/reconnecting_client.h"

namespace rpc_gateway {

class HostBackend final : public rpc::grpc::Backend {
 public:
  // For the host that listens at `socket`. Each connection has these options,
  // and the name "grpc PEER".
  HostBackend(rpc::loop::Loop& loop,
              std::string socket,
              rpc::transport::ReconnectingOptions options);

  // rpc::grpc::Backend:
  std::unique_ptr<rpc::grpc::BackendClient> Connect(
      const std::string& name,
      rpc::grpc::BackendSink& sink) override;

 private:
  rpc::loop::Loop& loop_;
  const std::string socket_;
  const rpc::transport::ReconnectingOptions options_;
};

}  // namespace rpc_gateway

#endif  // TOOLS_RPC_GATEWAY_HOST_BACKEND_H_
