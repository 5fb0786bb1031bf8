// Runs a command with the shell and gets what it prints, without blocking the
// loop.
//
//   ShellCommand command(loop, "jq .question", "{...}\n",
//                        [](const absl::StatusOr<std::string>& output) {...});
//
// Ownership: the caller's; the loop must outlive it. If it is destroyed while
// the command runs, the command runs on, and the handler is not called.
//
// Sequence: that of the loop. The handler runs once, on a later turn, and may
// destroy the object.
//
// Failure: the handler gets a status that says that the command could not be
// started, or with which code or signal it ended. The command inherits standard
// error.

#ifndef TOOLS_RPCCTL_SHELL_COMMAND_H_
#define TOOLS_RPCCTL_SHELL_COMMAND_H_

#include <sys/types.h>

#include <functional>
#include <memory>
#include <optional>
#include <string>

#include "absl/status/status.h"
#include "absl/status/statusor.h"
#include "core/common/rpc/loop/loop.h"
#include "core/common/rpc/loop/readable_watch.h"
#include "core/common/rpc/loop/scoped_fd.h"

namespace rpcctl {

class ShellCommand {
 public:
  // Gets what the command has printed.
  using Handler = std::function<void(const absl::StatusOr<std::string>&)>;

  // `input` is the command's standard input.
  ShellCommand(rpc::loop::Loop& loop,
               const std::string& command,
               const std::string& input,
               Handler on_end);
  ShellCommand(const ShellCommand&) = delete;
  ShellCommand& operator=(const ShellCommand&) = delete;
  ~ShellCommand() = default;

 private:
  absl::Status Start(const std::string& command, const std::string& input);
  void Read();
  void Finish();
  // May destroy this.
  void End(const absl::StatusOr<std::string>& output);

  rpc::loop::Loop& loop_;
  Handler on_end_;
  pid_t pid_ = 0;
  std::string text_;
  rpc::loop::ScopedFd output_;
  // A pidfd, which becomes readable when the process ends.
  rpc::loop::ScopedFd process_;
  // Watches the output until that ends, then the process. Declared after both,
  // since it must be destroyed before them.
  std::optional<rpc::loop::ReadableWatch> watch_;
  // Reports on a later turn that the command could not be started.
  std::unique_ptr<rpc::loop::Timer> failure_;
};

}  // namespace rpcctl

#endif  // TOOLS_RPCCTL_SHELL_COMMAND_H_
