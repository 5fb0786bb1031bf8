// The insides of a Server: who listens, who is connected, what is offered.

#ifndef CORE_COMMON_RPC_TRANSPORT_SERVER_SERVER_CORE_H_
#define CORE_COMMON_RPC_TRANSPORT_SERVER_SERVER_CORE_H_

#include <google/protobuf/descriptor.h>

#include <memory>
#include <optional>
#include <string>
#include <system_error>
#include <unordered_map>
#include <vector>

#include "absl/status/status.h"
#include "core/common/rpc/loop/asio.h"
#include "core/common/rpc/serving/call_pool.h"
#include "core/common/rpc/serving/counters.h"
#include "core/common/rpc/serving/ending_queue.h"
#include "core/common/rpc/serving/served_methods.h"
#include "core/common/rpc/transport/server.h"
#include "core/common/rpc/transport/server/server_session.h"
#include "core/common/rpc/transport/socket/unix_socket.h"

namespace rpc::transport {

// Shared between the Server and the operations of its acceptor under way.
class ServerCore final : public std::enable_shared_from_this<ServerCore> {
 public:
  ServerCore(loop::Loop& loop, const ServerOptions& options);
  ~ServerCore();

  void AddService(torvane::Service* service) { methods_.Add(service); }
  std::vector<const google::protobuf::ServiceDescriptor*> Services() const {
    return methods_.Services();
  }
  absl::Status Listen(const std::string& path);
  void Adopt(loop::ScopedFd socket);
  void Stop();

  // The server is being destroyed: closes everything at once.
  void Close();

  const serving::Counters& counters() const { return *counters_; }
  serving::ServerReport Report() const;

 private:
  using Socket = asio::local::stream_protocol::socket;

  void Serve(Socket socket);
  void Accept();
  void OnAccept(const std::error_code& error, Socket socket);
  void AcceptLater(const std::error_code& error);
  absl::Status Admit(const absl::StatusOr<serving::ClientProcess>& peer);
  void OnSessionEnded(ServerSession* session);
  void TurnAway(Socket socket,
                const absl::StatusOr<serving::ClientProcess>& peer,
                const absl::Status& why);
  void StopListening();
  void CloseSessions();

  loop::Loop& loop_;
  const ServerOptions options_;
  const std::shared_ptr<serving::Counters> counters_;
  const std::shared_ptr<serving::CallPool> call_pool_;
  const std::shared_ptr<serving::EndingQueue> endings_;
  serving::ServedMethods methods_;

  std::optional<UnixListener> listener_;
  asio::local::stream_protocol::acceptor acceptor_;
  std::unique_ptr<loop::Timer> accept_timer_;
  // No connection has been accepted since the last pause.
  bool pausing_ = false;
  bool stopped_ = false;

  // With those whose clients have left and whose streams have to end yet.
  std::unordered_map<ServerSession*, std::shared_ptr<ServerSession>> sessions_;
};

}  // namespace rpc::transport

#endif  // CORE_COMMON_RPC_TRANSPORT_SERVER_SERVER_CORE_H_
