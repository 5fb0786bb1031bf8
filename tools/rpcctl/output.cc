#include <cerrno>
#include <cstdio>

#include "absl/strings/str_cat.h"
#include "tools/cli/printable.h"
#include "tools/rpcctl/commands.h"

namespace rpcctl {

std::string_view ProgramName() {
  return program_invocation_short_name;
}

void PrintLine(const std::string& line) {
  std::puts(line.c_str());
  std::fflush(stdout);
}

void Say(std::string_view line) {
  std::fputs(absl::StrCat(ProgramName(), ": ", line, "\n").c_str(), stderr);
}

ExitCode Fail(ExitCode exit_code, std::string_view text) {
  Say(cli::PrintableLines(text));
  return exit_code;
}

ExitCode Fail(ExitCode exit_code, const absl::Status& status) {
  return Fail(exit_code, absl::StrCat(absl::StatusCodeToString(status.code()),
                                      ": ", cli::Printable(status.message())));
}

}  // namespace rpcctl
