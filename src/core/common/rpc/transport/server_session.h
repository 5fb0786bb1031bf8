// One client of a server: its handshake, its calls, its streams.
//
//                hello                       goodbye, end of the client,
//   [expecting] -------> [serving] ----------- limit, violation, stop -----,
//        |                                                                 v
//        '-- anything else, too late --------------------------------> [closed]
//
// Ownership: owned by the server until it is closed. Owns its streams; of its
// calls it knows those whose results it waits for.
//
// Sequence: the loop's.
//
// Failure: what breaks the protocol closes the connection with a goodbye; what
// is merely refused is answered to the call or stream.

#ifndef CORE_COMMON_RPC_TRANSPORT_SERVER_SESSION_H_
#define CORE_COMMON_RPC_TRANSPORT_SERVER_SESSION_H_

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <string_view>

#include "absl/container/flat_hash_map.h"
#include "absl/status/status.h"
#include "core/common/rpc/transport/asio.h"
#include "core/common/rpc/transport/client_record.h"
#include "core/common/rpc/transport/connection.h"
#include "core/common/rpc/transport/counters.h"
#include "core/common/rpc/transport/limits.h"
#include "core/common/rpc/transport/served_methods.h"
#include "core/common/rpc/transport/server_call.h"
#include "core/common/rpc/transport/server_report.h"
#include "core/common/rpc/transport/server_streams.h"
#include "core/common/rpc/transport/unix_socket.h"
#include "rpc/transport/frame.pb.h"

namespace rpc::transport {

class ServerSession final : public std::enable_shared_from_this<ServerSession>,
                            public Connection::Delegate,
                            public ServerCallOwner {
 public:
  // What sessions of one server share. It outlives them.
  struct Context {
    asio::io_context& loop;
    const Limits& limits;
    const ServedMethods& methods;
    ServerCallPool& calls;
    const std::shared_ptr<Counters>& counters;
  };

  using ClosedCallback = std::function<void(ServerSession*)>;

  // `id` tells the connection apart from all others of the server.
  ServerSession(const Context& context,
                uint64_t id,
                asio::local::stream_protocol::socket socket,
                const UnixPeer& peer,
                ClosedCallback on_closed);
  ~ServerSession();

  void Start();

  // Says goodbye and closes.
  void Stop(const absl::Status& why);

  ConnectionReport Report() const;

  // Outlives the session where its goodbye has yet to leave.
  const std::shared_ptr<Connection>& connection() const { return connection_; }

  // Connection::Delegate:
  absl::Status OnFrame(const FrameView& frame) override;
  void BeforeWrite() override;
  void OnClosed(const absl::Status& why) override;

  // ServerCallOwner:
  void OnCallDone(const ServerCall& call) override;
  void OnCallExpired(ServerCall& call) override;

 private:
  absl::Status OnHello(std::string_view body);
  absl::Status OnCall(std::string_view body);
  absl::Status OnCancel(std::string_view body);
  absl::Status OnStreamOpen(std::string_view body);
  absl::Status OnStreamData(std::string_view body);
  absl::Status OnStreamError(std::string_view body);
  absl::Status OnStreamEnd(std::string_view body);

  absl::Status Handle(const FrameView& frame);
  absl::Status CallRefusal(const ServedMethod* method);
  void RefuseCall(uint64_t id, const absl::Status& why);
  void StartCall(ServerCall* call);
  void GiveUp(ServerCall& call, const absl::Status& why);
  void Reply(const ServerCall& call);
  void ReplyError(uint64_t call_id, const absl::Status& status);
  void AppendReply();

  const Context context_;
  const uint64_t id_;
  const std::chrono::steady_clock::time_point start_ =
      std::chrono::steady_clock::now();
  const ClosedCallback on_closed_;
  const std::shared_ptr<Connection> connection_;
  ClientRecord client_;
  const std::shared_ptr<ServerStreams> streams_;
  bool serving_ = false;
  asio::steady_timer hello_timer_;

  // Calls that go on, by id.
  absl::flat_hash_map<uint64_t, ServerCall*> calls_;

  // How many are given up, but their methods have not run the closures. Shared
  // with those calls, which may outlive this.
  const std::shared_ptr<size_t> abandoned_calls_ = std::make_shared<size_t>(0);

  // Used again and again, for the memory that they hold.
  CallFrame call_frame_;
  ReplyFrame reply_frame_;
  StreamDataFrame data_frame_;
};

}  // namespace rpc::transport

#endif  // CORE_COMMON_RPC_TRANSPORT_SERVER_SESSION_H_
