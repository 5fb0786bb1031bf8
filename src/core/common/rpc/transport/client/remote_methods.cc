#include "core/common/rpc/transport/client/remote_methods.h"

#include <algorithm>

#include "absl/strings/str_cat.h"

namespace rpc::transport {
namespace {

using google::protobuf::MethodDescriptor;
using google::protobuf::ServiceDescriptor;

absl::StatusOr<uint32_t> MatchMethod(const OfferedService& service,
                                     const MethodDescriptor* method) {
  const auto offered = std::find_if(
      service.methods().begin(), service.methods().end(),
      [&](const auto& offered) { return offered.name() == method->name(); });
  if (offered == service.methods().end()) {
    return absl::UnimplementedError(
        absl::StrCat("the server has no method ", method->full_name()));
  }
  const bool streaming =
      method->client_streaming() || method->server_streaming();
  if (offered->streaming() != streaming) {
    return absl::UnimplementedError(
        absl::StrCat(method->full_name(), " is ",
                     streaming ? "no stream" : "a stream", " on the server"));
  }
  return offered->id();
}

}  // namespace

absl::StatusOr<uint32_t> RemoteMethods::Find(const MethodDescriptor* method) {
  const ServiceDescriptor* wanted = method->service();
  for (const Service& service : services_) {
    if (service.descriptor == wanted) {
      return service.ids[static_cast<size_t>(method->index())];
    }
  }
  services_.push_back({wanted, Match(wanted)});
  return services_.back().ids[static_cast<size_t>(method->index())];
}

RemoteMethods::Ids RemoteMethods::Match(
    const ServiceDescriptor* descriptor) const {
  const auto offered = std::find_if(
      offer_.begin(), offer_.end(), [&](const OfferedService& service) {
        return service.full_name() == descriptor->full_name();
      });
  Ids ids;
  for (int i = 0; i < descriptor->method_count(); ++i) {
    const MethodDescriptor* method = descriptor->method(i);
    if (offered == offer_.end()) {
      ids.push_back(absl::UnimplementedError(
          absl::StrCat("the server has no service ", descriptor->full_name(),
                       " and so no method ", method->full_name())));
    } else {
      ids.push_back(MatchMethod(*offered, method));
    }
  }
  return ids;
}

}  // namespace rpc::transport
