// The insides of a Client: the handshake, and the calls on its connection.
//
// Call ids are never used twice, so a reply to a call that is given up is told
// by its id being unknown, and ignored.
//
// Ownership: shared between the Client, its streams, turns of the loop to come,
// and the connection as long as that is open. Points to the controllers,
// responses and closures of calls, which are the callers'.
//
// Sequence: the loop's. Closures run on turns of the loop, never within the
// operation that they are given to; each of them may destroy the Client.

#ifndef CORE_COMMON_RPC_TRANSPORT_CLIENT_CLIENT_CORE_H_
#define CORE_COMMON_RPC_TRANSPORT_CLIENT_CLIENT_CORE_H_

#include <google/protobuf/message.h>
#include <google/protobuf/service.h>

#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string_view>

#include "absl/container/flat_hash_map.h"
#include "absl/status/status.h"
#include "core/common/rpc/loop/asio.h"
#include "core/common/rpc/serving/counters.h"
#include "core/common/rpc/transport/client.h"
#include "core/common/rpc/transport/client/client_streams.h"
#include "core/common/rpc/transport/client/remote_methods.h"
#include "core/common/rpc/transport/wire/connection.h"
#include "rpc/transport/frame.pb.h"

namespace rpc::transport {

class ClientCore final : public std::enable_shared_from_this<ClientCore>,
                         public Connection::Delegate {
 public:
  using Milliseconds = std::chrono::milliseconds;
  using ClosedCallback = std::function<void(const absl::Status&)>;

  ClientCore(loop::Loop& loop,
             asio::local::stream_protocol::socket socket,
             ClientOptions options);
  ClientCore(const ClientCore&) = delete;
  ClientCore& operator=(const ClientCore&) = delete;
  ~ClientCore();

  // Runs the loop until the server has answered the hello.
  absl::Status Handshake();

  // Client::CallMethod() and ClientController::StartCancel().
  void Call(const google::protobuf::MethodDescriptor* method,
            ClientController* controller,
            const google::protobuf::Message& request,
            google::protobuf::Message* response,
            google::protobuf::Closure* done);
  void CancelCall(uint64_t id);

  // The Client goes: ends its calls and closes.
  void Close();

  const absl::Status& status() const { return status_; }
  void set_on_closed(ClosedCallback on_closed) {
    on_closed_ = std::move(on_closed);
  }
  ClientStreams& streams() { return *streams_; }
  const serving::Counters& counters() const { return *counters_; }

  // Connection::Delegate:
  absl::Status OnFrame(const FrameView& frame) override;
  void OnClosed(const absl::Status& why) override;

 private:
  struct PendingCall {
    ClientController* controller;
    google::protobuf::Message* response;
    google::protobuf::Closure* done;
    // Set where the call has a deadline.
    std::unique_ptr<loop::Timer> timer;
    // It ends on the next turn, whatever arrives until then. Either it was
    // never sent or its cancel has been.
    bool given_up = false;
  };

  void OnHandshakeTimeout();
  absl::Status Handle(const FrameView& frame);
  absl::Status OnWelcome(std::string_view body);
  absl::Status OnGoodbye(std::string_view body);
  absl::Status OnReply(std::string_view body);
  absl::Status OnStreamData(std::string_view body);
  absl::Status OnStreamEnd(std::string_view body);

  void CallAndWait(const google::protobuf::MethodDescriptor* method,
                   ClientController* controller,
                   const google::protobuf::Message& request,
                   google::protobuf::Message* response);
  uint64_t StartCall(const google::protobuf::MethodDescriptor* method,
                     ClientController* controller,
                     const google::protobuf::Message& request,
                     google::protobuf::Message* response,
                     google::protobuf::Closure* done);
  absl::Status AppendCall(uint64_t id,
                          const google::protobuf::MethodDescriptor* method,
                          const google::protobuf::Message& request,
                          std::optional<Milliseconds> timeout);
  bool IsPending(uint64_t id) const;
  void AppendCancel(uint64_t id);
  void AwaitDeadline(uint64_t id, Milliseconds timeout);
  absl::Status TakeResponse(const PendingCall& call);
  void GiveUp(uint64_t id, const absl::Status& why);
  void FinishCall(uint64_t id, const absl::Status& status);
  void FinishAllCalls(const absl::Status& status);

  loop::Loop& loop_;
  const ClientOptions options_;
  const std::shared_ptr<serving::Counters> counters_ =
      std::make_shared<serving::Counters>();
  RemoteMethods methods_;
  const std::shared_ptr<Connection> connection_;
  const std::shared_ptr<ClientStreams> streams_;
  ClosedCallback on_closed_;

  // The handshake is over, one way or the other; with success.
  bool settled_ = false;
  bool welcome_ = false;
  // The server has said why it ends the connection.
  bool goodbye_ = false;
  // Why the connection is closed, once it is.
  absl::Status status_;

  absl::flat_hash_map<uint64_t, PendingCall> calls_;
  uint64_t last_call_id_ = 0;

  // Used again and again, for the memory that they hold.
  CallFrame call_frame_;
  ReplyFrame reply_frame_;
  StreamDataFrame data_frame_;
};

}  // namespace rpc::transport

#endif  // CORE_COMMON_RPC_TRANSPORT_CLIENT_CLIENT_CORE_H_
