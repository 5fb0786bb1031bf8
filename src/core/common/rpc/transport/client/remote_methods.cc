#include "core/common/rpc/transport/client/remote_methods.h"

#include <string_view>

#include "absl/status/status.h"
#include "absl/strings/str_cat.h"
#include "core/common/rpc/stream/method_kind.h"

namespace rpc::transport {

using google::protobuf::MethodDescriptor;

namespace {

std::string_view NameOf(OfferedMethod::StreamKind kind) {
  switch (kind) {
    case OfferedMethod::STREAM_KIND_EVENTS:
      return "an event stream";
    case OfferedMethod::STREAM_KIND_QUESTIONS:
      return "a callback stream";
    default:
      return "a stream of a newer kind";
  }
}

// A client opens streams of two kinds. Where the server does not say which one
// it has, nothing is checked: it refuses messages of the other kind itself.
absl::Status CheckStreamKind(const MethodDescriptor& method,
                             const OfferedMethod& offered) {
  const OfferedMethod::StreamKind wanted =
      torvane::KindOf(method) == torvane::MethodKind::kEventStream
          ? OfferedMethod::STREAM_KIND_EVENTS
          : OfferedMethod::STREAM_KIND_QUESTIONS;
  if (offered.stream_kind() == OfferedMethod::STREAM_KIND_UNSPECIFIED ||
      offered.stream_kind() == wanted) {
    return absl::OkStatus();
  }
  return absl::UnimplementedError(
      absl::StrCat(method.full_name(), " is ", NameOf(offered.stream_kind()),
                   " on the server, not ", NameOf(wanted)));
}

// The id of `method`, if the server's method of that name is of its kind.
absl::StatusOr<uint64_t> IdOf(const MethodDescriptor& method,
                              const OfferedMethod& offered) {
  const bool streaming = torvane::KindOf(method) != torvane::MethodKind::kUnary;
  if (offered.streaming() != streaming) {
    return absl::UnimplementedError(
        absl::StrCat(method.full_name(), " is ",
                     streaming ? "no stream" : "a stream", " on the server"));
  }
  if (streaming) {
    absl::Status status = CheckStreamKind(method, offered);
    if (!status.ok()) {
      return status;
    }
  }
  return offered.id();
}

}  // namespace

absl::StatusOr<uint64_t> RemoteMethods::Find(const MethodDescriptor* method) {
  auto known = known_.find(method);
  if (known == known_.end()) {
    known = known_.emplace(method, Match(*method)).first;
  }
  return known->second;
}

absl::StatusOr<uint64_t> RemoteMethods::Match(
    const MethodDescriptor& method) const {
  const auto offered = FindByName(method.service()->full_name(), method.name());
  return offered.ok() ? IdOf(method, **offered) : offered.status();
}

absl::StatusOr<const OfferedMethod*> RemoteMethods::FindByName(
    std::string_view service_name,
    std::string_view method_name) const {
  for (const OfferedService& service : offer_) {
    if (service.full_name() != service_name) {
      continue;
    }
    for (const OfferedMethod& offered : service.methods()) {
      if (offered.name() == method_name) {
        return &offered;
      }
    }
    return absl::UnimplementedError(absl::StrCat(
        "the server has no method ", service_name, ".", method_name));
  }
  return absl::UnimplementedError(
      absl::StrCat("the server has no service ", service_name,
                   " and so no method ", service_name, ".", method_name));
}

}  // namespace rpc::transport
