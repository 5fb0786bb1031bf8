#include "tools/windowctl/connect.h"

#include "absl/strings/str_cat.h"
#include "tools/cli/socket_path.h"
#include "tools/windowctl/commands.h"

namespace windowctl {

absl::StatusOr<std::unique_ptr<rpc::transport::Client>> Connect(
    asio::io_context& loop,
    const std::string& socket) {
  if (absl::Status folder = cli::CheckSocketFolder(socket); !folder.ok())
    return folder;
  rpc::transport::ClientOptions options;
  options.name = "windowctl";
  auto client = rpc::transport::Client::Connect(loop, socket, options);
  if (client.ok())
    return client;
  return absl::UnavailableError(
      absl::StrCat("No connection: ", client.status().message(),
                   "\nIs window_host running, with the same --socket?"));
}

// What ended with its connection ended for the same reason.
ExitCode FailOn(const rpc::transport::Client& client,
                const absl::Status& status) {
  return Fail(status == client.status() ? kNoConnection : kCallFailed, status);
}

}  // namespace windowctl
