// The implementation of Client: runs the handshake, sends calls and completes
// them, and hands stream frames to the ClientStreamTable. It is an object of
// its own because it must live on while a callback destroys the Client.
//
// Call ids are never reused. A reply with an unknown id is to a call that has
// been cancelled or has timed out, and is ignored.
//
// Ownership: shared between the Client, its streams, tasks posted to the loop,
// and the connection as long as that is open. Points to the controllers,
// responses and closures of calls, which are the callers'.
//
// Sequence: that of the loop. The closure of a call never runs within the
// CallMethod() that it is given to; any closure may destroy the Client.
//
// Failure: a call fails by its controller's status. When the connection closes,
// all calls and streams end with the same status, that of status().

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
#include "core/common/rpc/transport/client/client_stream_table.h"
#include "core/common/rpc/transport/client/last_call.h"
#include "core/common/rpc/transport/client/remote_methods.h"
#include "core/common/rpc/transport/wire/connection.h"
#include "rpc/transport/frame.pb.h"

namespace rpc::transport {

class ClientCore final : public std::enable_shared_from_this<ClientCore>,
                         public Connection::Delegate {
 public:
  using Milliseconds = std::chrono::milliseconds;
  using StatusCallback = std::function<void(const absl::Status&)>;

  ClientCore(loop::Loop& loop,
             asio::local::stream_protocol::socket socket,
             ClientOptions options);
  ClientCore(const ClientCore&) = delete;
  ClientCore& operator=(const ClientCore&) = delete;
  ~ClientCore();

  // Says hello. `on_over` is called once, on a later turn, when the server has
  // answered or the connection is closed, unless Close() comes before. Its
  // status says whether the server welcomes this client.
  void StartHandshake(StatusCallback on_over);

  // Says hello, and runs the loop until then.
  absl::Status RunHandshake();

  // Client::CallMethod() and ClientController::StartCancel().
  void Call(const google::protobuf::MethodDescriptor* method,
            ClientController* controller,
            const google::protobuf::Message* request,
            google::protobuf::Message* response,
            google::protobuf::Closure* done);
  void CancelCall(uint64_t id);

  // Calls the method of this id with a request that is serialised already, and
  // leaves the response unparsed in `response`. `done` is not null.
  void CallById(uint64_t method_id,
                ClientController* controller,
                const std::string& request,
                std::string* response,
                google::protobuf::Closure* done);

  // Runs the closure of a call that could not even begin, on a later turn. Null
  // for a blocking call.
  void RunSoon(google::protobuf::Closure* done);

  // The Client is being destroyed: ends its calls and streams with CANCELLED,
  // and closes the connection.
  void Close();

  // OK while the connection is open, then why it is closed.
  const absl::Status& status() const { return status_; }
  bool can_send() const { return connection_->can_send(); }
  void set_on_closed(StatusCallback on_closed) {
    on_closed_ = std::move(on_closed);
  }
  ClientStreamTable& streams() { return *streams_; }
  const RemoteMethods& methods() const { return methods_; }
  const serving::Counters& counters() const { return *counters_; }

  // Connection::Delegate:
  absl::Status OnFrame(const FrameView& frame) override;
  void OnClosed(const absl::Status& why) override;

 private:
  struct PendingCall {
    ClientController* controller;
    // Where the response goes: one is null.
    google::protobuf::Message* response;
    std::string* unparsed_response;
    google::protobuf::Closure* done;
    // Null when the call has no timeout.
    std::unique_ptr<loop::Timer> timer;
    // FinishCallSoon() has decided how the call ends. A reply or a cancel that
    // comes before it runs is ignored.
    bool finish_posted = false;
  };

  using PendingCalls = absl::flat_hash_map<uint64_t, PendingCall>;

  // What the server has last said about the connection itself. A connection
  // that is lost changes nothing here, only status_.
  enum class Handshake { kAwaitingWelcome, kWelcomed, kGoodbye };

  bool IsHandshakeOver() const;
  // How it has ended, for the user.
  absl::Status HandshakeOutcome() const;
  void OnHandshakeOver();
  void OnHandshakeTimeout();
  absl::Status HandleFrame(const FrameView& frame);
  absl::Status OnWelcome(std::string_view body);
  absl::Status OnGoodbye(std::string_view body);
  absl::Status OnReply(std::string_view body);
  absl::Status OnStreamData(std::string_view body);
  absl::Status OnStreamEnd(std::string_view body);

  void CallAndWait(const google::protobuf::MethodDescriptor* method,
                   ClientController* controller,
                   const google::protobuf::Message* request,
                   google::protobuf::Message* response);
  uint64_t StartCall(const google::protobuf::MethodDescriptor* method,
                     ClientController* controller,
                     const google::protobuf::Message* request,
                     google::protobuf::Message* response,
                     google::protobuf::Closure* done);
  // The id of a method that can be called so.
  absl::StatusOr<uint64_t> IdOf(
      const google::protobuf::MethodDescriptor* method,
      const google::protobuf::Message* request,
      const google::protobuf::Message* response);
  // Sends what is in `call_frame_`, the request, or ends the call.
  uint64_t StartCall(const absl::StatusOr<uint64_t>& method_id,
                     PendingCall call);
  absl::Status AppendCall(uint64_t id,
                          const absl::StatusOr<uint64_t>& method_id,
                          std::optional<Milliseconds> timeout);
  bool IsAwaitingReply(uint64_t id) const;
  void AppendCancel(uint64_t id);
  void StartTimer(uint64_t id, Milliseconds timeout);
  // Parses the response in `reply_frame_` into the caller's. Returns how the
  // call has ended.
  absl::Status ReadReply(const PendingCall& call);
  // Runs the call's closure, now or on a later turn. The closure may destroy
  // the Client.
  void FinishCall(PendingCalls::iterator entry, const absl::Status& status);
  // Does nothing if the call is over.
  void FinishCall(uint64_t id, const absl::Status& status);
  void FinishCallSoon(uint64_t id, const absl::Status& status);
  void FinishAllCalls(const absl::Status& status);

  loop::Loop& loop_;
  const ClientOptions options_;
  const std::shared_ptr<serving::Counters> counters_ =
      std::make_shared<serving::Counters>();
  RemoteMethods methods_;
  LastCall last_call_;
  const std::shared_ptr<Connection> connection_;
  const std::shared_ptr<ClientStreamTable> streams_;
  StatusCallback on_closed_;

  Handshake handshake_ = Handshake::kAwaitingWelcome;
  std::unique_ptr<loop::Timer> handshake_timer_;
  StatusCallback on_handshake_over_;
  absl::Status status_;

  PendingCalls calls_;
  uint64_t last_call_id_ = 0;

  // Reused for every frame of their kind, so that their memory is allocated
  // once.
  CallFrame call_frame_;
  ReplyFrame reply_frame_;
  StreamDataFrame data_frame_;
};

}  // namespace rpc::transport

#endif  // CORE_COMMON_RPC_TRANSPORT_CLIENT_CLIENT_CORE_H_
