// Every way from a transport into a service's own code goes through here.
//
// Sequence: that of the service.
//
// Failure: an exception that leaves the service ends the process with a fatal
// record that names the method (loop/exception_boundary.h).

#ifndef CORE_COMMON_RPC_SERVING_ENTER_SERVICE_H_
#define CORE_COMMON_RPC_SERVING_ENTER_SERVICE_H_

#include <google/protobuf/descriptor.h>

#include <string>

#include "core/common/rpc/loop/exception_boundary.h"

namespace rpc::serving {

// `enter` calls the service because of `method`.
template <typename Enter>
void EnterService(const google::protobuf::MethodDescriptor& method,
                  const Enter& enter) {
  loop::EndOnException(enter,
                       [&method] { return std::string(method.full_name()); });
}

}  // namespace rpc::serving

#endif  // CORE_COMMON_RPC_SERVING_ENTER_SERVICE_H_
