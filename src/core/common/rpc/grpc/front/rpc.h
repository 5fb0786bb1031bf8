// One call of a gRPC client on the front's sequence, of whatever kind: between
// its exchange and the backend's client of its peer.
//
//             found           the backend's end, the client's end
//   [finding] ----> [handler] ------------------------------------> (over)
//       '--------------------------------------------------------->
//         no such method, cancelled
//
// Ownership: the peer's, until the call is over.
//
// Sequence: the front's.
//
// Failure: the status that the client gets.

#ifndef CORE_COMMON_RPC_GRPC_FRONT_RPC_H_
#define CORE_COMMON_RPC_GRPC_FRONT_RPC_H_

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "absl/status/status.h"
#include "absl/status/statusor.h"
#include "core/common/rpc/grpc/backend.h"
#include "core/common/rpc/grpc/front/exchange.h"
#include "core/common/rpc/grpc/front/handler.h"

namespace rpc::grpc {

class Peer;

class Rpc final : public Exchange::Observer,
                  public std::enable_shared_from_this<Rpc> {
 public:
  Rpc(Peer& peer, uint64_t id, std::shared_ptr<Exchange> exchange);
  Rpc(const Rpc&) = delete;
  Rpc& operator=(const Rpc&) = delete;
  ~Rpc() override;

  // Finds the method. The call may be over when this returns.
  void Begin();

  // For handlers.
  uint64_t id() const { return id_; }
  BackendClient& backend();
  Exchange& exchange() { return *exchange_; }
  // How long the client waits yet; zero if it waits for ever.
  absl::StatusOr<std::chrono::milliseconds> TimeLeft() const;
  void ReadNext();
  // Not OK when the client leaves too much unread for so much more.
  absl::Status CheckRoomFor(size_t bytes) const;
  // Ends the call for the client and for the backend.
  void Fail(const absl::Status& status);

  // What the backend brings.
  void OnReply(std::string_view response);
  void OnStreamMessage(std::string_view message) { exchange_->Write(message); }
  void OnEnd(const absl::Status& status);
  std::string ToClient(const transport::StreamMessage& message) {
    return handler_->ToClient(message);
  }
  // A unary call that has been found.
  bool is_call() const { return handler_ != nullptr && !is_stream_; }

  // Exchange::Observer:
  void OnMessage(std::string message) override;
  void OnHalfClose() override;
  void OnCancelled() override;

 private:
  // What the client has said: a message, or without one its half-close.
  using Said = std::optional<std::string>;

  void OnFound(const absl::StatusOr<BackendMethod>& method);
  std::unique_ptr<Handler> MakeHandler(const BackendMethod& method);
  void Handle(Said said);
  // Runs `end` at once for a call, and when it is its turn for a stream.
  void EndInTurn(void (Rpc::*end)());
  void HandleHalfClose() { Handle(std::nullopt); }
  void HandleCancel();
  // Leaves the peer, which has shared this.
  void Leave();

  // Null once the call is over.
  Peer* peer_;
  const uint64_t id_;
  const std::shared_ptr<Exchange> exchange_;
  // Null while the method is being found.
  std::unique_ptr<Handler> handler_;
  bool is_stream_ = false;
  // What the client has said before the method was found. It can't be more.
  std::optional<Said> early_;
};

}  // namespace rpc::grpc

#endif  // CORE_COMMON_RPC_GRPC_FRONT_RPC_H_
