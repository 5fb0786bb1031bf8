// Drives the windows of a running host from the command line: the short form of
// rpcctl for the contract that it was built with.

#include <utility>

#include "tools/cli/flags.h"
#include "tools/cli/socket_path.h"
#include "tools/rpcctl/program.h"
#include "tools/windowctl/commands.h"
#include "tools/windowctl/contract.h"
#include "tools/windowctl/description.h"
#include "tools/windowctl/method_commands.h"

namespace windowctl {
namespace {

rpcctl::Program MakeProgram() {
  rpcctl::Program program = {
      .description = DescribeWindowctl(),
      .commands = {{"list", List},
                   {"open", Open},
                   {"watch", Watch},
                   {"answer", Answer},
                   {"methods", Methods},
                   {"describe", rpcctl::Describe},
                   {"call", rpcctl::Call},
                   {"status", rpcctl::Status}},
      .forms = {.list = "windowctl methods",
                .call = "windowctl call $0 REQUEST",
                .watch = "windowctl watch ID...",
                .answer = "windowctl answer $0 ID..."},
      .default_socket = cli::DefaultSocketPath,
      .absent_server_hint = "\nIs window_host running, with the same --socket?",
      .services = Services(),
      .commented = &CommentedDeclarations(),
      .files_name = "The files of the contract",
      .add_flags =
          [](cli::Flags& flags, rpcctl::Options& options) {
            flags.AddSwitch("all", &options.all);
            flags.AddSwitch("reconnect", &options.reconnect);
          },
  };
  for (rpcctl::Command& command : MethodCommands())
    program.commands.push_back(std::move(command));
  return program;
}

}  // namespace
}  // namespace windowctl

int main(int argc, char** argv) {
  return rpcctl::RunProgram(windowctl::MakeProgram(), argc, argv);
}
