#include "tools/windowctl/connect.h"

#include <string_view>
#include <utility>

#include "absl/strings/str_cat.h"
#include "tools/cli/printable.h"
#include "tools/cli/socket_path.h"
#include "tools/windowctl/commands.h"

namespace windowctl {
namespace {

using rpc::transport::Client;

absl::Status NoConnection(const absl::Status& why, std::string_view hint) {
  return absl::UnavailableError(
      absl::StrCat("No connection: ", cli::Printable(why.message()), hint));
}

}  // namespace

rpc::transport::ClientOptions ClientOptionsFor(const Options& options) {
  rpc::transport::ClientOptions client_options;
  client_options.name = "windowctl";
  client_options.limits.handshake_timeout = options.timeout;
  return client_options;
}

absl::StatusOr<std::unique_ptr<Client>> Connect(rpc::loop::Loop& loop,
                                                const Options& options) {
  if (absl::Status folder = cli::CheckSocketFolder(options.socket);
      !folder.ok()) {
    return folder;
  }
  auto connected = Client::OpenSocket(options.socket);
  if (!connected.ok()) {
    return NoConnection(
        connected.status(),
        absl::IsUnavailable(connected.status())
            ? "\nIs window_host running, with the same --socket?"
            : "");
  }
  auto client =
      Client::Adopt(loop, *std::move(connected), ClientOptionsFor(options));
  // Without the hint to start a host: there is one, and it has said why it does
  // not serve us.
  if (!client.ok())
    return NoConnection(client.status(), "");
  return client;
}

// A lost connection ends calls and streams with the same status as the client.
ExitCode FailOn(const Client& client, const absl::Status& status) {
  return Fail(status == client.status() ? kNoConnection : kCallFailed, status);
}

}  // namespace windowctl
