#include <cstdio>

#include "rpc/status/server_status.pb.h"
#include "tools/rpcctl/commands.h"
#include "tools/rpcctl/json.h"
#include "tools/rpcctl/session.h"
#include "tools/rpcctl/status_text.h"

namespace rpcctl {

ExitCode Status(Session& session, const Arguments& arguments) {
  if (!arguments.empty())
    return Fail(kUsage, "'status' takes no arguments.");
  if (ExitCode fault = session.Connect(); fault != kSuccess)
    return fault;
  rpc::status::StatusReport report;
  const absl::Status status = session.Call(
      rpc::status::ServerStatus::descriptor()->FindMethodByName("GetStatus"),
      rpc::status::StatusRequest::default_instance(), &report);
  if (!status.ok())
    return FailOn(session.client(), status);
  if (session.options().json)
    PrintLine(ToJson(report));
  else
    std::fputs(StatusText(report).c_str(), stdout);
  return kSuccess;
}

}  // namespace rpcctl
