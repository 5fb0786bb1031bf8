// Calls, watches and answers any method of any server on a socket that says
// what it offers, without having been built with its proto files.

#include "tools/rpcctl/description.h"
#include "tools/rpcctl/program.h"

namespace rpcctl {
namespace {

Program MakeProgram() {
  return {
      .description = DescribeRpcctl(),
      .commands = {{"list", List},
                   {"describe", Describe},
                   {"call", Call},
                   {"watch", Watch},
                   {"answer", Answer},
                   {"status", Status}},
      .forms = {.list = "rpcctl list SERVICE",
                .call = "rpcctl call $0 REQUEST",
                .watch = "rpcctl watch $0 KEY...",
                .answer = "rpcctl answer $0 KEY..."},
      .absent_server_hint = "\nIs the server running, with the same --socket?",
  };
}

}  // namespace
}  // namespace rpcctl

int main(int argc, char** argv) {
  return rpcctl::RunProgram(rpcctl::MakeProgram(), argc, argv);
}
