#include "tools/rpcctl/program.h"

#include <cstdio>
#include <string_view>

#include "absl/strings/str_cat.h"
#include "tools/cli/nearest_name.h"
#include "tools/cli/protobuf_log.h"
#include "tools/rpcctl/session.h"

namespace rpcctl {
namespace {

ExitCode FailUsage(std::string_view text) {
  return Fail(kUsage,
              absl::StrCat(text, " '", ProgramName(), " --help' says more."));
}

// What is wrong with the flags for `command`; empty if they are right.
std::string FlagFault(const Options& options, std::string_view command) {
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
  return options.socket.empty() ? "--socket PATH is missing: where the server "
                                  "listens."
                                : "";
}

// The command of that name. If there is none, null, and `fault` says so.
const Command* FindCommand(const Program& program,
                           const std::string& name,
                           std::string* fault) {
  std::vector<std::string> names;
  for (const Command& command : program.commands) {
    if (name == command.name)
      return &command;
    names.emplace_back(command.name);
  }
  *fault = absl::StrCat("There is no command '", name, "'.",
                        cli::DidYouMean(name, names));
  return nullptr;
}

ExitCode RunCommand(const Program& program,
                    const Options& options,
                    const Command& command,
                    const Arguments& arguments) {
  if (const std::string fault = FlagFault(options, command.name);
      !fault.empty()) {
    return FailUsage(fault);
  }
  Session session(program, options);
  return command.run(session, arguments);
}

ExitCode Run(const Program& program, int argc, char** argv) {
  Options options;
  if (program.default_socket != nullptr)
    options.socket = program.default_socket();
  bool help = false;
  cli::Flags flags;
  flags.AddSwitch("help", &help);
  flags.AddText("socket", &options.socket);
  flags.AddSeconds("timeout", &options.timeout);
  flags.AddText("with", &options.with);
  flags.AddText("exec", &options.exec);
  flags.AddSwitch("json", &options.json);
  if (program.add_flags != nullptr)
    program.add_flags(flags, options);
  absl::StatusOr<Arguments> arguments = flags.Parse(argc, argv);
  if (!arguments.ok())
    return FailUsage(arguments.status().message());
  if (arguments->empty() && !help)
    return FailUsage("A command is missing.");

  std::string fault;
  const Command* command =
      arguments->empty() ? nullptr
                         : FindCommand(program, arguments->front(), &fault);
  if (!fault.empty())
    return FailUsage(fault);
  if (help) {
    std::fputs(command != nullptr && command->help != nullptr ? command->help
                                                              : program.help,
               stdout);
    return kSuccess;
  }
  arguments->erase(arguments->begin());
  return RunCommand(program, options, *command, *arguments);
}

}  // namespace

ExitCode RunProgram(const Program& program, int argc, char** argv) {
  cli::RecordProtobufLog();
  const ExitCode exit_code = Run(program, argc, argv);
  if (std::fflush(stdout) != 0 || std::ferror(stdout))
    return Fail(kCallFailed, "Standard output can't be written to.");
  return exit_code;
}

}  // namespace rpcctl
