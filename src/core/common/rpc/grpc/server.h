// Serves services to gRPC clients.
//
//   rpc::loop::Loop loop;
//   WindowService service;               // derives from a generated class
//   rpc::grpc::Server server(loop);
//   server.AddService(&service);
//   absl::StatusOr<int> port = server.Listen("127.0.0.1:50051");
//   loop.Run();
//
// A process may serve the same services over Unix sockets besides, by a
// transport::Server on the same loop. What a client sees is described in
// docs/gateway.md.
//
// Ownership: services are the caller's and must outlive the server. The loop
// must outlive the server and every closure that a method still holds.
//
// Sequence: the loop's: the server's own operations, every call into a service
// or a stream, and destruction, which must not be from within a service or a
// stream. Only closures, and the operations of serving::CallContext that say
// so, may be used on other threads.
//
// Failure: as with Front (front.h). What serving/ refuses to a client it
// refuses to a gRPC peer.

#ifndef CORE_COMMON_RPC_GRPC_SERVER_H_
#define CORE_COMMON_RPC_GRPC_SERVER_H_

#include <google/protobuf/descriptor.h>

#include <chrono>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "absl/status/statusor.h"
#include "core/common/rpc/grpc/front.h"
#include "core/common/rpc/loop/loop.h"
#include "core/common/rpc/serving/counters.h"
#include "core/common/rpc/serving/server_report.h"
#include "core/common/rpc/serving/unclear_messages.h"
#include "core/common/rpc/stream/service.h"

namespace rpc::grpc {

class ServiceBackend;

struct ServerOptions {
  // All limits hold, but for those of connecting and of frames: gRPC has its
  // own. A message counts as a frame.
  FrontOptions front;

  // As transport::ServerOptions has it.
  serving::UnclearMessages unclear_messages = serving::UnclearMessages::kRefuse;
};

class Server {
 public:
  explicit Server(loop::Loop& loop, const ServerOptions& options = {});
  Server(const Server&) = delete;
  Server& operator=(const Server&) = delete;
  // Ends everything that is under way. Streams get OnCompleted and are
  // destroyed, all of them before this returns.
  ~Server();

  // Before Listen(). Its full name must differ from that of the others.
  void AddService(torvane::Service* service);

  // The services that have methods, in the order in which they were added.
  std::vector<const google::protobuf::ServiceDescriptor*> Services() const;

  // As those of Front. Reflection and health checks tell of the services.
  absl::StatusOr<int> Listen(const std::string& address);
  void Stop(std::chrono::milliseconds grace, std::function<void()> on_stopped);

  // What gRPC alone knows is zero: frames, bytes, and whom it has refused.
  // connections_now counts peers: see Front.
  const serving::Counters& counters() const;
  serving::ServerReport Report() const;

 private:
  const std::unique_ptr<ServiceBackend> backend_;
  // Destroyed first.
  Front front_;
};

}  // namespace rpc::grpc

#endif  // CORE_COMMON_RPC_GRPC_SERVER_H_
