// Windows, as a user names them and as streams are subscribed to them.
//
// Ownership: what is returned is the caller's. Sequence: that of the session.
// Failure: a status with a text for the user, or one that has been printed.

#ifndef TOOLS_WINDOWCTL_WINDOWS_H_
#define TOOLS_WINDOWCTL_WINDOWS_H_

#include <google/protobuf/descriptor.h>
#include <google/protobuf/message.h>

#include <memory>
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

// The events about the windows; without any, about all windows.
std::vector<rpcctl::EventSource> SourcesFor(
    const std::vector<BrowserId>& windows);

// The calls whose replies say that all subscriptions are in effect: one about
// each of the windows, or one about all of them.
struct AwaitedCall {
  const google::protobuf::MethodDescriptor* method;
  std::unique_ptr<google::protobuf::Message> request;
};
std::vector<AwaitedCall> AwaitedCallsFor(const std::vector<BrowserId>& windows);

// Whether the reply to such a call says that the host has handled the
// subscriptions.
bool IsHandled(const absl::Status& reply);

// Makes these calls. The host replies after it has handled the
// subscriptions that were sent before, and says whether there is such a window.
rpcctl::AwaitReply AwaitWindows(const std::vector<BrowserId>& windows);

}  // namespace windowctl

#endif  // TOOLS_WINDOWCTL_WINDOWS_H_
