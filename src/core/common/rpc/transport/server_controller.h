// What a method of a service can know and decide about the call it serves.
//
// A service that knows this transport finds this class behind the controller
// that each of its unary methods is given:
//
//   void Show(google::protobuf::RpcController* controller, ...) override {
//     auto* call = static_cast<rpc::transport::ServerController*>(controller);
//     if (!Find(request->value())) {
//       call->Fail(absl::NotFoundError("no window 7"));
//     }
//     done->Run();
//   }
//
// Ownership: the transport's. It is gone once the closure has been run.
//
// Sequence: IsCanceled() and NotifyOnCancel() may be called on any thread; the
// rest by whoever holds the closure, until it runs it. The closure given to
// NotifyOnCancel() runs on the loop's thread, unless the call is cancelled
// already: then at once, where it is given.
//
// Failure: a call that has failed sends no response. The operations of the
// client's side of google::protobuf::RpcController end the process.

#ifndef CORE_COMMON_RPC_TRANSPORT_SERVER_CONTROLLER_H_
#define CORE_COMMON_RPC_TRANSPORT_SERVER_CONTROLLER_H_

#include <google/protobuf/descriptor.h>
#include <google/protobuf/service.h>

#include <atomic>
#include <chrono>
#include <optional>
#include <string>

#include "absl/status/status.h"

namespace rpc::transport {

class ServerController final : public google::protobuf::RpcController {
 public:
  ServerController() = default;
  ServerController(const ServerController&) = delete;
  ServerController& operator=(const ServerController&) = delete;

  // Fails the call with UNKNOWN and `reason`. The text with which generated
  // code fails a method that nobody has implemented becomes UNIMPLEMENTED.
  void SetFailed(const std::string& reason) override;

  // Fails the call with a status of the caller's choice, which is not OK.
  void Fail(absl::Status status);

  // Whether nobody waits for the result any more: the client has cancelled the
  // call, its deadline has passed, or the client is gone.
  bool IsCanceled() const override;

  // Runs `callback` exactly once: when the call is cancelled, or else when it
  // is over. At most once per call.
  void NotifyOnCancel(google::protobuf::Closure* callback) override;

  // When the client stops waiting; nothing if it waits for ever.
  std::optional<std::chrono::steady_clock::time_point> deadline() const {
    return deadline_;
  }

  // Who calls, for records: "windowctl (pid 4711)".
  const std::string& peer() const { return peer_; }

  // How the call stands.
  const absl::Status& status() const { return status_; }

  // The client's side of the interface.
  void Reset() override;
  bool Failed() const override;
  std::string ErrorText() const override;
  void StartCancel() override;

 private:
  friend class ServerCall;

  // Prepares for a call of `method`.
  void Start(const google::protobuf::MethodDescriptor* method,
             const std::string& peer,
             std::chrono::milliseconds timeout);

  // The call is cancelled, or over: runs the callback of NotifyOnCancel().
  void Cancel();
  void Finish();
  void RunCancelCallback();

  const google::protobuf::MethodDescriptor* method_ = nullptr;
  std::string peer_;
  std::optional<std::chrono::steady_clock::time_point> deadline_;
  absl::Status status_;
  std::atomic<bool> cancelled_ = false;
  // Null, the callback, or a marker that it would be too late to set one.
  std::atomic<google::protobuf::Closure*> on_cancel_ = nullptr;
};

}  // namespace rpc::transport

#endif  // CORE_COMMON_RPC_TRANSPORT_SERVER_CONTROLLER_H_
