// Drives the windows of a running host from the command line.

#include <cstdio>
#include <string>
#include <vector>

#include "absl/strings/str_cat.h"
#include "tools/cli/flags.h"
#include "tools/cli/nearest_name.h"
#include "tools/windowctl/commands.h"

namespace windowctl {
namespace {

constexpr char kHelp[] =
    R"(windowctl: drives the windows of a running window_host.

  windowctl methods                  lists all methods of the service
  windowctl call METHOD JSON         calls a unary method, prints its response
  windowctl watch ID...              prints each event about the windows as a
                                     line of JSON, until interrupted
  windowctl answer METHOD ID...      answers the host's questions about the
                                     windows, until interrupted

Flags:
  --socket PATH      where the host listens; default:
                     ${XDG_RUNTIME_DIR:-/tmp/torvane-UID}/window_host.sock
  --timeout SECONDS  how long 'call' waits for the response; default: 10
  --with JSON        'answer': the same answer to every question
  --exec COMMAND     'answer': runs COMMAND with the shell for each question,
                     which stands on its standard input; what it prints is the
                     answer
  --help             prints this

Without --with and --exec, 'answer' prints each question as a line of JSON and
reads the answer to it as the next line of standard input.

Examples:
  windowctl call Maximize '{"value": 1}'
  windowctl call SetTitle '{"browserId": {"value": 1}, "title": "Inbox"}'
  windowctl answer OnCloseWindow 1 --with '{"allowed": false}'

Exit status: 0 success, 1 the call failed, 2 wrong usage, 3 no connection.
)";

struct Command {
  const char* name;
  ExitCode (*run)(const Options&, const Arguments&);
};

constexpr Command kCommands[] = {{"methods", Methods},
                                 {"call", Call},
                                 {"watch", Watch},
                                 {"answer", Answer}};

ExitCode FailUsage(std::string_view text) {
  return Fail(kUsage, absl::StrCat(text, " 'windowctl --help' says more."));
}

ExitCode RunCommand(const Options& options,
                    const std::string& name,
                    const Arguments& arguments) {
  std::vector<std::string> names;
  for (const Command& command : kCommands) {
    if (name == command.name)
      return command.run(options, arguments);
    names.emplace_back(command.name);
  }
  return FailUsage(absl::StrCat("There is no command '", name, "'.",
                                cli::DidYouMean(name, names)));
}

ExitCode Main(int argc, char** argv) {
  Options options;
  bool help = false;
  cli::Flags flags;
  flags.AddSwitch("help", &help);
  flags.AddText("socket", &options.socket);
  flags.AddSeconds("timeout", &options.timeout);
  flags.AddText("with", &options.with);
  flags.AddText("exec", &options.exec);
  absl::StatusOr<Arguments> arguments = flags.Parse(argc, argv);
  if (!arguments.ok())
    return FailUsage(arguments.status().message());
  if (help) {
    std::fputs(kHelp, stdout);
    return kSuccess;
  }
  if (arguments->empty())
    return FailUsage("A command is missing.");
  const std::string name = arguments->front();
  arguments->erase(arguments->begin());
  const ExitCode exit_code = RunCommand(options, name, *arguments);
  if (std::fflush(stdout) != 0 || std::ferror(stdout))
    return Fail(kCallFailed, "Standard output can't be written to.");
  return exit_code;
}

}  // namespace
}  // namespace windowctl

int main(int argc, char** argv) {
  return windowctl::Main(argc, argv);
}
