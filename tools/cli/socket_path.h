// Where the example host listens and its clients look for it.
//
// Each user has a host of their own, so the socket is in a folder that only
// this user may enter: that of the login session or, without one, a folder in
// /tmp that is refused if it belongs to another user.
//
// Failure: PERMISSION_DENIED for such a folder.
//
// Sequence: any thread, as long as nobody changes the environment meanwhile.

#ifndef TOOLS_CLI_SOCKET_PATH_H_
#define TOOLS_CLI_SOCKET_PATH_H_

#include <string>

#include "absl/status/status.h"

namespace cli {

// ${XDG_RUNTIME_DIR:-/tmp/torvane-UID}/window_host.sock
std::string DefaultSocketPath();

// Fails with PERMISSION_DENIED when the folder of `socket_path` belongs to
// another user, who could then put a socket of theirs there. A folder that does
// not exist passes.
absl::Status CheckSocketFolder(const std::string& socket_path);

// Makes the folder of `socket_path`, for this user alone, unless it exists, and
// checks it.
absl::Status MakeSocketFolder(const std::string& socket_path);

}  // namespace cli

#endif  // TOOLS_CLI_SOCKET_PATH_H_
