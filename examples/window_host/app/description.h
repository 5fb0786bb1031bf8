// The command line of window_host.

#ifndef EXAMPLES_WINDOW_HOST_APP_DESCRIPTION_H_
#define EXAMPLES_WINDOW_HOST_APP_DESCRIPTION_H_

#include "tools/cli/program_description.h"

namespace window_host {

// How many windows it opens unless it is told.
inline constexpr int kInitialWindows = 3;

cli::ProgramDescription DescribeWindowHost();

}  // namespace window_host

#endif  // EXAMPLES_WINDOW_HOST_APP_DESCRIPTION_H_
