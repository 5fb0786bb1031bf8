#include <cstdio>

#include "core/common/rpc/transport/client_controller.h"
#include "rpc/status/server_status.pb.h"
#include "tools/windowctl/commands.h"
#include "tools/windowctl/connect.h"
#include "tools/windowctl/json.h"
#include "tools/windowctl/status_text.h"

namespace windowctl {

ExitCode Status(const Options& options, const Arguments& arguments) {
  if (!arguments.empty())
    return Fail(kUsage, "'status' takes no arguments.");
  rpc::loop::Loop loop;
  const Deadline deadline(loop, options);
  const auto client = Connect(loop, options);
  if (!client.ok())
    return Fail(kNoConnection, client.status().message());
  rpc::transport::ClientController controller;
  controller.set_timeout(deadline.Left());
  rpc::status::StatusReport report;
  rpc::status::ServerStatus_Stub(client->get())
      .GetStatus(&controller, &rpc::status::StatusRequest::default_instance(),
                 &report, nullptr);
  if (!controller.status().ok())
    return FailOn(**client, controller.status());
  if (options.json)
    PrintLine(ToJson(report));
  else
    std::fputs(StatusText(report).c_str(), stdout);
  return kSuccess;
}

}  // namespace windowctl
