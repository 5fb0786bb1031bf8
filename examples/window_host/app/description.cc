#include "examples/window_host/app/description.h"

#include "absl/strings/str_cat.h"
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
  cli::ProgramDescription program = DescribeHost("window_host", "3");
  program.summary = "serves the windows of a desktop in memory";
  return program;
}

cli::ProgramDescription DescribeHost(const std::string& name,
                                     const std::string& windows) {
  return {
      .name = name,
      .flags = {{"socket", "PATH",
                 "where to listen; default: "
                 "${XDG_RUNTIME_DIR:-/tmp/torvane-UID}/window_host.sock"},
                {"windows", "N",
                 absl::StrCat("how many windows to open, 0 to ",
                              kMaximumWindows, "; default: ", windows)},
                {"max-windows", "N",
                 absl::StrCat("how many windows may be open when a client "
                              "opens another one, 0 to ",
                              kMaximumWindows, "; default: ", kMaximumWindows)},
                {"answer-timeout", "SECONDS",
                 "how long a client may take to answer a question before the "
                 "host goes on without it; default: 5"},
                {"trace", "FILE",
                 "write calls, questions, events and connections there, as a "
                 "timeline for chrome://tracing and ui.perfetto.dev; up to 64 "
                 "MiB"},
                cli::HelpFlag(),
                cli::VersionFlag()},
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
