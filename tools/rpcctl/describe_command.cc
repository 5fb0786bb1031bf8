#include <google/protobuf/descriptor.h>

#include <cstdio>
#include <string>
#include <vector>

#include "absl/strings/str_cat.h"
#include "tools/cli/printable.h"
#include "tools/rpcctl/commands.h"
#include "tools/rpcctl/declaration.h"
#include "tools/rpcctl/method_table.h"
#include "tools/rpcctl/session.h"

namespace rpcctl {
namespace {

using google::protobuf::DescriptorPool;
using google::protobuf::ServiceDescriptor;

// As in a proto file. Empty if nothing else than a method has that name.
std::string ProtoText(const DescriptorPool& pool, const std::string& name) {
  if (const auto* service = pool.FindServiceByName(name))
    return service->DebugString();
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
                "'describe' takes a method, or the full name of a service, "
                "message or enum.");
  }
  if (ExitCode fault = session.LoadContract(); fault != kSuccess)
    return fault;
  const std::string& name = arguments[0];
  std::string text = ProtoText(*session.contract().pool, name);
  if (text.empty()) {
    const DescriptorPool& pool = session.declarations();
    std::vector<const ServiceDescriptor*> services;
    for (const ServiceDescriptor* service : session.contract().services)
      services.push_back(pool.FindServiceByName(service->full_name()));
    const auto method = FindAnyMethod(services, name, session.program().forms);
    if (absl::IsNotFound(method.status())) {
      return Fail(kUsage, absl::StrCat(session.program().files_name,
                                       " declare no ", name, "."));
    }
    if (!method.ok())
      return Fail(kUsage, method.status().message());
    text = Declaration(**method);
  }
  std::fputs(cli::PrintableLines(text).c_str(), stdout);
  return kSuccess;
}

}  // namespace rpcctl
