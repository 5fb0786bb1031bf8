#include "core/common/rpc/transport/server_controller.h"

#include <utility>

#include "absl/log/absl_check.h"
#include "absl/log/absl_log.h"
#include "absl/strings/str_cat.h"

namespace rpc::transport {
namespace {

// Stands where a callback could be set once it would be too late for that.
class TooLate final : public google::protobuf::Closure {
 public:
  void Run() override {}
};

TooLate g_too_late;

}  // namespace

void ServerController::Start(const google::protobuf::MethodDescriptor* method,
                             const std::string& peer,
                             std::chrono::milliseconds timeout) {
  method_ = method;
  peer_ = peer;
  deadline_.reset();
  if (timeout.count() > 0) {
    deadline_ = std::chrono::steady_clock::now() + timeout;
  }
  status_ = absl::OkStatus();
  cancelled_.store(false, std::memory_order_relaxed);
  on_cancel_.store(nullptr, std::memory_order_relaxed);
}

void ServerController::SetFailed(const std::string& reason) {
  const bool nobody_home =
      reason == absl::StrCat("Method ", method_->name(), "() not implemented.");
  Fail(nobody_home ? absl::UnimplementedError(reason)
                   : absl::UnknownError(reason));
}

void ServerController::Fail(absl::Status status) {
  ABSL_CHECK(!status.ok()) << "a call does not fail with OK";
  status_ = std::move(status);
}

bool ServerController::IsCanceled() const {
  return cancelled_.load(std::memory_order_acquire);
}

void ServerController::NotifyOnCancel(google::protobuf::Closure* callback) {
  google::protobuf::Closure* earlier = nullptr;
  if (on_cancel_.compare_exchange_strong(earlier, callback)) {
    return;
  }
  ABSL_CHECK_EQ(earlier, &g_too_late)
      << "NotifyOnCancel() may be used once in a call";
  callback->Run();
}

void ServerController::Cancel() {
  cancelled_.store(true, std::memory_order_release);
  RunCancelCallback();
}

void ServerController::Finish() {
  RunCancelCallback();
}

void ServerController::RunCancelCallback() {
  google::protobuf::Closure* callback = on_cancel_.exchange(&g_too_late);
  if (callback != nullptr) {
    callback->Run();
  }
}

void ServerController::Reset() {
  ABSL_LOG(FATAL) << "Reset() belongs to the client's side";
}

bool ServerController::Failed() const {
  ABSL_LOG(FATAL) << "Failed() belongs to the client's side";
}

std::string ServerController::ErrorText() const {
  ABSL_LOG(FATAL) << "ErrorText() belongs to the client's side";
}

void ServerController::StartCancel() {
  ABSL_LOG(FATAL) << "StartCancel() belongs to the client's side";
}

}  // namespace rpc::transport
