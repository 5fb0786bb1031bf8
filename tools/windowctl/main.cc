// Drives the windows of a running host from the command line.

#include <cstdio>
#include <string>
#include <vector>

#include "absl/strings/str_cat.h"
#include "tools/cli/flags.h"
#include "tools/cli/nearest_name.h"
#include "tools/cli/protobuf_log.h"
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
  windowctl status                   shows who is connected to the host, what is
                                     under way, and what had to be refused

Flags:
  --socket PATH      where the host listens; default:
                     ${XDG_RUNTIME_DIR:-/tmp/torvane-UID}/window_host.sock
  --timeout SECONDS  how long connecting and the response may take together,
                     from 0.001 to 86400; default: 10. For 'watch' and 'answer'
                     this is the time to connect and subscribe; after that they
                     wait without a limit
  --with JSON        'answer' only: the same answer to every question
  --exec COMMAND     'answer' only: runs COMMAND with the shell for each
                     question, which stands on its standard input; what it
                     prints is the answer
  --reconnect        'watch' only: waits for a host that is not there, and goes
                     on when it has gone and come again; standard error says
                     from when to when events may have been missed
  --json             'status' only: prints a line of JSON
  -h, --help         prints this

'answer' takes a method of the kind 'callback stream'; 'methods' lists them. It
prints each question as a line of JSON, the method's message. An answer is the
JSON of the message's field 'response': for OnCloseWindow {"allowed": true}, for
OnCanExecuteCommand the same, for OnShowContextMenu {"handled": true} or
{"omittedCommandIds": [1, 2]}. A question without a usable answer is declined,
and so is one that the host no longer waits for; standard error says why.

Without --with and --exec, the answers are read from standard input. At a
terminal you are asked, one question after the other, and told how long you
have; a line that is no answer is asked for again, and one that you type while
no question is shown is not taken. From a pipe or a file the next line is the
answer to each question, also where it comes before its question. 'answer' ends
when the input has ended and is used up.

Examples:
  windowctl call Maximize '{"value": 1}'
  windowctl call SetTitle '{"browserId": {"value": 1}, "title": "Inbox"}'
  windowctl answer OnCloseWindow 1 --with '{"allowed": false}'
  windowctl status --json | jq .connections

Exit status: 0 success, 1 the call failed, 2 wrong usage, 3 no connection.
)";

struct Command {
  const char* name;
  ExitCode (*run)(const Options&, const Arguments&);
};

constexpr Command kCommands[] = {{"methods", Methods},
                                 {"call", Call},
                                 {"watch", Watch},
                                 {"answer", Answer},
                                 {"status", Status}};

ExitCode FailUsage(std::string_view text) {
  return Fail(kUsage, absl::StrCat(text, " 'windowctl --help' says more."));
}

// What is wrong with the flags for `command`; empty if they are right.
std::string FlagFault(const Options& options, const std::string& command) {
  const struct {
    const char* flag;
    bool is_set;
    const char* command;
  } special_flags[] = {{"with", options.with.has_value(), "answer"},
                       {"exec", options.exec.has_value(), "answer"},
                       {"reconnect", options.reconnect, "watch"},
                       {"json", options.json, "status"}};
  for (const auto& special : special_flags) {
    if (special.is_set && command != special.command) {
      return absl::StrCat("The flag --", special.flag, " is for '",
                          special.command, "' only.");
    }
  }
  return "";
}

ExitCode RunCommand(const Options& options,
                    const std::string& name,
                    const Arguments& arguments) {
  std::vector<std::string> names;
  for (const Command& command : kCommands) {
    if (name == command.name) {
      const std::string fault = FlagFault(options, name);
      return fault.empty() ? command.run(options, arguments) : FailUsage(fault);
    }
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
  flags.AddSwitch("reconnect", &options.reconnect);
  flags.AddSwitch("json", &options.json);
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
  cli::RecordProtobufLog();
  return windowctl::Main(argc, argv);
}
