#include "core/common/rpc/transport/wire/shared_payload.h"

namespace rpc::transport {

SharedPayload SharePayload(const std::string& payload) {
  thread_local std::weak_ptr<const std::string> last;
  SharedPayload shared = last.lock();
  if (shared == nullptr || *shared != payload) {
    shared = std::make_shared<const std::string>(payload);
    last = shared;
  }
  return shared;
}

}  // namespace rpc::transport
