// Connects to the host, and explains to the user why that or a call has failed.
//
// Ownership: the client is the caller's. Sequence: that of the loop.

#ifndef TOOLS_WINDOWCTL_CONNECT_H_
#define TOOLS_WINDOWCTL_CONNECT_H_

#include <memory>
#include <string>

#include "absl/status/status.h"
#include "absl/status/statusor.h"
#include "core/common/rpc/loop/loop.h"
#include "core/common/rpc/transport/client.h"
#include "tools/windowctl/exit_code.h"

namespace windowctl {

// Blocks until connected. The error's text is for the user.
absl::StatusOr<std::unique_ptr<rpc::transport::Client>> Connect(
    rpc::loop::Loop& loop,
    const std::string& socket);

// Prints why a call or a stream of `client` has failed. Returns kNoConnection
// if that was because the connection is lost, otherwise kCallFailed.
ExitCode FailOn(const rpc::transport::Client& client,
                const absl::Status& status);

}  // namespace windowctl

#endif  // TOOLS_WINDOWCTL_CONNECT_H_
