// The methods that a server offers, under the ids that its connections use.

#ifndef CORE_COMMON_RPC_TRANSPORT_SERVED_METHODS_H_
#define CORE_COMMON_RPC_TRANSPORT_SERVED_METHODS_H_

#include <google/protobuf/descriptor.h>

#include <cstdint>
#include <vector>

#include "core/common/rpc/stream/service.h"
#include "rpc/transport/frame.pb.h"

namespace rpc::transport {

struct ServedMethod {
  torvane::Service* service;
  const google::protobuf::MethodDescriptor* descriptor;
  bool streaming;
};

class ServedMethods {
 public:
  // Gives an id to each method of `service`. Ids given before stay as they are.
  void Add(torvane::Service* service);

  // Null when no method has this id.
  const ServedMethod* Find(uint32_t id) const {
    return id < methods_.size() ? &methods_[id] : nullptr;
  }

  const google::protobuf::RepeatedPtrField<OfferedService>& offer() const {
    return offer_;
  }

 private:
  // By id.
  std::vector<ServedMethod> methods_;
  google::protobuf::RepeatedPtrField<OfferedService> offer_;
};

}  // namespace rpc::transport

#endif  // CORE_COMMON_RPC_TRANSPORT_SERVED_METHODS_H_
