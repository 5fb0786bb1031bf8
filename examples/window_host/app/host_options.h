// The command line of a host: a program that serves windows.
//
//   HostOptions options;
//   if (auto exit = ReadCommandLine(argc, argv, DescribeWindowHost(), {},
//                                   &options))
//     return *exit;
//
// Ownership: plain data.
//
// Sequence: any; used before there is one.
//
// Failure: said on standard error, with an exit status for the program.

#ifndef EXAMPLES_WINDOW_HOST_APP_HOST_OPTIONS_H_
#define EXAMPLES_WINDOW_HOST_APP_HOST_OPTIONS_H_

#include <chrono>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "core/common/rpc/serving/limits.h"
#include "examples/window_host/service/directory_service.h"
#include "tools/cli/flags.h"
#include "tools/cli/program_description.h"
#include "tools/cli/socket_path.h"

namespace window_host {

// The exit status of a wrong command line, as windowctl's.
inline constexpr int kWrongUsage = 2;

struct HostOptions {
  // The program's name, which its lines begin with: of its description.
  std::string program;
  std::string socket = cli::DefaultSocketPath();
  // How many windows to open at the start.
  int windows = 0;
  DirectoryLimits directory;
  std::chrono::milliseconds answer_timeout{5'000};
  rpc::serving::Limits limits;
  // The file that what the server does is written to; empty for none.
  std::string trace;
  // What is not a flag. Empty unless the program takes arguments.
  std::vector<std::string> arguments;
};

// Fills in what the command line says. Returns the exit status where the
// program is to end at once: because of a fault, or when help or the version
// was asked for. `flags` are those that only this program has.
std::optional<int> ReadCommandLine(int argc,
                                   const char* const* argv,
                                   const cli::ProgramDescription& program,
                                   cli::Flags flags,
                                   HostOptions* options);

// Prints "program: text" on standard error, and returns `exit_code`.
int Fail(const HostOptions& options, int exit_code, std::string_view text);

}  // namespace window_host

#endif  // EXAMPLES_WINDOW_HOST_APP_HOST_OPTIONS_H_
