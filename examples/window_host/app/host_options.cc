#include "examples/window_host/app/host_options.h"

#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <utility>

#include "absl/strings/str_cat.h"
#include "absl/strings/str_replace.h"
#include "tools/cli/flags.h"
#include "tools/cli/limit_flags.h"
#include "tools/cli/line_writer.h"
#include "tools/cli/printable.h"

namespace window_host {
namespace {

constexpr int kMaximumWindows = 1000;

}  // namespace

std::optional<int> ReadCommandLine(int argc,
                                   const char* const* argv,
                                   const char* help,
                                   HostOptions* options) {
  bool wants_help = false;
  cli::Flags flags;
  flags.AddSwitch("help", &wants_help);
  flags.AddText("socket", &options->socket);
  flags.AddInteger("windows", 0, kMaximumWindows, &options->windows);
  flags.AddSize("max-windows", 0, kMaximumWindows,
                &options->directory.max_windows);
  flags.AddSeconds("answer-timeout", &options->answer_timeout);
  cli::AddLimitFlags(flags, &options->limits);
  auto arguments = flags.Parse(argc, argv);
  if (!arguments.ok()) {
    return Fail(*options, kWrongUsage,
                absl::StrCat(arguments.status().message(), " '",
                             options->program, " --help' says more."));
  }
  if (wants_help) {
    std::printf("%s",
                absl::StrReplaceAll(help, {{"%s", cli::LimitHelp()}}).c_str());
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
