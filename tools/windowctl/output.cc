#include <cstdio>

#include "absl/strings/str_cat.h"
#include "tools/cli/printable.h"
#include "tools/windowctl/commands.h"

namespace windowctl {

void PrintLine(const std::string& line) {
  std::puts(line.c_str());
  std::fflush(stdout);
}

ExitCode Fail(ExitCode exit_code, std::string_view text) {
  const std::string line =
      absl::StrCat("windowctl: ", cli::PrintableLines(text), "\n");
  std::fputs(line.c_str(), stderr);
  return exit_code;
}

ExitCode Fail(ExitCode exit_code, const absl::Status& status) {
  return Fail(exit_code, absl::StrCat(absl::StatusCodeToString(status.code()),
                                      ": ", cli::Printable(status.message())));
}

}  // namespace windowctl
