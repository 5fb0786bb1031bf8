// What a program's command line is like, as data, in one place for each
// program: --help is made of it, and so can be whatever else describes the
// program, such as a manual page or a shell's completion.
//
//   const cli::ProgramDescription description = {
//       .name = "windowctl",
//       .summary = "drives the windows of a running window_host",
//       .commands = {{.name = "watch",
//                     .arguments = "ID...",
//                     .summary = "prints the events about the windows",
//                     .flags = {{"json", "", "prints lines of JSON"}}}},
//       .flags = {{"socket", "PATH", "where the host listens"},
//                 cli::HelpFlag(), cli::VersionFlag()}};
//   std::fputs(cli::Help(description).c_str(), stdout);
//
// A text is prose, which is broken into lines when it is printed
// (tools/cli/text_layout.h).
//
// Sequence: any thread.
//
// Failure: none.

#ifndef TOOLS_CLI_PROGRAM_DESCRIPTION_H_
#define TOOLS_CLI_PROGRAM_DESCRIPTION_H_

#include <string>
#include <string_view>
#include <vector>

namespace cli {

struct FlagDescription {
  // Without the dashes.
  std::string name;
  // What its value is called, such as "PATH"; empty for a flag without one.
  std::string value;
  // What it does, with range and default. Begins in lower case, and has no full
  // stop at its end.
  std::string text;
};

struct CommandDescription {
  std::string name = {};
  // As they are typed, such as "METHOD ID..."; empty if there are none.
  std::string arguments = {};
  // One sentence, which begins in lower case and has no full stop.
  std::string summary = {};
  // What else there is to say; may be empty.
  std::string details = {};
  // Those that only this command takes, or few others beside it.
  std::vector<FlagDescription> flags = {};
  // Whole command lines.
  std::vector<std::string> examples = {};
};

// Commands, or flags, that belong together.
struct CommandGroup {
  std::string heading;
  std::vector<CommandDescription> commands;
};
struct FlagGroup {
  std::string heading = {};
  std::vector<FlagDescription> flags = {};
};

struct ExitStatus {
  std::string status = {};
  std::string meaning = {};
};

struct ProgramDescription {
  std::string name = {};
  // As of a command.
  std::string summary = {};
  // Of a program without commands, as of a command.
  std::string arguments = {};
  std::vector<CommandDescription> commands = {};
  std::vector<CommandGroup> more_commands = {};
  // Those that every command takes.
  std::vector<FlagDescription> flags = {};
  std::vector<FlagGroup> more_flags = {};
  std::string details = {};
  std::vector<std::string> examples = {};
  std::vector<ExitStatus> exit_statuses = {};
};

// The flags that every program takes: --help, also -h, and --version.
FlagDescription HelpFlag();
FlagDescription VersionFlag();

// What --help prints: of a program, and of one of its commands only.
std::string Help(const ProgramDescription& program);
std::string Help(const ProgramDescription& program,
                 const CommandDescription& command);

// A line, or several, for each flag.
std::string FlagTable(const std::vector<FlagDescription>& flags);

// What --version prints: "windowctl 1.0.0".
std::string VersionLine(const ProgramDescription& program);

// The version of all programs of this source tree, such as "1.0.0".
std::string_view Version();

}  // namespace cli

#endif  // TOOLS_CLI_PROGRAM_DESCRIPTION_H_
