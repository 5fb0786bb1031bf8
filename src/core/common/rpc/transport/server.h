// Serves services to other processes over Unix domain sockets.
//
//   rpc::loop::Loop loop;
//   WindowService service;               // derives from a generated class
//   rpc::transport::Server server(loop);
//   server.AddService(&service);
//   absl::Status listening = server.Listen("/run/user/1000/browser/windows");
//   ...
//   loop.Run();
//
// The server knows no service by name: it works on descriptors. Unary methods
// go to CallMethod, methods that stream on either side to OpenStream. A method
// may run its closure before it returns or at any later time, on any thread.
// The controller that it gets is a serving::CallContext.
//
// Ownership: services are the caller's and must outlive the server. The server
// owns its connections and the streams opened on them. The loop must outlive
// the server and every closure that a method still holds.
//
// Sequence: everything happens on the thread that runs the loop, of which there
// is one: the server's own operations, every call into a service or a stream,
// and destruction. Only closures, and the operations of serving::CallContext
// that say so, may be used on other threads. The destructor must not be run
// from within a service or a stream; Stop() may be.
//
// Failure: limits that serving::Validate() refuses end the process when the
// server is made. Listen() says why it cannot. If a client breaks the protocol
// or a limit, that client is told, the server counts it, and other clients are
// not affected. A closure that is run twice ends the process.

#ifndef CORE_COMMON_RPC_TRANSPORT_SERVER_H_
#define CORE_COMMON_RPC_TRANSPORT_SERVER_H_

#include <google/protobuf/descriptor.h>
#include <sys/types.h>
#include <unistd.h>

#include <memory>
#include <string>
#include <vector>

#include "absl/status/status.h"
#include "core/common/rpc/loop/loop.h"
#include "core/common/rpc/loop/scoped_fd.h"
#include "core/common/rpc/serving/counters.h"
#include "core/common/rpc/serving/limits.h"
#include "core/common/rpc/serving/server_report.h"
#include "core/common/rpc/serving/trace.h"
#include "core/common/rpc/serving/unclear_messages.h"
#include "core/common/rpc/stream/service.h"

namespace rpc::transport {

class ServerCore;

struct ServerOptions {
  serving::Limits limits;

  // The only user whose processes are served.
  uid_t user = geteuid();

  // What becomes of a client's message on a stream of questions that neither
  // subscribes nor answers. The streams' contract is that it ends the process;
  // unless that is asked for, it ends its stream only.
  serving::UnclearMessages unclear_messages = serving::UnclearMessages::kRefuse;

  // Is told what the server does; the caller's, and outlives the server. Null:
  // nobody.
  serving::Trace* trace = nullptr;
};

class Server {
 public:
  explicit Server(loop::Loop& loop, const ServerOptions& options = {});
  Server(const Server&) = delete;
  Server& operator=(const Server&) = delete;

  // Closes all connections: streams get OnCompleted and are destroyed, all of
  // them before this returns, and calls that are not answered yet are
  // cancelled.
  ~Server();

  // Offers `service` to clients that connect from now on. Its full name must
  // differ from that of the others.
  void AddService(torvane::Service* service);

  // The services that have methods, in the order in which they were added.
  std::vector<const google::protobuf::ServiceDescriptor*> Services() const;

  // Accepts connections on a socket at `path`, which only this user may use.
  // Its folder must be one that only this user may use. Replaces a socket that
  // a dead process has left there. Call it at most once.
  absl::Status Listen(const std::string& path);

  // Serves a connected Unix socket, such as one end of a socket pair.
  void Adopt(loop::ScopedFd socket);

  // Stops listening and removes the socket file; on the next turn sends all
  // clients a goodbye and closes their connections. The server does not wait
  // for a client that does not read: its goodbye is dropped. The streams end on
  // the turns after that. Everything is over when connections_now is zero:
  //
  //   server.Stop();
  //   loop.RunUntil([&] { return server.counters().connections_now == 0; });
  void Stop();

  // connections_now counts a client that has left until the last of its streams
  // has ended.
  const serving::Counters& counters() const;

  // A snapshot of the connections and what is under way on them.
  serving::ServerReport Report() const;

 private:
  std::shared_ptr<ServerCore> core_;
};

}  // namespace rpc::transport

#endif  // CORE_COMMON_RPC_TRANSPORT_SERVER_H_
