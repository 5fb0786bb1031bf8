// The caller's handle on one call: its time limit before, its status after.
//
//   rpc::transport::ClientController controller;
//   controller.set_timeout(std::chrono::seconds(2));
//   stub.Close(&controller, &id, &closed, nullptr);
//   if (!controller.status().ok()) { ... }
//
// Ownership: the caller's. It must live until the call is over, and may then be
// used for another after Reset().
//
// Sequence: the loop of the client that makes the call.
//
// Failure: status() says how the call ended. The operations of the server's
// side of google::protobuf::RpcController end the process.

#ifndef CORE_COMMON_RPC_TRANSPORT_CLIENT_CONTROLLER_H_
#define CORE_COMMON_RPC_TRANSPORT_CLIENT_CONTROLLER_H_

#include <google/protobuf/service.h>

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>

#include "absl/status/status.h"

namespace rpc::transport {

class ClientCore;

class ClientController final : public google::protobuf::RpcController {
 public:
  ClientController() = default;
  ClientController(const ClientController&) = delete;
  ClientController& operator=(const ClientController&) = delete;

  // Whether `controller` is a ClientController, and not one of another library
  // or of the server's side.
  static bool IsOne(const google::protobuf::RpcController& controller);

  // The call fails with DEADLINE_EXCEEDED unless it is answered within
  // `timeout`. Without this ClientOptions::call_timeout of the client that
  // makes the call holds, and without that it waits for ever.
  void set_timeout(std::chrono::milliseconds timeout) { timeout_ = timeout; }

  // How the call ended; OK before it did.
  const absl::Status& status() const { return status_; }

  // Cancels the call: it ends with CANCELLED on the next turn of the loop, and
  // the server is told. Does nothing when no call is under way.
  void StartCancel() override;

  // Makes this as good as new: forgets status and timeout. The next call has
  // what was set for its client, ClientOptions::call_timeout, until
  // set_timeout() is called again. Ends the process while a call is under way.
  void Reset() override;
  bool Failed() const override;
  std::string ErrorText() const override;

  // For servers only: these end the process.
  void SetFailed(const std::string& reason) override;
  bool IsCanceled() const override;
  void NotifyOnCancel(google::protobuf::Closure* callback) override;

 private:
  friend class ClientCore;

  std::optional<std::chrono::milliseconds> timeout_;
  absl::Status status_;

  // The call that is under way: its core, null when there is none, and its id.
  // The core ends all of its calls before it is destroyed.
  ClientCore* core_ = nullptr;
  uint64_t call_id_ = 0;
};

}  // namespace rpc::transport

#endif  // CORE_COMMON_RPC_TRANSPORT_CLIENT_CONTROLLER_H_
