// The values of the flags of rpcctl and windowctl.

#ifndef TOOLS_RPCCTL_OPTIONS_H_
#define TOOLS_RPCCTL_OPTIONS_H_

#include <chrono>
#include <optional>
#include <string>

namespace rpcctl {

struct Options {
  std::string socket;

  // How long connecting and the calls after it may take together, and likewise
  // connecting and subscribing before a stream waits for messages. It is longer
  // than the host of windows waits for a client's answer whether a window may
  // close, so the host's reply to Close comes first.
  std::chrono::milliseconds timeout{10'000};

  // Where 'answer' takes its answers from; if neither is set, standard input.
  std::optional<std::string> with;
  std::optional<std::string> exec;

  // Whether 'watch' goes on when the host has gone and come again.
  bool reconnect = false;

  // Whether 'watch' says when it has got each event.
  bool timestamps = false;

  // Whether 'status' prints JSON, and 'list' of windowctl.
  bool json = false;

  // Whether 'status' prints figures for Prometheus, and whether it goes on.
  bool prometheus = false;
  bool watch = false;

  // Whether 'watch' of windowctl is about all windows.
  bool all = false;
};

}  // namespace rpcctl

#endif  // TOOLS_RPCCTL_OPTIONS_H_
