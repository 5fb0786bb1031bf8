// The command lines of the commands that rpcctl and windowctl share, and the
// whole one of rpcctl.
//
// Ownership: what is returned is the caller's. Sequence: any one.
// Failure: none.

#ifndef TOOLS_RPCCTL_DESCRIPTION_H_
#define TOOLS_RPCCTL_DESCRIPTION_H_

#include <string>
#include <vector>

#include "tools/cli/program_description.h"

namespace rpcctl {

// Without examples, which have methods of some service.
cli::CommandDescription DescribeDescribe();
cli::CommandDescription DescribeCall();
cli::CommandDescription DescribeStatus();

cli::FlagDescription TimeoutFlag();
cli::FlagDescription TimestampsFlag();
// For a command that prints `what` else.
cli::FlagDescription JsonFlag(const std::string& what);

// Of 'answer': --with and --exec, and how it goes about it.
std::vector<cli::FlagDescription> AnswerFlags();
std::string AnswerDetails();

std::vector<cli::ExitStatus> ExitStatuses();

cli::ProgramDescription DescribeRpcctl();

}  // namespace rpcctl

#endif  // TOOLS_RPCCTL_DESCRIPTION_H_
