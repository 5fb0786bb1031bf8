// Serves services to other processes over Unix domain sockets.
//
//   asio::io_context loop;
//   WindowService service;               // derives from a generated class
//   rpc::transport::Server server(loop);
//   server.AddService(&service);
//   absl::Status listening = server.Listen("/run/user/1000/browser/windows");
//   ...
//   loop.run();
//
// The server knows no service by name: it works on descriptors. Unary methods
// go to CallMethod, methods that stream on either side to OpenStream. A method
// may run its closure before it returns or at any later time, on any thread. It
// finds a ServerController behind the controller that it is given.
//
// Ownership: services are the caller's and must outlive the server. The server
// owns its connections and the streams opened on them. The loop must outlive
// the server and every closure that a method still holds.
//
// Sequence: everything happens on the thread that runs the loop, of which there
// is one: the server's own operations, every call into a service or a stream,
// and destruction. Only closures may be run on other threads, and of
// ServerController what it says. The destructor must not be run from within a
// service or a stream; Stop() may be.
//
// Failure: Listen() says why it cannot. What a client does wrong is answered to
// that client, counted, and harms nobody else. A closure that is run twice ends
// the process.

#ifndef CORE_COMMON_RPC_TRANSPORT_SERVER_H_
#define CORE_COMMON_RPC_TRANSPORT_SERVER_H_

#include <sys/types.h>
#include <unistd.h>

#include <memory>
#include <string>

#include "absl/status/status.h"
#include "core/common/rpc/stream/service.h"
#include "core/common/rpc/transport/asio.h"
#include "core/common/rpc/transport/counters.h"
#include "core/common/rpc/transport/limits.h"
#include "core/common/rpc/transport/server_report.h"

namespace rpc::transport {

class ServerCore;

struct ServerOptions {
  Limits limits;

  // The only user whose processes are served.
  uid_t user = geteuid();
};

class Server {
 public:
  explicit Server(asio::io_context& loop, const ServerOptions& options = {});
  Server(const Server&) = delete;
  Server& operator=(const Server&) = delete;

  // Closes all connections: streams get their OnCompleted and are destroyed,
  // unanswered calls are cancelled.
  ~Server();

  // Offers `service` to clients that connect from now on. Its full name must
  // differ from that of the others.
  void AddService(torvane::Service* service);

  // Accepts connections on a socket at `path`, which only this user may use, in
  // a folder that only this user may use. A socket that a dead process has left
  // there is replaced. At most once.
  absl::Status Listen(const std::string& path);

  // Serves a connected socket, such as one end of a socket pair.
  void Adopt(asio::local::stream_protocol::socket socket);

  // Stops listening, removes the socket file, says goodbye and closes all on
  // the next turn. A client that does not read keeps the loop for
  // goodbye_timeout.
  void Stop();

  const Counters& counters() const;

  // What goes on right now.
  ServerReport Report() const;

 private:
  std::shared_ptr<ServerCore> core_;
};

}  // namespace rpc::transport

#endif  // CORE_COMMON_RPC_TRANSPORT_SERVER_H_
