#include <google/protobuf/message.h>

#include "absl/strings/str_cat.h"
#include "rpc/directory/window_directory.pb.h"
#include "tools/rpcctl/fields.h"
#include "tools/rpcctl/json.h"
#include "tools/windowctl/commands.h"

namespace windowctl {

rpcctl::ExitCode Open(rpcctl::Session& session,
                      const rpcctl::Arguments& arguments) {
  rpc::directory::OpenWindowRequest request;
  rpcctl::Arguments fields = arguments;
  // A URL begins with a scheme and a colon, so it is no FIELD=VALUE.
  if (!fields.empty() && !rpcctl::IsFieldWord(fields[0])) {
    fields[0] = absl::StrCat("url=", fields[0]);
  }
  if (absl::Status fault = rpcctl::SetFields(fields, &request); !fault.ok())
    return rpcctl::Fail(rpcctl::kUsage, fault.message());
  if (const auto fault = session.LoadContract(); fault != rpcctl::kSuccess)
    return fault;
  return rpcctl::CallMethod(
      session,
      *rpc::directory::WindowDirectory::descriptor()->FindMethodByName(
          "OpenWindow"),
      request, [&](const google::protobuf::Message& response) {
        const auto& window =
            static_cast<const rpc::directory::WindowInfo&>(response);
        rpcctl::PrintLine(session.options().json
                              ? rpcctl::ToJson(window)
                              : absl::StrCat(window.browser_id().value()));
      });
}

}  // namespace windowctl
