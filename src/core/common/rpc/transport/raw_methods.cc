#include "core/common/rpc/transport/raw_methods.h"

#include <google/protobuf/stubs/callback.h>

#include <utility>

#include "core/common/rpc/transport/client/client_core.h"
#include "core/common/rpc/transport/client_controller.h"

namespace rpc::transport {

absl::StatusOr<OfferedMethod> FindMethod(const Client& client,
                                         std::string_view service,
                                         std::string_view method) {
  const auto offered = client.core()->methods().FindByName(service, method);
  if (!offered.ok()) {
    return offered.status();
  }
  return **offered;
}

// What the client needs until the call is over, also when nobody waits any
// longer.
class RawCall::Running final : private google::protobuf::Closure {
 public:
  Running(RawCall* owner, DoneCallback on_done)
      : owner_(owner), on_done_(std::move(on_done)) {}

  void Start(Client& client,
             uint64_t method_id,
             std::optional<std::chrono::milliseconds> timeout,
             const std::string& request) {
    if (timeout) {
      controller_.set_timeout(*timeout);
    }
    client.core()->CallById(method_id, &controller_, request, &response_, this);
  }

  void Abandon() {
    owner_ = nullptr;
    controller_.StartCancel();
  }

 private:
  void Run() override {
    if (owner_ != nullptr) {
      owner_->running_ = nullptr;
      on_done_(controller_.status(), std::move(response_));
    }
    delete this;
  }

  RawCall* owner_;
  const DoneCallback on_done_;
  ClientController controller_;
  std::string response_;
};

RawCall::RawCall(Client& client,
                 uint64_t method_id,
                 std::optional<std::chrono::milliseconds> timeout,
                 const std::string& request,
                 DoneCallback on_done)
    : running_(new Running(this, std::move(on_done))) {
  running_->Start(client, method_id, timeout, request);
}

RawCall::~RawCall() {
  if (running_ != nullptr) {
    running_->Abandon();
  }
}

}  // namespace rpc::transport
