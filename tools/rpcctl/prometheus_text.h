// Formats a server's status for Prometheus, in its text format
// (https://prometheus.io/docs/instrumenting/exposition_formats/), which the
// textfile collector of its node exporter reads, too.

#ifndef TOOLS_RPCCTL_PROMETHEUS_TEXT_H_
#define TOOLS_RPCCTL_PROMETHEUS_TEXT_H_

#include <string>

#include "rpc/status/server_status.pb.h"

namespace rpcctl {

// The figures of the whole server, each with a line that says what it is. None
// of them bears the name of a client or a window, of which there may be any
// number. Any thread may call it; it cannot fail.
std::string PrometheusText(const rpc::status::StatusReport& report);

}  // namespace rpcctl

#endif  // TOOLS_RPCCTL_PROMETHEUS_TEXT_H_
