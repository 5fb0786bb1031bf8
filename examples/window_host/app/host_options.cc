#include "examples/window_host/app/host_options.h"

#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <utility>

#include "absl/strings/str_cat.h"
#include "examples/window_host/app/description.h"
#include "tools/cli/limit_flags.h"
#include "tools/cli/line_writer.h"
#include "tools/cli/printable.h"

namespace window_host {
std::optional<int> ReadCommandLine(int argc,
                                   const char* const* argv,
                                   const cli::ProgramDescription& program,
                                   cli::Flags flags,
                                   HostOptions* options) {
  options->program = program.name;
  bool help = false;
  bool version = false;
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
  if (!arguments->empty() && program.arguments.empty()) {
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
