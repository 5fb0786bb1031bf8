// What the server at the other end offers: from a method of this program's
// contract to the id that stands for it on one connection.
//
// Methods are matched by full name and kind, never by their place in a
// contract, so that programs built from different ages of it cannot reach a
// wrong method.

#ifndef CORE_COMMON_RPC_TRANSPORT_CLIENT_REMOTE_METHODS_H_
#define CORE_COMMON_RPC_TRANSPORT_CLIENT_REMOTE_METHODS_H_

#include <google/protobuf/descriptor.h>

#include <cstdint>
#include <vector>

#include "absl/status/statusor.h"
#include "rpc/transport/frame.pb.h"

namespace rpc::transport {

class RemoteMethods {
 public:
  void Set(google::protobuf::RepeatedPtrField<OfferedService> offer) {
    offer_ = std::move(offer);
  }

  // The id of `method`, or UNIMPLEMENTED with a text that names it.
  absl::StatusOr<uint32_t> Find(
      const google::protobuf::MethodDescriptor* method);

 private:
  // The methods of one service, by index, as far as they have been asked for.
  using Ids = std::vector<absl::StatusOr<uint32_t>>;

  struct Service {
    const google::protobuf::ServiceDescriptor* descriptor;
    Ids ids;
  };

  Ids Match(const google::protobuf::ServiceDescriptor* descriptor) const;

  google::protobuf::RepeatedPtrField<OfferedService> offer_;
  // The services that have been asked for. Few: a search by address is the
  // fastest there is.
  std::vector<Service> services_;
};

}  // namespace rpc::transport

#endif  // CORE_COMMON_RPC_TRANSPORT_CLIENT_REMOTE_METHODS_H_
