// Completion of a program's command line, made of the same description as its
// --help: commands, the flags that they take, and files where a flag's value is
// called PATH or FILE.
//
// Sequence: any thread.
//
// Failure: none.

#ifndef TOOLS_CLI_COMPLETION_H_
#define TOOLS_CLI_COMPLETION_H_

#include <string>

#include "tools/cli/program_description.h"

namespace cli {

// Each a script for the shell, which loads it by the name of the program.
std::string BashCompletion(const ProgramDescription& program);
std::string ZshCompletion(const ProgramDescription& program);
std::string FishCompletion(const ProgramDescription& program);

}  // namespace cli

#endif  // TOOLS_CLI_COMPLETION_H_
