// The insides of a Server: who listens, who is connected, what is offered.

#ifndef CORE_COMMON_RPC_TRANSPORT_SERVER_CORE_H_
#define CORE_COMMON_RPC_TRANSPORT_SERVER_CORE_H_

#include <list>
#include <memory>
#include <optional>
#include <string>
#include <system_error>
#include <unordered_map>

#include "absl/status/status.h"
#include "core/common/rpc/transport/asio.h"
#include "core/common/rpc/transport/counters.h"
#include "core/common/rpc/transport/served_methods.h"
#include "core/common/rpc/transport/server.h"
#include "core/common/rpc/transport/server_call.h"
#include "core/common/rpc/transport/server_session.h"
#include "core/common/rpc/transport/unix_socket.h"

namespace rpc::transport {

// Shared between the Server and the operations of its acceptor under way.
class ServerCore final : public std::enable_shared_from_this<ServerCore> {
 public:
  ServerCore(asio::io_context& loop, const ServerOptions& options);
  ~ServerCore();

  void AddService(torvane::Service* service) { methods_.Add(service); }
  absl::Status Listen(const std::string& path);
  void Adopt(asio::local::stream_protocol::socket socket);
  void Stop();

  // The server goes: closes everything at once.
  void Close();

  const Counters& counters() const { return *counters_; }
  ServerReport Report() const;

 private:
  using Socket = asio::local::stream_protocol::socket;

  void Accept();
  void OnAccept(const std::error_code& error, Socket socket);
  void AcceptLater(const std::error_code& error);
  absl::Status Admit(const absl::StatusOr<UnixPeer>& peer);
  void MakeRoom();
  void OnSessionClosed(ServerSession* session);
  void Refuse(Socket socket,
              const absl::StatusOr<UnixPeer>& peer,
              const absl::Status& why);
  void StopListening();
  void CloseSessions();

  asio::io_context& loop_;
  const ServerOptions options_;
  const std::shared_ptr<Counters> counters_;
  const std::shared_ptr<ServerCallPool> calls_;
  ServedMethods methods_;

  std::optional<UnixListener> listener_;
  asio::local::stream_protocol::acceptor acceptor_;
  asio::steady_timer accept_timer_;
  // No connection has been accepted since the last pause.
  bool pausing_ = false;
  bool stopped_ = false;

  std::unordered_map<ServerSession*, std::shared_ptr<ServerSession>> sessions_;

  // Closed ones whose goodbyes have yet to leave, the oldest first. They hold
  // sockets, and so count for max_connections.
  std::list<std::weak_ptr<Connection>> leaving_;
};

}  // namespace rpc::transport

#endif  // CORE_COMMON_RPC_TRANSPORT_SERVER_CORE_H_
