// The transport's limits on the command line: a flag for each of limits.h, with
// dashes for underscores.
//
//   rpc::transport::Limits limits;
//   cli::Flags flags;
//   AddLimitFlags(flags, &limits);
//   ... flags.Parse(argc, argv) ...
//   absl::Status fault = CheckLimits(limits);
//
// Failure: INVALID_ARGUMENT with a text for the user.

#ifndef EXAMPLES_WINDOW_HOST_LIMIT_FLAGS_H_
#define EXAMPLES_WINDOW_HOST_LIMIT_FLAGS_H_

#include <string>

#include "absl/status/status.h"
#include "core/common/rpc/transport/limits.h"
#include "tools/cli/flags.h"

namespace window_host {

// `limits` must outlive the flags.
void AddLimitFlags(cli::Flags& flags, rpc::transport::Limits* limits);

// Whether limits that are each within their range make sense together.
absl::Status CheckLimits(const rpc::transport::Limits& limits);

// What --help says of the flags: meaning, unit, range and default of each.
std::string LimitHelp();

}  // namespace window_host

#endif  // EXAMPLES_WINDOW_HOST_LIMIT_FLAGS_H_
