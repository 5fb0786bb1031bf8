// The command line of rpc_gateway.

#ifndef TOOLS_RPC_GATEWAY_DESCRIPTION_H_
#define TOOLS_RPC_GATEWAY_DESCRIPTION_H_

#include <string_view>

#include "tools/cli/program_description.h"

namespace rpc_gateway {

// The limits that the gateway keeps itself.
inline constexpr std::string_view kLimits[] = {
    "max_connections",        "max_calls",       "max_streams",
    "max_client_frame_bytes", "max_frame_bytes", "max_outbox_bytes",
    "handshake_timeout"};

cli::ProgramDescription DescribeRpcGateway();

}  // namespace rpc_gateway

#endif  // TOOLS_RPC_GATEWAY_DESCRIPTION_H_
