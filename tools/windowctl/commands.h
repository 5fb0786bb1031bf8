// The commands of windowctl that know the contract: windows go by their ids.
// 'describe', 'call' and 'status' are the same in rpcctl, and commands that are
// named after methods are in method_commands.h.

#ifndef TOOLS_WINDOWCTL_COMMANDS_H_
#define TOOLS_WINDOWCTL_COMMANDS_H_

#include "tools/rpcctl/commands.h"
#include "tools/rpcctl/session.h"

namespace windowctl {

// list
rpcctl::ExitCode List(rpcctl::Session& session,
                      const rpcctl::Arguments& arguments);

// open [URL] [FIELD=VALUE...]
rpcctl::ExitCode Open(rpcctl::Session& session,
                      const rpcctl::Arguments& arguments);

// methods
rpcctl::ExitCode Methods(rpcctl::Session& session,
                         const rpcctl::Arguments& arguments);

// watch ID..., or watch --all
rpcctl::ExitCode Watch(rpcctl::Session& session,
                       const rpcctl::Arguments& arguments);

// answer METHOD ID...
rpcctl::ExitCode Answer(rpcctl::Session& session,
                        const rpcctl::Arguments& arguments);

}  // namespace windowctl

#endif  // TOOLS_WINDOWCTL_COMMANDS_H_
