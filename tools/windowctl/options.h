// What the flags of windowctl say.

#ifndef TOOLS_WINDOWCTL_OPTIONS_H_
#define TOOLS_WINDOWCTL_OPTIONS_H_

#include <chrono>
#include <optional>
#include <string>

#include "tools/cli/socket_path.h"

namespace windowctl {

struct Options {
  std::string socket = cli::DefaultSocketPath();

  // How long a call may take, of a stream those that precede it. The host's own
  // limit for asking somebody whether a window may close is shorter, so that
  // its answer comes first.
  std::chrono::milliseconds timeout{10'000};

  // How 'answer' finds its answers; without both, from standard input.
  std::optional<std::string> with;
  std::optional<std::string> exec;

  // Whether 'status' is for programs to read.
  bool json = false;
};

}  // namespace windowctl

#endif  // TOOLS_WINDOWCTL_OPTIONS_H_
