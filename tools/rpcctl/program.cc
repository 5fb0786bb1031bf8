#include "tools/rpcctl/program.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <cstdio>
#include <string_view>

#include "absl/log/absl_check.h"
#include "absl/strings/str_cat.h"
#include "absl/strings/str_join.h"
#include "tools/cli/nearest_name.h"
#include "tools/cli/protobuf_log.h"
#include "tools/rpcctl/request.h"
#include "tools/rpcctl/session.h"

namespace rpcctl {
namespace {

ExitCode FailUsage(std::string_view text) {
  return Fail(kUsage,
              absl::StrCat(text, " '", ProgramName(), " --help' says more."));
}

// The descriptions of all commands, those in groups included.
std::vector<const cli::CommandDescription*> Descriptions(
    const cli::ProgramDescription& program) {
  std::vector<const cli::CommandDescription*> commands;
  for (const cli::CommandDescription& command : program.commands)
    commands.push_back(&command);
  for (const cli::CommandGroup& group : program.more_commands) {
    for (const cli::CommandDescription& command : group.commands)
      commands.push_back(&command);
  }
  return commands;
}

bool Has(const std::vector<cli::FlagDescription>& flags,
         const std::string& name) {
  return std::any_of(
      flags.begin(), flags.end(),
      [&](const cli::FlagDescription& flag) { return flag.name == name; });
}

// What is wrong with the flags that were given for `command`; empty if they are
// right.
std::string FlagFault(const cli::ProgramDescription& program,
                      const cli::CommandDescription& command,
                      const std::vector<std::string>& given) {
  for (const std::string& flag : given) {
    if (Has(program.flags, flag) || Has(command.flags, flag))
      continue;
    std::vector<std::string> takers;
    for (const cli::CommandDescription* other : Descriptions(program)) {
      if (Has(other->flags, flag))
        takers.push_back(absl::StrCat("'", other->name, "'"));
    }
    return absl::StrCat("The flag --", flag, " is for ",
                        absl::StrJoin(takers, " and "), " only.");
  }
  return "";
}

// The command of that name. If there is none, null, and `fault` says so.
const cli::CommandDescription* FindCommand(
    const cli::ProgramDescription& program,
    const std::string& name,
    std::string* fault) {
  std::vector<std::string> names;
  for (const cli::CommandDescription* command : Descriptions(program)) {
    if (name == command->name)
      return command;
    names.push_back(command->name);
  }
  *fault = absl::StrCat("There is no command '", name, "'.",
                        cli::DidYouMean(name, names));
  return nullptr;
}

ExitCode RunCommand(const Program& program,
                    const Options& options,
                    const std::string& name,
                    const Arguments& arguments) {
  const auto command = std::find_if(
      program.commands.begin(), program.commands.end(),
      [&](const Command& command) { return command.name == name; });
  ABSL_CHECK(command != program.commands.end()) << name << " is described";
  Session session(program, options);
  return command->run(session, arguments);
}

// Whoever starts the program may ignore signals, which it inherits. By SIGPIPE
// it ends when nobody reads its output any longer; where SIGCHLD is ignored,
// the exit codes of its commands are lost.
void RestoreSignals() {
  std::signal(SIGPIPE, SIG_DFL);
  std::signal(SIGCHLD, SIG_DFL);
}

// A standard stream that is closed fails whoever uses it, instead of being the
// next file or socket that is opened.
void OccupyStandardStreams() {
  for (const int stream : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO}) {
    if (fcntl(stream, F_GETFD) < 0)
      open("/dev/null", stream == STDIN_FILENO ? O_WRONLY : O_RDONLY);
  }
}

ExitCode Print(const std::string& text) {
  std::fputs(text.c_str(), stdout);
  return kSuccess;
}

ExitCode Run(const Program& program, int argc, char** argv) {
  Options options;
  if (program.default_socket != nullptr)
    options.socket = program.default_socket();
  bool help = false;
  bool version = false;
  cli::Flags flags;
  flags.AddSwitch("help", &help);
  flags.AddSwitch("version", &version);
  flags.AddText("socket", &options.socket);
  flags.AddSeconds("timeout", &options.timeout);
  flags.AddText("with", &options.with);
  flags.AddText("exec", &options.exec);
  flags.AddSwitch("timestamps", &options.timestamps);
  flags.AddSwitch("json", &options.json);
  flags.AddSwitch("prometheus", &options.prometheus);
  flags.AddSwitch("watch", &options.watch);
  if (program.add_flags != nullptr)
    program.add_flags(flags, options);
  absl::StatusOr<Arguments> arguments = flags.Parse(argc, argv);
  if (!arguments.ok())
    return FailUsage(arguments.status().message());
  if (version)
    return Print(cli::VersionLine(program.description));
  if (arguments->empty() && help)
    return Print(cli::Help(program.description));
  if (arguments->empty())
    return FailUsage("A command is missing.");

  std::string fault;
  const cli::CommandDescription* command =
      FindCommand(program.description, arguments->front(), &fault);
  if (command == nullptr)
    return FailUsage(fault);
  if (help)
    return Print(cli::Help(program.description, *command));
  fault = FlagFault(program.description, *command, flags.given());
  if (fault.empty() && options.socket.empty())
    fault = "--socket PATH is missing: where the server listens.";
  if (!fault.empty())
    return FailUsage(fault);
  if (options.with) {
    const absl::StatusOr<std::string> json = ReadJson(*options.with);
    if (!json.ok())
      return Fail(kUsage, json.status().message());
    options.with = *json;
  }
  arguments->erase(arguments->begin());
  return RunCommand(program, options, command->name, *arguments);
}

}  // namespace

ExitCode RunProgram(const Program& program, int argc, char** argv) {
  OccupyStandardStreams();
  RestoreSignals();
  cli::RecordProtobufLog();
  const ExitCode exit_code = Run(program, argc, argv);
  if (std::fflush(stdout) != 0 || std::ferror(stdout))
    return Fail(kCallFailed, "Standard output can't be written to.");
  return exit_code;
}

}  // namespace rpcctl
