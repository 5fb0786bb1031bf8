// Compiled with exceptions, unlike everything else of ours.

#include "core/common/rpc/loop/exception_boundary.h"

#include <exception>

#include "absl/log/absl_log.h"

namespace rpc::loop {

void EndOnException(absl::FunctionRef<void()> enter,
                    absl::FunctionRef<std::string()> who) {
  try {
    enter();
  } catch (const std::exception& exception) {
    ABSL_LOG(FATAL) << who()
                    << " has thrown an exception: " << exception.what();
  } catch (...) {
    ABSL_LOG(FATAL) << who()
                    << " has thrown an exception that is no std::exception";
  }
}

}  // namespace rpc::loop
