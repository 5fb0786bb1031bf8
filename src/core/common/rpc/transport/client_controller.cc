#include "core/common/rpc/transport/client_controller.h"

#include "absl/log/absl_check.h"
#include "absl/log/absl_log.h"
#include "core/common/rpc/transport/client/client_core.h"
#include "core/common/rpc/transport/client/virtual_table.h"

namespace rpc::transport {

using google::protobuf::RpcController;

// No class derives from this one, so all of its objects have the same table.
bool ClientController::IsOne(const RpcController& controller) {
  static const void* const own = VirtualTableOf(ClientController());
  return VirtualTableOf(controller) == own;
}

void ClientController::StartCancel() {
  if (core_ != nullptr) {
    core_->CancelCall(call_id_);
  }
}

void ClientController::Reset() {
  ABSL_CHECK(core_ == nullptr) << "Reset() while the call is under way";
  timeout_.reset();
  status_ = absl::OkStatus();
}

bool ClientController::Failed() const {
  return !status_.ok();
}

std::string ClientController::ErrorText() const {
  return std::string(status_.message());
}

void ClientController::SetFailed(const std::string&) {
  ABSL_LOG(FATAL) << "SetFailed() belongs to the server's side";
}

bool ClientController::IsCanceled() const {
  ABSL_LOG(FATAL) << "IsCanceled() belongs to the server's side";
}

void ClientController::NotifyOnCancel(google::protobuf::Closure*) {
  ABSL_LOG(FATAL) << "NotifyOnCancel() belongs to the server's side";
}

}  // namespace rpc::transport
