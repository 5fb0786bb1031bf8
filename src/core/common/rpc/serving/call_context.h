// What a method can know and decide about the call it serves: who calls, until
// when, whether anybody still waits, and how the call fails.
//
// It stands behind the controller that each unary method is given, whatever
// transport the call came over:
//
//   void Show(google::protobuf::RpcController* controller, ...) override {
//     if (!Find(request->value()))
//       CallContext::Of(controller).Fail(absl::NotFoundError("no window 7"));
//     done->Run();
//   }
//
// Ownership: whoever makes the call, a transport or a test. For the method it
// is gone once the closure has been run.
//
// Sequence: IsCanceled() and NotifyOnCancel() may be called on any thread; the
// rest by whoever holds the closure, until it runs it. The closure given to
// NotifyOnCancel() runs on the server's sequence, unless the call is cancelled
// already: then at once, where it is given.
//
// Failure: a call that has failed sends no response. The operations of the
// client's side of google::protobuf::RpcController end the process.

#ifndef CORE_COMMON_RPC_SERVING_CALL_CONTEXT_H_
#define CORE_COMMON_RPC_SERVING_CALL_CONTEXT_H_

#include <google/protobuf/descriptor.h>
#include <google/protobuf/service.h>

#include <atomic>
#include <chrono>
#include <optional>
#include <string>

#include "absl/status/status.h"

namespace rpc::serving {

class CallContext final : public google::protobuf::RpcController {
 public:
  using Deadline = std::optional<std::chrono::steady_clock::time_point>;

  CallContext() = default;
  CallContext(const CallContext&) = delete;
  CallContext& operator=(const CallContext&) = delete;

  // The context behind the controller of a method that a transport serves.
  // Without run-time type information nothing can check that it is one.
  static CallContext& Of(google::protobuf::RpcController* controller) {
    return *static_cast<CallContext*>(controller);
  }

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
  const Deadline& deadline() const { return deadline_; }

  // Who calls, for records: "windowctl (pid 4711)".
  const std::string& peer() const { return peer_; }

  // How the call stands.
  const absl::Status& status() const { return status_; }

  // For whoever makes the call. Start() begins one, also after another is over;
  // Cancel() tells the method that nobody waits any more; Finish() ends it. The
  // last two run what NotifyOnCancel() was given, if it has not run yet.
  void Start(const google::protobuf::MethodDescriptor& method,
             const std::string& peer,
             Deadline deadline);
  void Cancel();
  void Finish();

  // The client's side of the interface.
  void Reset() override;
  bool Failed() const override;
  std::string ErrorText() const override;
  void StartCancel() override;

 private:
  const google::protobuf::MethodDescriptor* method_ = nullptr;
  std::string peer_;
  Deadline deadline_;
  absl::Status status_;
  std::atomic<bool> cancelled_ = false;
  // Null, the callback, or a sentinel that says that it is too late to set one.
  std::atomic<google::protobuf::Closure*> on_cancel_ = nullptr;
};

}  // namespace rpc::serving

#endif  // CORE_COMMON_RPC_SERVING_CALL_CONTEXT_H_
