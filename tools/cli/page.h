// main() of the small programs that the build makes beside ours: each prints
// what is installed with one of them, made of its description.

#ifndef TOOLS_CLI_PAGE_H_
#define TOOLS_CLI_PAGE_H_

#include "tools/cli/program_description.h"

namespace cli {

// The only argument is what to print: man, bash, zsh or fish. Returns the exit
// status.
int PrintPage(const ProgramDescription& program, int argc, char** argv);

}  // namespace cli

#endif  // TOOLS_CLI_PAGE_H_
