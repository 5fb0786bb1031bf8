// How rpcctl and windowctl end; scripts rely on these numbers.

#ifndef TOOLS_RPCCTL_EXIT_CODE_H_
#define TOOLS_RPCCTL_EXIT_CODE_H_

namespace rpcctl {

enum ExitCode {
  kSuccess = 0,
  // The server was reached, but refused the call or did not answer in time.
  kCallFailed = 1,
  // The command line is wrong; nothing was called or opened.
  kUsage = 2,
  // There is no server at the socket, or it went away.
  kNoConnection = 3,
};

}  // namespace rpcctl

#endif  // TOOLS_RPCCTL_EXIT_CODE_H_
