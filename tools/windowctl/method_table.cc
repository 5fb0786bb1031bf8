#include "tools/windowctl/method_table.h"

#include <algorithm>
#include <vector>

#include "absl/strings/str_cat.h"
#include "absl/strings/str_format.h"
#include "tools/cli/nearest_name.h"

namespace windowctl {
namespace {

using google::protobuf::MethodDescriptor;
using google::protobuf::ServiceDescriptor;

const char* NameOf(MethodKind kind) {
  static constexpr const char* kNames[] = {"unary", "event stream",
                                           "callback stream"};
  return kNames[static_cast<size_t>(kind)];
}

std::string CommandFor(const MethodDescriptor& method) {
  const MethodKind kind = KindOf(method);
  if (kind == MethodKind::kUnary)
    return absl::StrCat("call ", method.name(), " JSON");
  if (kind == MethodKind::kEventStream)
    return "watch ID...";
  return absl::StrCat("answer ", method.name(), " ID...");
}

}  // namespace

MethodKind KindOf(const MethodDescriptor& method) {
  if (!method.client_streaming() && !method.server_streaming())
    return MethodKind::kUnary;
  return method.input_type() == method.output_type()
             ? MethodKind::kCallbackStream
             : MethodKind::kEventStream;
}

std::string ListMethods(const ServiceDescriptor& service) {
  size_t name_width = 0;
  size_t request_width = 0;
  size_t response_width = 0;
  for (int i = 0; i < service.method_count(); ++i) {
    const MethodDescriptor& method = *service.method(i);
    name_width = std::max(name_width, method.name().size());
    request_width =
        std::max(request_width, method.input_type()->full_name().size());
    response_width =
        std::max(response_width, method.output_type()->full_name().size());
  }

  std::string list;
  for (int i = 0; i < service.method_count(); ++i) {
    const MethodDescriptor& method = *service.method(i);
    absl::StrAppendFormat(
        &list, "%-*s  %-*s  %-*s  %s\n", name_width, method.name(),
        request_width, method.input_type()->full_name(), response_width,
        method.output_type()->full_name(), NameOf(KindOf(method)));
  }
  return list;
}

absl::StatusOr<const MethodDescriptor*> FindMethod(
    const ServiceDescriptor& service,
    std::string_view name,
    MethodKind kind) {
  std::vector<std::string> known;
  for (int i = 0; i < service.method_count(); ++i) {
    const MethodDescriptor& method = *service.method(i);
    known.push_back(method.name());
    if (method.name() != name)
      continue;
    if (KindOf(method) == kind)
      return &method;
    return absl::InvalidArgumentError(
        absl::StrFormat("%s is of the kind '%s': use 'windowctl %s'.", name,
                        NameOf(KindOf(method)), CommandFor(method)));
  }
  return absl::InvalidArgumentError(absl::StrCat(
      "There is no method ", name, ".", cli::DidYouMean(name, known),
      " 'windowctl methods' lists them all."));
}

}  // namespace windowctl
