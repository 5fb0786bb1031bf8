// The commands of windowctl that are short forms of those in tools/rpcctl: they
// know the contract, and windows go by their ids. The others, 'call' and
// 'status', are the same in both programs.

#ifndef TOOLS_WINDOWCTL_COMMANDS_H_
#define TOOLS_WINDOWCTL_COMMANDS_H_

#include "tools/rpcctl/commands.h"
#include "tools/rpcctl/session.h"

namespace windowctl {

// methods
rpcctl::ExitCode Methods(rpcctl::Session& session,
                         const rpcctl::Arguments& arguments);

// watch ID...
rpcctl::ExitCode Watch(rpcctl::Session& session,
                       const rpcctl::Arguments& arguments);

// answer METHOD ID...
rpcctl::ExitCode Answer(rpcctl::Session& session,
                        const rpcctl::Arguments& arguments);

}  // namespace windowctl

#endif  // TOOLS_WINDOWCTL_COMMANDS_H_
