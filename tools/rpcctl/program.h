// What tells the programs apart that share the commands of this folder: rpcctl
// learns from each server what that offers, windowctl was built with the
// contract of windows and has short forms for it.
//
// Ownership: a Program is made once; it lives as long as the process.
//
// Sequence: the main thread.
//
// Failure: RunProgram() prints what is wrong, and returns the exit code.

#ifndef TOOLS_RPCCTL_PROGRAM_H_
#define TOOLS_RPCCTL_PROGRAM_H_

#include <google/protobuf/descriptor.h>

#include <functional>
#include <string>
#include <vector>

#include "tools/cli/flags.h"
#include "tools/cli/program_description.h"
#include "tools/rpcctl/commands.h"
#include "tools/rpcctl/exit_code.h"
#include "tools/rpcctl/method_table.h"
#include "tools/rpcctl/options.h"

namespace rpcctl {

class Session;

struct Command {
  std::string name;
  std::function<ExitCode(Session& session, const Arguments& arguments)> run;
};

struct Program {
  // Has a description of each of the commands, and says which flags a command
  // takes.
  cli::ProgramDescription description;
  std::vector<Command> commands;
  // How the user writes commands, for advice in errors.
  CommandForms forms;
  // Where a server usually listens. Null if the user must say so.
  std::string (*default_socket)() = nullptr;
  // What to check when nobody listens; follows the text of the error.
  const char* absent_server_hint = "";
  // The services that the program was built with. Empty if it has to ask each
  // server for its services.
  std::vector<const google::protobuf::ServiceDescriptor*> services = {};
  // The same declarations with their comments. Null if there are no others than
  // those of the services.
  const google::protobuf::DescriptorPool* commented = nullptr;
  // What has its declarations, in errors.
  const char* files_name = "The server's files";
  // Adds flags that only this program has; may be null.
  void (*add_flags)(cli::Flags& flags, Options& options) = nullptr;
};

// main(): reads the command line and runs its command.
ExitCode RunProgram(const Program& program, int argc, char** argv);

}  // namespace rpcctl

#endif  // TOOLS_RPCCTL_PROGRAM_H_
