// Formats a server's status for the terminal.

#ifndef TOOLS_RPCCTL_STATUS_TEXT_H_
#define TOOLS_RPCCTL_STATUS_TEXT_H_

#include <string>

#include "rpc/status/server_status.pb.h"

namespace rpcctl {

// Aligned tables of connections, of pending questions if there are any, and of
// refusals by limit. Any thread may call it; it cannot fail.
std::string StatusText(const rpc::status::StatusReport& report);

}  // namespace rpcctl

#endif  // TOOLS_RPCCTL_STATUS_TEXT_H_
