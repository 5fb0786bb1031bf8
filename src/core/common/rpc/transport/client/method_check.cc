#include "core/common/rpc/transport/client/method_check.h"

#include <optional>
#include <string_view>

#include "absl/strings/str_cat.h"
#include "core/common/rpc/stream/method_kind.h"
#include "core/common/rpc/transport/client/virtual_table.h"

namespace rpc::transport {
namespace {

using google::protobuf::Descriptor;
using google::protobuf::Message;
using google::protobuf::MethodDescriptor;
using torvane::MethodKind;

std::string_view NameOf(std::optional<MethodKind> kind) {
  if (!kind) {
    return "a stream of no known kind";
  }
  switch (*kind) {
    case MethodKind::kUnary:
      return "a unary method";
    case MethodKind::kEventStream:
      return "an event stream";
    case MethodKind::kCallbackStream:
      return "a callback stream";
  }
  return "";
}

absl::Status CheckKind(const MethodDescriptor* method, MethodKind wanted) {
  if (method == nullptr) {
    return absl::InvalidArgumentError(
        absl::StrCat("the method is null, not ", NameOf(wanted)));
  }
  const std::optional<MethodKind> kind = torvane::KindOf(*method);
  if (kind == wanted) {
    return absl::OkStatus();
  }
  return absl::InvalidArgumentError(absl::StrCat(
      method->full_name(), " is ", NameOf(kind), ", not ", NameOf(wanted)));
}

absl::Status CheckType(const MethodDescriptor* method,
                       std::string_view what,
                       const Descriptor& declared,
                       const Descriptor& given) {
  if (&given == &declared || given.full_name() == declared.full_name()) {
    return absl::OkStatus();
  }
  return absl::InvalidArgumentError(
      absl::StrCat("the ", what, " of ", method->full_name(), " is a ",
                   declared.full_name(), ", not a ", given.full_name()));
}

absl::Status CheckMessage(const MethodDescriptor* method,
                          std::string_view what,
                          const Descriptor& declared,
                          const Message* given) {
  if (given == nullptr) {
    return absl::InvalidArgumentError(
        absl::StrCat("the ", what, " of ", method->full_name(), " is null"));
  }
  return CheckType(method, what, declared, *given->GetDescriptor());
}

absl::StatusOr<const MethodDescriptor*> CheckStream(
    const MethodDescriptor* method,
    MethodKind kind,
    std::string_view what,
    const Descriptor& message) {
  absl::Status status = CheckKind(method, kind);
  if (status.ok()) {
    status = CheckType(method, what, *method->output_type(), message);
  }
  if (!status.ok()) {
    return status;
  }
  return method;
}

}  // namespace

std::string NameOf(const MethodDescriptor* method) {
  return std::string(method == nullptr ? "a null method" : method->full_name());
}

absl::Status CheckCall(const MethodDescriptor* method,
                       const Message* request,
                       const Message* response) {
  absl::Status status = CheckKind(method, MethodKind::kUnary);
  if (status.ok()) {
    status = CheckMessage(method, "request", *method->input_type(), request);
  }
  if (status.ok()) {
    status = CheckMessage(method, "response", *method->output_type(), response);
  }
  return status;
}

bool HasClassOfItsOwn(const Message& message) {
  const Message* generated =
      google::protobuf::MessageFactory::generated_factory()->GetPrototype(
          message.GetDescriptor());
  return generated != nullptr &&
         VirtualTableOf(*generated) == VirtualTableOf(message);
}

absl::StatusOr<const MethodDescriptor*> CheckEventMethod(
    const MethodDescriptor* method,
    const Descriptor& event) {
  return CheckStream(method, MethodKind::kEventStream, "event", event);
}

absl::StatusOr<const MethodDescriptor*> CheckCallbackMethod(
    const MethodDescriptor* method,
    const Descriptor& message) {
  return CheckStream(method, MethodKind::kCallbackStream, "message", message);
}

}  // namespace rpc::transport
