#include "tools/windowctl/method_table.h"

#include <optional>
#include <vector>

#include "absl/strings/str_cat.h"
#include "absl/strings/str_format.h"
#include "tools/cli/nearest_name.h"
#include "tools/windowctl/text_table.h"

namespace windowctl {
namespace {

using google::protobuf::MethodDescriptor;
using google::protobuf::ServiceDescriptor;
using torvane::MethodKind;

// What is printed for a kind of method, and the command that handles it.
struct KindText {
  const char* name;
  std::string advice;
};

KindText Describe(const MethodDescriptor& method) {
  const std::optional<MethodKind> kind = torvane::KindOf(method);
  const std::string& name = method.name();
  if (kind == MethodKind::kUnary)
    return {"unary", absl::StrCat("use 'windowctl call ", name, " JSON'")};
  if (kind == MethodKind::kEventStream)
    return {"event stream", "use 'windowctl watch ID...'"};
  if (kind == MethodKind::kCallbackStream) {
    return {"callback stream",
            absl::StrCat("use 'windowctl answer ", name, " ID...'")};
  }
  return {"stream", "no command can use it"};
}

}  // namespace

std::string ListMethods(const ServiceDescriptor& service) {
  TextTable table(std::vector<TextTable::Column>(4));
  for (int i = 0; i < service.method_count(); ++i) {
    const MethodDescriptor& method = *service.method(i);
    table.AddRow({method.name(), method.input_type()->full_name(),
                  method.output_type()->full_name(), Describe(method).name});
  }
  return table.ToString();
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
    if (torvane::KindOf(method) == kind)
      return &method;
    const auto [kind_name, advice] = Describe(method);
    return absl::InvalidArgumentError(absl::StrFormat(
        "%s is of the kind '%s': %s.", name, kind_name, advice));
  }
  return absl::InvalidArgumentError(absl::StrCat(
      "There is no method ", name, ".", cli::DidYouMean(name, known),
      " 'windowctl methods' lists them all."));
}

}  // namespace windowctl
