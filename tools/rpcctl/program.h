// What tells the programs apart that share the commands of this folder: rpcctl
// learns from each server what that offers, windowctl was built with the
// contract of windows and has short forms for it.
//
// Ownership: a Program is a constant; it lives as long as the process.
//
// Sequence: the main thread.
//
// Failure: RunProgram() prints what is wrong, and returns the exit code.

#ifndef TOOLS_RPCCTL_PROGRAM_H_
#define TOOLS_RPCCTL_PROGRAM_H_

#include <google/protobuf/descriptor.h>

#include <string>
#include <vector>

#include "tools/cli/flags.h"
#include "tools/rpcctl/commands.h"
#include "tools/rpcctl/exit_code.h"
#include "tools/rpcctl/method_table.h"
#include "tools/rpcctl/options.h"

namespace rpcctl {

class Session;

struct Command {
  const char* name;
  ExitCode (*run)(Session& session, const Arguments& arguments);
  // Printed for --help after the command. Null if the program's help says it.
  const char* help = nullptr;
};

struct Program {
  const char* help;
  std::vector<Command> commands;
  // How the user writes commands, for advice in errors.
  CommandForms forms;
  // Where a server usually listens. Null if the user must say so.
  std::string (*default_socket)() = nullptr;
  // What to check when nobody listens; follows the text of the error.
  const char* absent_server_hint = "";
  // The service that the program was built with. Null if it has to ask each
  // server for its services.
  const google::protobuf::ServiceDescriptor* (*service)() = nullptr;
  // Adds flags that only this program has; may be null.
  void (*add_flags)(cli::Flags& flags, Options& options) = nullptr;
};

// main(): reads the command line and runs its command.
ExitCode RunProgram(const Program& program, int argc, char** argv);

}  // namespace rpcctl

#endif  // TOOLS_RPCCTL_PROGRAM_H_
