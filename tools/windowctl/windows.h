// Windows, as a user names them and as streams are subscribed to them.
//
// Ownership: what is returned is the caller's. Sequence: that of the session.
// Failure: a status with a text for the user, or one that has been printed.

#ifndef TOOLS_WINDOWCTL_WINDOWS_H_
#define TOOLS_WINDOWCTL_WINDOWS_H_

#include <string>
#include <vector>

#include "absl/status/statusor.h"
#include "browser_id.pb.h"
#include "tools/rpcctl/commands.h"
#include "tools/rpcctl/session.h"

namespace windowctl {

// The windows that the words name by their ids, at least one; or what is wrong
// with them.
absl::StatusOr<std::vector<BrowserId>> ParseWindows(
    const rpcctl::Arguments& words);

rpcctl::Keys KeysOf(const std::vector<BrowserId>& windows);

// Calls about each of the windows. The host replies after it has handled the
// subscriptions that were sent before, and says whether there is such a window.
rpcctl::AwaitReply AwaitWindows(const std::vector<BrowserId>& windows);

}  // namespace windowctl

#endif  // TOOLS_WINDOWCTL_WINDOWS_H_
