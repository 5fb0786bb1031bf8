// A command for each unary method of the contract, made of its descriptor:
//
//   windowctl maximize 1
//   windowctl set-bounds 1 bounds.x=0 bounds.width=800
//
// Its name is that of the method in lower case with dashes. The window's id
// stands for the request, if that is a BrowserId, or for its field browser_id;
// the other fields follow as tools/rpcctl/fields.h reads them.
//
// Ownership: what is returned is the caller's. Sequence: that of the session.
// Failure: commands print what is wrong, as in tools/rpcctl/commands.h.

#ifndef TOOLS_WINDOWCTL_METHOD_COMMANDS_H_
#define TOOLS_WINDOWCTL_METHOD_COMMANDS_H_

#include <vector>

#include "tools/cli/program_description.h"
#include "tools/rpcctl/program.h"

namespace windowctl {

// In the order of the contract, each with the comment of its method.
std::vector<cli::CommandDescription> DescribeMethodCommands();

// The same commands, to be run.
std::vector<rpcctl::Command> MethodCommands();

}  // namespace windowctl

#endif  // TOOLS_WINDOWCTL_METHOD_COMMANDS_H_
