#include "tools/windowctl/windows.h"

#include <google/protobuf/wrappers.pb.h>

#include <cstdint>
#include <memory>

#include "absl/strings/numbers.h"
#include "absl/strings/str_cat.h"
#include "rpc/browser/browser_window.pb.h"

namespace windowctl {

absl::StatusOr<std::vector<BrowserId>> ParseWindows(
    const rpcctl::Arguments& words) {
  std::vector<BrowserId> windows;
  for (const std::string& word : words) {
    int64_t id;
    if (!absl::SimpleAtoi(word, &id)) {
      return absl::InvalidArgumentError(
          absl::StrCat("'", word, "' is not a window's id."));
    }
    windows.emplace_back().set_value(id);
  }
  if (windows.empty()) {
    return absl::InvalidArgumentError("Name at least one window by its id.");
  }
  return windows;
}

rpcctl::Keys KeysOf(const std::vector<BrowserId>& windows) {
  rpcctl::Keys keys;
  for (const BrowserId& window : windows)
    keys.push_back(std::make_unique<BrowserId>(window));
  return keys;
}

rpcctl::AwaitReply AwaitWindows(const std::vector<BrowserId>& windows) {
  return [windows](rpcctl::Session& session) {
    const auto* method =
        rpc::BrowserWindow::descriptor()->FindMethodByName("IsVisible");
    for (const BrowserId& window : windows) {
      google::protobuf::BoolValue visible;
      const absl::Status status = session.Call(method, window, &visible);
      // UNIMPLEMENTED also shows that the host has handled the subscription.
      if (!status.ok() && !absl::IsUnimplemented(status))
        return rpcctl::FailOn(session.client(), status);
    }
    return rpcctl::kSuccess;
  };
}

}  // namespace windowctl
