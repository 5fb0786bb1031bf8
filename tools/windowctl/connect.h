// The connection to the host, and what to tell a person when there is none.

#ifndef TOOLS_WINDOWCTL_CONNECT_H_
#define TOOLS_WINDOWCTL_CONNECT_H_

#include <memory>
#include <string>

#include "absl/status/statusor.h"
#include "core/common/rpc/transport/asio.h"
#include "core/common/rpc/transport/client.h"

namespace windowctl {

// Blocks until connected. The error's text is for the user.
absl::StatusOr<std::unique_ptr<rpc::transport::Client>> Connect(
    asio::io_context& loop,
    const std::string& socket);

}  // namespace windowctl

#endif  // TOOLS_WINDOWCTL_CONNECT_H_
