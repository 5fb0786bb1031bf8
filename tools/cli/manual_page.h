// The manual page of a program, made of the same description as its --help.
//
// Sequence: any thread.
//
// Failure: none.

#ifndef TOOLS_CLI_MANUAL_PAGE_H_
#define TOOLS_CLI_MANUAL_PAGE_H_

#include <string>

#include "tools/cli/program_description.h"

namespace cli {

// In the format of man(7), for section 1.
std::string ManualPage(const ProgramDescription& program);

}  // namespace cli

#endif  // TOOLS_CLI_MANUAL_PAGE_H_
