#include "tools/windowctl/connect.h"

#include "absl/strings/str_cat.h"
#include "tools/cli/socket_path.h"

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

}  // namespace windowctl
