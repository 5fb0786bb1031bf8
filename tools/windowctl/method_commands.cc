#include "tools/windowctl/method_commands.h"

#include <google/protobuf/message.h>

#include <cstdint>
#include <memory>
#include <string>
#include <utility>

#include "absl/strings/ascii.h"
#include "absl/strings/numbers.h"
#include "absl/strings/str_cat.h"
#include "browser_id.pb.h"
#include "core/common/rpc/stream/method_kind.h"
#include "rpc/browser/browser_window.pb.h"
#include "tools/rpcctl/commands.h"
#include "tools/rpcctl/declaration.h"
#include "tools/rpcctl/fields.h"
#include "tools/rpcctl/json.h"
#include "tools/rpcctl/session.h"
#include "tools/windowctl/contract.h"

namespace windowctl {
namespace {

using google::protobuf::Descriptor;
using google::protobuf::Message;
using google::protobuf::MethodDescriptor;
using google::protobuf::ServiceDescriptor;

std::vector<const MethodDescriptor*> UnaryMethods(
    const ServiceDescriptor& service) {
  std::vector<const MethodDescriptor*> methods;
  for (int i = 0; i < service.method_count(); ++i) {
    if (torvane::KindOf(*service.method(i)) == torvane::MethodKind::kUnary)
      methods.push_back(service.method(i));
  }
  return methods;
}

// "SetTitle" becomes "set-title".
std::string CommandName(const MethodDescriptor& method) {
  std::string name;
  for (const char c : method.name()) {
    if (absl::ascii_isupper(static_cast<unsigned char>(c)) && !name.empty())
      name += '-';
    name += absl::ascii_tolower(static_cast<unsigned char>(c));
  }
  return name;
}

bool IsBrowserId(const Descriptor& type) {
  return type.full_name() == BrowserId::descriptor()->full_name();
}

// The field by whose name the window's id is set: all requests of the contract
// name a window.
std::string IdField(const Descriptor& request) {
  return IsBrowserId(request) ? "value" : "browser_id.value";
}

// The first sentence of a comment, as a summary begins and ends.
std::string SummaryOf(const std::string& comment) {
  std::string summary = comment.substr(0, comment.find(". "));
  summary = summary.substr(0, summary.find('\n'));
  if (!summary.empty() && summary.back() == '.')
    summary.pop_back();
  if (!summary.empty()) {
    summary[0] = absl::ascii_tolower(static_cast<unsigned char>(summary[0]));
  }
  return summary;
}

cli::CommandDescription DescribeCommand(const MethodDescriptor& method) {
  const std::string comment = rpcctl::CommentOf(method);
  const Descriptor& request = *method.input_type();
  const bool has_fields = !IsBrowserId(request);
  std::string details = comment;
  if (has_fields) {
    absl::StrAppend(&details, "\n\nFields of ", request.full_name(), ":\n\n",
                    rpcctl::FieldsOf(request));
    details.pop_back();
  }
  return {
      .name = CommandName(method),
      .arguments = has_fields ? "ID FIELD=VALUE..." : "ID",
      .summary = SummaryOf(comment),
      .details = std::move(details),
  };
}

rpcctl::ExitCode RunMethod(rpcctl::Session& session,
                           const MethodDescriptor& method,
                           const rpcctl::Arguments& arguments) {
  const std::string name = CommandName(method);
  int64_t id;
  if (arguments.empty()) {
    return rpcctl::Fail(rpcctl::kUsage,
                        absl::StrCat("'", name, "' takes a window's id."));
  }
  if (!absl::SimpleAtoi(arguments[0], &id)) {
    return rpcctl::Fail(
        rpcctl::kUsage,
        absl::StrCat("'", arguments[0], "' is not a window's id."));
  }
  if (const auto fault = session.LoadContract(); fault != rpcctl::kSuccess)
    return fault;
  const std::unique_ptr<Message> request =
      session.NewMessage(method.input_type());
  rpcctl::Arguments fields = arguments;
  fields[0] = absl::StrCat(IdField(*method.input_type()), "=", id);
  if (absl::Status fault = rpcctl::SetFields(fields, request.get());
      !fault.ok()) {
    return rpcctl::Fail(rpcctl::kUsage, fault.message());
  }
  return rpcctl::CallMethod(session, method, *request,
                            [](const Message& response) {
                              // An empty message says no more than that the
                              // call has succeeded.
                              if (response.GetDescriptor()->field_count() > 0)
                                rpcctl::PrintLine(rpcctl::ToJson(response));
                            });
}

}  // namespace

std::vector<cli::CommandDescription> DescribeMethodCommands() {
  const ServiceDescriptor& service = *CommentedDeclarations().FindServiceByName(
      rpc::BrowserWindow::descriptor()->full_name());
  std::vector<cli::CommandDescription> commands;
  for (const MethodDescriptor* method : UnaryMethods(service))
    commands.push_back(DescribeCommand(*method));
  return commands;
}

std::vector<rpcctl::Command> MethodCommands() {
  std::vector<rpcctl::Command> commands;
  for (const MethodDescriptor* method :
       UnaryMethods(*rpc::BrowserWindow::descriptor())) {
    commands.push_back(
        {CommandName(*method), [method](rpcctl::Session& session,
                                        const rpcctl::Arguments& arguments) {
           return RunMethod(session, *method, arguments);
         }});
  }
  return commands;
}

}  // namespace windowctl
