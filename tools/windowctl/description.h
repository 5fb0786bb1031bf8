// The command line of windowctl.

#ifndef TOOLS_WINDOWCTL_DESCRIPTION_H_
#define TOOLS_WINDOWCTL_DESCRIPTION_H_

#include "tools/cli/program_description.h"

namespace windowctl {

cli::ProgramDescription DescribeWindowctl();

}  // namespace windowctl

#endif  // TOOLS_WINDOWCTL_DESCRIPTION_H_
