// How windowctl ends; scripts rely on these numbers.

#ifndef TOOLS_WINDOWCTL_EXIT_CODE_H_
#define TOOLS_WINDOWCTL_EXIT_CODE_H_

namespace windowctl {

enum ExitCode {
  kSuccess = 0,
  // The host was reached, but refused the call or did not answer in time.
  kCallFailed = 1,
  // The command line is wrong; nothing was tried.
  kUsage = 2,
  // There is no host at the socket, or it went away.
  kNoConnection = 3,
};

}  // namespace windowctl

#endif  // TOOLS_WINDOWCTL_EXIT_CODE_H_
