// Reaches the services of another process over a Unix domain socket.
//
// A client is a google::protobuf::RpcChannel, so protobuf's own stubs call
// through it:
//
//   loop::Loop loop;
//   auto client = rpc::transport::Client::Connect(loop, path);
//   if (!client.ok()) return client.status();
//   rpc::BrowserWindow_Stub windows(client->get());
//   rpc::transport::ClientController controller;
//   google::protobuf::Empty nothing;
//   windows.Show(&controller, &id, &nothing, nullptr);   // blocks
//
// With a closure instead of the last nullptr the call is asynchronous: it
// returns at once, and the closure runs as a task of the loop when the call is
// over. For streaming methods see event_subscriber.h and callback_answerer.h.
//
// Ownership: the caller's. The loop must outlive the client. Controller,
// response and closure must live until the call is over; the request only until
// CallMethod returns. Destroying the client ends its calls and streams with
// CANCELLED. A closure that the client runs may destroy it.
//
// Sequence: the thread that runs the loop. Blocking operations run the loop
// themselves, and with it whatever else is ready there. Within a closure or
// callback that the same client runs, a blocking call fails with
// FAILED_PRECONDITION.
//
// Failure: Connect() and Adopt() say why there is no client; limits that
// serving::Validate() refuses are a reason, too. A call fails by the status of
// its controller. A method that the server does not offer is UNIMPLEMENTED, a
// lost connection UNAVAILABLE, both with a text that says more.

#ifndef CORE_COMMON_RPC_TRANSPORT_CLIENT_H_
#define CORE_COMMON_RPC_TRANSPORT_CLIENT_H_

#include <google/protobuf/service.h>

#include <chrono>
#include <functional>
#include <memory>
#include <optional>
#include <string>

#include "absl/status/status.h"
#include "absl/status/statusor.h"
#include "core/common/rpc/loop/loop.h"
#include "core/common/rpc/loop/scoped_fd.h"
#include "core/common/rpc/serving/counters.h"
#include "core/common/rpc/serving/limits.h"
#include "core/common/rpc/transport/client_controller.h"

namespace rpc::transport {

class ClientCore;

struct ClientOptions {
  // limits.handshake_timeout is how long Connect() and Adopt() may take: the
  // socket itself connects at once or not at all, so only a server that does
  // not answer the hello, such as one that is stopped, keeps them waiting.
  serving::Limits limits;

  // How long each call may take whose controller has no timeout of its own.
  // Without it, such a call waits for ever.
  std::optional<std::chrono::milliseconds> call_timeout;

  // The client's name for itself, which the server reports.
  std::string name;
};

class Client final : public google::protobuf::RpcChannel {
 public:
  // Connects to the server that listens at `path`, or takes over a connected
  // socket, and waits until the server has said what it offers.
  // DEADLINE_EXCEEDED when it has not within options.limits.handshake_timeout.
  static absl::StatusOr<std::unique_ptr<Client>> Connect(
      loop::Loop& loop,
      const std::string& path,
      ClientOptions options = {});
  static absl::StatusOr<std::unique_ptr<Client>>
  Adopt(loop::Loop& loop, loop::ScopedFd socket, ClientOptions options = {});

  // The first half of Connect(): connects a socket, without the handshake.
  // Tells a server that does not listen from one that does not welcome this
  // client.
  static absl::StatusOr<loop::ScopedFd> OpenSocket(const std::string& path);

  Client(const Client&) = delete;
  Client& operator=(const Client&) = delete;
  ~Client() override;

  // Without `done` the call blocks. A null method, one that streams, and a
  // request or response that is null or of another type than the method's fail
  // the call with INVALID_ARGUMENT, and nothing is sent.
  //
  // `controller` is a ClientController. Another one is told by its SetFailed()
  // that it is none, and a call without one is recorded as an error; both are
  // over then. One of which another call is under way has no room for a second
  // status, and ends the process with a fatal record that says so.
  void CallMethod(const google::protobuf::MethodDescriptor* method,
                  google::protobuf::RpcController* controller,
                  const google::protobuf::Message* request,
                  google::protobuf::Message* response,
                  google::protobuf::Closure* done) override;

  // OK while connected, then why the connection was closed.
  const absl::Status& status() const;

  // Whether what is sent can still leave. If not, the connection is closed, or
  // about to be: what the server sent before it went is read first.
  bool can_send() const;

  // Called once when the connection is lost, after all calls and streams on it
  // have ended; not when the client is destroyed.
  void set_on_closed(std::function<void(const absl::Status&)> on_closed);

  const serving::Counters& counters() const;

  // For ClientStream.
  const std::shared_ptr<ClientCore>& core() const { return core_; }

 private:
  friend class ReconnectingClient;

  explicit Client(std::shared_ptr<ClientCore> core);

  // A client that has not said hello yet, and can't be used before its core's
  // handshake is over.
  static absl::StatusOr<std::unique_ptr<Client>> Make(loop::Loop& loop,
                                                      loop::ScopedFd socket,
                                                      ClientOptions options);

  std::shared_ptr<ClientCore> core_;
};

}  // namespace rpc::transport

#endif  // CORE_COMMON_RPC_TRANSPORT_CLIENT_H_
