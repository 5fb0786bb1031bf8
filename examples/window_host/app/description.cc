#include "examples/window_host/app/description.h"

#include "examples/window_host/app/host_options.h"
#include "tools/cli/limit_flags.h"

namespace window_host {
namespace {

constexpr char kDetails[] =
    "On standard input a person can play the user; 'help' there says how. A "
    "line of more than 65536 bytes is not read.\n"
    "\n"
    "The host runs until SIGINT, SIGTERM, SIGQUIT or SIGHUP. It then closes "
    "the "
    "windows, says goodbye to its clients and removes its socket. A second "
    "signal ends it at once. Where SIGHUP is ignored at the start, as with "
    "nohup, it stays ignored.\n"
    "\n"
    "It records each call about windows, and what it has to refuse, on "
    "standard "
    "error. It never waits for somebody to read that or its standard output: "
    "what cannot be written is dropped, and the next line says how much that "
    "was. A line has at most 4096 bytes. Of each kind of warning at most 20 "
    "are "
    "written in a second.";

}  // namespace

cli::ProgramDescription DescribeWindowHost() {
  return {
      .name = "window_host",
      .summary = "serves the windows of a desktop in memory",
      .flags = DescribeHostFlags(kInitialWindows),
      .more_flags = {{"Limits, each named and counted by 'windowctl status' "
                      "when it bites",
                      cli::DescribeLimits()}},
      .details = kDetails,
      .exit_statuses = {{"0", "after a signal"},
                        {"1", "when it cannot listen"},
                        {"2", "wrong usage"},
                        {"128 and the signal's number",
                         "as a shell shows it, after a second signal"}},
  };
}

}  // namespace window_host
