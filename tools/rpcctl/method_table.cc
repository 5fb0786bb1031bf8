#include "tools/rpcctl/method_table.h"

#include <optional>
#include <vector>

#include "absl/strings/match.h"
#include "absl/strings/str_cat.h"
#include "absl/strings/str_format.h"
#include "absl/strings/str_join.h"
#include "absl/strings/substitute.h"
#include "tools/cli/nearest_name.h"
#include "tools/rpcctl/text_table.h"

namespace rpcctl {
namespace {

using google::protobuf::MethodDescriptor;
using google::protobuf::ServiceDescriptor;
using torvane::MethodKind;

// The command that handles methods of that kind.
std::string Advice(std::optional<MethodKind> kind,
                   std::string_view method,
                   const CommandForms& forms) {
  if (!kind)
    return "no command can use it";
  const char* form = *kind == MethodKind::kUnary         ? forms.call
                     : *kind == MethodKind::kEventStream ? forms.watch
                                                         : forms.answer;
  return absl::StrCat("use '", absl::Substitute(form, method), "'");
}

// `method` if it is of that kind. `name` is what the user has called it.
absl::StatusOr<const MethodDescriptor*> CheckKind(
    const MethodDescriptor* method,
    std::string_view name,
    MethodKind wanted,
    const CommandForms& forms) {
  const std::optional<MethodKind> kind = torvane::KindOf(*method);
  if (kind == wanted)
    return method;
  return absl::InvalidArgumentError(
      absl::StrFormat("%s is of the kind '%s': %s.", name, KindName(kind),
                      Advice(kind, name, forms)));
}

std::string FullNames(const std::vector<const MethodDescriptor*>& methods) {
  return absl::StrJoin(methods, " or ",
                       [](std::string* out, const MethodDescriptor* method) {
                         out->append(method->full_name());
                       });
}

}  // namespace

const char* KindName(std::optional<MethodKind> kind) {
  if (kind == MethodKind::kUnary)
    return "unary";
  if (kind == MethodKind::kEventStream)
    return "event stream";
  if (kind == MethodKind::kCallbackStream)
    return "callback stream";
  return "stream";
}

std::string ListMethods(const ServiceDescriptor& service) {
  TextTable table(std::vector<TextTable::Column>(4));
  for (int i = 0; i < service.method_count(); ++i) {
    const MethodDescriptor& method = *service.method(i);
    table.AddRow({method.name(), method.input_type()->full_name(),
                  method.output_type()->full_name(),
                  KindName(torvane::KindOf(method))});
  }
  return table.ToString();
}

absl::StatusOr<const MethodDescriptor*> FindAnyMethod(
    const std::vector<const ServiceDescriptor*>& services,
    std::string_view name,
    const CommandForms& forms) {
  std::vector<std::string> known;
  std::vector<const MethodDescriptor*> found;
  for (const ServiceDescriptor* service : services) {
    for (int i = 0; i < service->method_count(); ++i) {
      const MethodDescriptor* method = service->method(i);
      if (method->full_name() == name)
        return method;
      if (absl::EndsWith(method->full_name(), absl::StrCat(".", name)))
        found.push_back(method);
      known.push_back(method->name());
    }
  }
  if (found.empty()) {
    return absl::NotFoundError(absl::StrCat("There is no method ", name, ".",
                                            cli::DidYouMean(name, known), " '",
                                            forms.list, "' lists them all."));
  }
  if (found.size() > 1) {
    return absl::InvalidArgumentError(
        absl::StrCat(name, " could be ", FullNames(found), "."));
  }
  return found[0];
}

absl::StatusOr<const MethodDescriptor*> FindMethod(
    const std::vector<const ServiceDescriptor*>& services,
    std::string_view name,
    MethodKind kind,
    const CommandForms& forms) {
  const auto method = FindAnyMethod(services, name, forms);
  if (!method.ok())
    return absl::InvalidArgumentError(method.status().message());
  return CheckKind(*method, name, kind, forms);
}

}  // namespace rpcctl
