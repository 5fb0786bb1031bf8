// A server's limits on the command line: a flag for each row of the limit
// table, named like it with dashes for underscores. A limit that is added to
// the table needs no line here.
//
//   rpc::serving::Limits limits;
//   cli::Flags flags;
//   cli::AddLimitFlags(flags, &limits);
//   ... flags.Parse(argc, argv) ...
//   absl::Status fault = cli::CheckLimits(limits);
//
// Ownership: the limits are the caller's and must outlive the flags.
//
// Sequence: any one at a time.
//
// Failure: INVALID_ARGUMENT with a text for the user.

#ifndef TOOLS_CLI_LIMIT_FLAGS_H_
#define TOOLS_CLI_LIMIT_FLAGS_H_

#include <string>

#include "absl/status/status.h"
#include "core/common/rpc/serving/limits.h"
#include "tools/cli/flags.h"

namespace cli {

void AddLimitFlags(Flags& flags, rpc::serving::Limits* limits);

// Checks, after parsing, that limits which are each within their range also go
// together: rpc::serving::Validate() in the user's words.
absl::Status CheckLimits(const rpc::serving::Limits& limits);

// What --help says of the flags: meaning, unit, range and default of each.
std::string LimitHelp();

}  // namespace cli

#endif  // TOOLS_CLI_LIMIT_FLAGS_H_
