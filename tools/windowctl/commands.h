// The commands of windowctl, each in a source of its own.
//
// A command gets its arguments without its own name, prints results to standard
// output and errors to standard error, and returns the exit code of the
// process. It runs on the main thread, with a loop of its own if it needs one.

#ifndef TOOLS_WINDOWCTL_COMMANDS_H_
#define TOOLS_WINDOWCTL_COMMANDS_H_

#include <string>
#include <string_view>
#include <vector>

#include "absl/status/status.h"
#include "tools/windowctl/exit_code.h"
#include "tools/windowctl/options.h"

namespace windowctl {

using Arguments = std::vector<std::string>;

// methods
ExitCode Methods(const Options& options, const Arguments& arguments);

// call METHOD JSON
ExitCode Call(const Options& options, const Arguments& arguments);

// watch ID...
ExitCode Watch(const Options& options, const Arguments& arguments);

// answer METHOD ID...
ExitCode Answer(const Options& options, const Arguments& arguments);

// status
ExitCode Status(const Options& options, const Arguments& arguments);

// Writes a line to standard output as it is, and flushes it, since a script may
// wait for it. For JSON of ToJson(), in which nothing is left to be escaped.
void PrintLine(const std::string& line);

// Print to standard error what is wrong, and return `exit_code`: a text of our
// own, or the code and text of the status that a call or a stream has ended
// with. Both are printed in printable characters (tools/cli/printable.h); line
// breaks stay in the text, but not in that of a status, which is the host's.
ExitCode Fail(ExitCode exit_code, std::string_view text);
ExitCode Fail(ExitCode exit_code, const absl::Status& status);

}  // namespace windowctl

#endif  // TOOLS_WINDOWCTL_COMMANDS_H_
