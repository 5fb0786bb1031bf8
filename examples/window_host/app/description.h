// The command lines of window_host, and of other programs that serve windows.

#ifndef EXAMPLES_WINDOW_HOST_APP_DESCRIPTION_H_
#define EXAMPLES_WINDOW_HOST_APP_DESCRIPTION_H_

#include <string>

#include "tools/cli/program_description.h"

namespace window_host {

// The most that --windows and --max-windows take.
inline constexpr int kMaximumWindows = 1000;

cli::ProgramDescription DescribeWindowHost();

// What programs that serve windows have in common. `windows` is how many they
// open unless --windows is given, in words.
cli::ProgramDescription DescribeHost(const std::string& name,
                                     const std::string& windows);

}  // namespace window_host

#endif  // EXAMPLES_WINDOW_HOST_APP_DESCRIPTION_H_
