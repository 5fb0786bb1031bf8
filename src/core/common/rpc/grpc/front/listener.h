// Accepts the connections of a front.
//
// gRPC can do that itself. But when the process has no descriptor left for a
// connection, gRPC accepts none ever again: whoever reaches the port could
// close it to everybody, by connecting often enough. Here accepting pauses.
//
// Ownership: the front's. Connections belong to whom they are handed to.
//
// Sequence: the loop's.
//
// Failure: Open() says why it cannot. That accepting pauses is logged once,
// however long it lasts.

#ifndef CORE_COMMON_RPC_GRPC_FRONT_LISTENER_H_
#define CORE_COMMON_RPC_GRPC_FRONT_LISTENER_H_

#include <chrono>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "absl/status/statusor.h"
#include "core/common/rpc/loop/loop.h"
#include "core/common/rpc/loop/scoped_fd.h"

namespace rpc::grpc {

class Listener {
 public:
  // A connection, and the socket by which it came in.
  using Handler = std::function<void(int socket, loop::ScopedFd connection)>;

  // What could not be accepted is tried again after `pause`.
  Listener(loop::Loop& loop, std::chrono::milliseconds pause);
  Listener(const Listener&) = delete;
  Listener& operator=(const Listener&) = delete;
  // Closes the port.
  ~Listener();

  // Listens at `address`, "HOST:PORT", wherever the host is on this machine,
  // and returns the port, which is chosen for port 0. Once. UNAVAILABLE where
  // that cannot be, such as at a port that is taken.
  absl::StatusOr<int> Open(const std::string& address);

  // Hands connections over from now on, and those that have come since Open().
  // Once. `handler` does not destroy this.
  void Start(Handler handler);

 private:
  class Socket;

  void OnAccepted(int socket, loop::ScopedFd connection);
  void NotePause(const std::string& why);

  loop::Loop& loop_;
  const std::chrono::milliseconds pause_;
  Handler handler_;
  bool pausing_ = false;
  std::vector<std::shared_ptr<Socket>> sockets_;
};

}  // namespace rpc::grpc

#endif  // CORE_COMMON_RPC_GRPC_FRONT_LISTENER_H_
