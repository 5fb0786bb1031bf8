#include "core/common/rpc/serving/call_context.h"

#include <utility>

#include "absl/log/absl_check.h"
#include "absl/log/absl_log.h"
#include "absl/strings/str_cat.h"

namespace rpc::serving {
namespace {

// Sentinel: the call is cancelled or finished, and a later NotifyOnCancel()
// runs its callback at once.
class TooLate final : public google::protobuf::Closure {
 public:
  void Run() override {}
};

TooLate g_too_late;

}  // namespace

void CallContext::Start(const google::protobuf::MethodDescriptor& method,
                        const std::string& peer,
                        Deadline deadline) {
  method_ = &method;
  peer_ = peer;
  deadline_ = deadline;
  status_ = absl::OkStatus();
  cancelled_.store(false, std::memory_order_relaxed);
  on_cancel_.store(nullptr, std::memory_order_relaxed);
}

void CallContext::SetFailed(const std::string& reason) {
  const bool is_not_implemented =
      reason == absl::StrCat("Method ", method_->name(), "() not implemented.");
  Fail(is_not_implemented ? absl::UnimplementedError(reason)
                          : absl::UnknownError(reason));
}

void CallContext::Fail(absl::Status status) {
  ABSL_CHECK(!status.ok()) << "a call does not fail with OK";
  status_ = std::move(status);
}

bool CallContext::IsCanceled() const {
  return cancelled_.load(std::memory_order_acquire);
}

void CallContext::NotifyOnCancel(google::protobuf::Closure* callback) {
  google::protobuf::Closure* earlier = nullptr;
  if (on_cancel_.compare_exchange_strong(earlier, callback)) {
    return;
  }
  ABSL_CHECK_EQ(earlier, &g_too_late)
      << "NotifyOnCancel() may be used once in a call";
  callback->Run();
}

void CallContext::Cancel() {
  cancelled_.store(true, std::memory_order_release);
  Finish();
}

void CallContext::Finish() {
  google::protobuf::Closure* callback = on_cancel_.exchange(&g_too_late);
  if (callback != nullptr) {
    callback->Run();
  }
}

void CallContext::Reset() {
  ABSL_LOG(FATAL) << "Reset() belongs to the client's side";
}

bool CallContext::Failed() const {
  ABSL_LOG(FATAL) << "Failed() belongs to the client's side";
}

std::string CallContext::ErrorText() const {
  ABSL_LOG(FATAL) << "ErrorText() belongs to the client's side";
}

void CallContext::StartCancel() {
  ABSL_LOG(FATAL) << "StartCancel() belongs to the client's side";
}

}  // namespace rpc::serving
