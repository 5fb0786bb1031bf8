#include <google/protobuf/descriptor.h>

#include <cstdio>
#include <string>

#include "absl/strings/str_cat.h"
#include "tools/cli/printable.h"
#include "tools/rpcctl/commands.h"
#include "tools/rpcctl/session.h"

namespace rpcctl {
namespace {

// A method with its messages, since one who wants to call it needs those.
std::string Declaration(const google::protobuf::MethodDescriptor& method) {
  std::string text = method.DebugString();
  absl::StrAppend(&text, method.input_type()->DebugString());
  if (method.output_type() != method.input_type())
    absl::StrAppend(&text, method.output_type()->DebugString());
  return text;
}

// Empty if nothing has that name.
std::string Declaration(const google::protobuf::DescriptorPool& pool,
                        const std::string& name) {
  if (const auto* service = pool.FindServiceByName(name))
    return service->DebugString();
  if (const auto* method = pool.FindMethodByName(name))
    return Declaration(*method);
  if (const auto* message = pool.FindMessageTypeByName(name))
    return message->DebugString();
  if (const auto* enumeration = pool.FindEnumTypeByName(name))
    return enumeration->DebugString();
  return "";
}

}  // namespace

ExitCode Describe(Session& session, const Arguments& arguments) {
  if (arguments.size() != 1) {
    return Fail(kUsage,
                "'describe' takes the full name of a service, method, message "
                "or enum.");
  }
  if (ExitCode fault = session.LoadContract(); fault != kSuccess)
    return fault;
  const std::string text = Declaration(*session.contract().pool, arguments[0]);
  if (text.empty()) {
    return Fail(kUsage, absl::StrCat("The server's files declare no ",
                                     arguments[0], "."));
  }
  std::fputs(cli::PrintableLines(text).c_str(), stdout);
  return kSuccess;
}

}  // namespace rpcctl
