#include "core/common/rpc/transport/client/remote_methods.h"

#include "absl/strings/str_cat.h"
#include "core/common/rpc/stream/method_kind.h"

namespace rpc::transport {

using google::protobuf::MethodDescriptor;

absl::StatusOr<uint64_t> RemoteMethods::Find(const MethodDescriptor* method) {
  const auto known = known_.find(method);
  return known != known_.end()
             ? known->second
             : known_.emplace(method, Match(*method)).first->second;
}

absl::StatusOr<uint64_t> RemoteMethods::Match(
    const MethodDescriptor& method) const {
  const bool streaming = torvane::KindOf(method) != torvane::MethodKind::kUnary;
  for (const OfferedService& service : offer_) {
    if (service.full_name() != method.service()->full_name()) {
      continue;
    }
    for (const OfferedMethod& offered : service.methods()) {
      if (offered.name() != method.name()) {
        continue;
      }
      if (offered.streaming() == streaming) {
        return offered.id();
      }
      return absl::UnimplementedError(
          absl::StrCat(method.full_name(), " is ",
                       streaming ? "no stream" : "a stream", " on the server"));
    }
    return absl::UnimplementedError(
        absl::StrCat("the server has no method ", method.full_name()));
  }
  return absl::UnimplementedError(
      absl::StrCat("the server has no service ", method.service()->full_name(),
                   " and so no method ", method.full_name()));
}

}  // namespace rpc::transport
