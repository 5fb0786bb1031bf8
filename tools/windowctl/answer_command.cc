#include <google/protobuf/message.h>

#include <string>

#include "absl/strings/str_cat.h"
#include "tools/windowctl/commands.h"
#include "tools/windowctl/windows.h"

namespace windowctl {
namespace {

// For a prompt. All methods of the contract have this type of key.
std::string NameOf(const google::protobuf::Message& key) {
  return absl::StrCat("window ", static_cast<const BrowserId&>(key).value());
}

}  // namespace

rpcctl::ExitCode Answer(rpcctl::Session& session,
                        const rpcctl::Arguments& arguments) {
  if (arguments.empty()) {
    return rpcctl::Fail(rpcctl::kUsage,
                        "'answer' takes a method and the ids of windows.");
  }
  const google::protobuf::MethodDescriptor* method;
  if (const rpcctl::ExitCode fault = session.FindMethod(
          arguments[0], torvane::MethodKind::kCallbackStream, &method);
      fault != rpcctl::kSuccess) {
    return fault;
  }
  const auto windows = ParseWindows({arguments.begin() + 1, arguments.end()});
  if (!windows.ok())
    return rpcctl::Fail(rpcctl::kUsage, windows.status().message());
  return rpcctl::AnswerQuestions(session, method, KeysOf(*windows), NameOf,
                                 AwaitWindows(*windows));
}

}  // namespace windowctl
