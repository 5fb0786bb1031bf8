#include "examples/window_host/app/host_options.h"

#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <utility>

#include "absl/strings/str_cat.h"
#include "tools/cli/flags.h"
#include "tools/cli/limit_flags.h"
#include "tools/cli/line_writer.h"
#include "tools/cli/printable.h"

namespace window_host {
namespace {

constexpr int kMaximumWindows = 1000;

}  // namespace

std::vector<cli::FlagDescription> DescribeHostFlags(int windows) {
  return {
      {"socket", "PATH",
       "where to listen; default: "
       "${XDG_RUNTIME_DIR:-/tmp/torvane-UID}/window_host.sock"},
      {"windows", "N",
       absl::StrCat("how many windows to open, 0 to ", kMaximumWindows,
                    "; default: ", windows)},
      {"max-windows", "N",
       absl::StrCat("how many windows may be open when a client opens "
                    "another one, 0 to ",
                    kMaximumWindows, "; default: ", kMaximumWindows)},
      {"answer-timeout", "SECONDS",
       "how long a client may take to answer a question before the host "
       "goes on without it; default: 5"},
      {"trace", "FILE",
       "write calls, questions, events and connections there, as a timeline "
       "for chrome://tracing and ui.perfetto.dev; up to 64 MiB"},
      cli::HelpFlag(),
      cli::VersionFlag()};
}

std::optional<int> ReadCommandLine(const cli::ProgramDescription& program,
                                   int argc,
                                   const char* const* argv,
                                   HostOptions* options) {
  options->program = program.name;
  bool help = false;
  bool version = false;
  cli::Flags flags;
  flags.AddSwitch("help", &help);
  flags.AddSwitch("version", &version);
  flags.AddText("socket", &options->socket);
  flags.AddInteger("windows", 0, kMaximumWindows, &options->windows);
  flags.AddSize("max-windows", 0, kMaximumWindows,
                &options->directory.max_windows);
  flags.AddSeconds("answer-timeout", &options->answer_timeout);
  flags.AddText("trace", &options->trace);
  cli::AddLimitFlags(flags, &options->limits);
  auto arguments = flags.Parse(argc, argv);
  if (!arguments.ok()) {
    return Fail(*options, kWrongUsage,
                absl::StrCat(arguments.status().message(), " '",
                             options->program, " --help' says more."));
  }
  if (help || version) {
    std::fputs((help ? cli::Help(program) : cli::VersionLine(program)).c_str(),
               stdout);
    return EXIT_SUCCESS;
  }
  if (!arguments->empty() && !options->takes_arguments) {
    return Fail(*options, kWrongUsage,
                absl::StrCat("There are only flags. '", options->program,
                             " --help' lists them."));
  }
  if (absl::Status fault = cli::CheckLimits(options->limits); !fault.ok())
    return Fail(*options, kWrongUsage, fault.message());
  options->arguments = *std::move(arguments);
  return std::nullopt;
}

int Fail(const HostOptions& options, int exit_code, std::string_view text) {
  cli::LineWriter(STDERR_FILENO, "line")
      .Write(cli::PrintableLines(absl::StrCat(options.program, ": ", text)));
  return exit_code;
}

}  // namespace window_host
