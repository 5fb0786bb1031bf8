// Flags for a server's limits: one for each row of the limit table, with the
// limit's name but dashes for underscores. A limit that is added to the table
// needs no line here.
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

#include <span>
#include <string_view>
#include <vector>

#include "absl/status/status.h"
#include "core/common/rpc/serving/limits.h"
#include "tools/cli/flags.h"
#include "tools/cli/program_description.h"

namespace cli {

// Names of limits, as in docs/reliability.md. None stand for all.
using LimitNames = std::span<const std::string_view>;

void AddLimitFlags(Flags& flags,
                   rpc::serving::Limits* limits,
                   LimitNames names = {});

// To be called after parsing: each limit is in its range then, and this checks
// that they also fit each other. As rpc::serving::Validate(), but the text
// names flags.
absl::Status CheckLimits(const rpc::serving::Limits& limits);

// Meaning, unit, range and default of each flag.
std::vector<FlagDescription> DescribeLimits(LimitNames names = {});

}  // namespace cli

#endif  // TOOLS_CLI_LIMIT_FLAGS_H_
