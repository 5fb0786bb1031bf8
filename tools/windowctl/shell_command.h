// Runs a command and gets what it prints, without holding up a loop.
//
//   RunShellCommand(loop, "jq .question", "{...}\n",
//                   [](const absl::StatusOr<std::string>& output) {...});
//
// Ownership: everything is copied. A command that still runs when the loop goes
// is left to itself.
//
// Sequence: the loop's thread; the function runs on a later turn of the loop.
//
// Failure: the status says when the command could not be started, or with which
// code or signal it ended. Its standard error is the process's own.

#ifndef TOOLS_WINDOWCTL_SHELL_COMMAND_H_
#define TOOLS_WINDOWCTL_SHELL_COMMAND_H_

#include <functional>
#include <string>

#include "absl/status/statusor.h"
#include "core/common/rpc/transport/asio.h"

namespace windowctl {

using ShellOutput = std::function<void(const absl::StatusOr<std::string>&)>;

// `input` is the command's standard input.
void RunShellCommand(asio::io_context& loop,
                     const std::string& command,
                     const std::string& input,
                     const ShellOutput& then);

}  // namespace windowctl

#endif  // TOOLS_WINDOWCTL_SHELL_COMMAND_H_
