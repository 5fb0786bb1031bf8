#include "tools/windowctl/windows.h"

#include <cstdint>
#include <limits>
#include <memory>
#include <utility>

#include "absl/strings/numbers.h"
#include "absl/strings/str_cat.h"
#include "rpc/browser/browser_window.pb.h"
#include "rpc/directory/window_directory.pb.h"

namespace windowctl {

using rpc::directory::WindowDirectory;

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

std::vector<rpcctl::EventSource> SourcesFor(
    const std::vector<BrowserId>& windows) {
  const auto* closed = rpc::BrowserWindow::descriptor()->FindMethodByName(
      "WhenBrowserWindowClosed");
  std::vector<rpcctl::EventSource> sources;
  if (!windows.empty()) {
    sources.push_back({closed, KeysOf(windows), ""});
    return sources;
  }
  const auto* opened =
      WindowDirectory::descriptor()->FindMethodByName("WhenWindowOpened");
  const std::vector<BrowserId> all = {BrowserId()};
  sources.push_back({opened, KeysOf(all), "opened"});
  sources.push_back({closed, KeysOf(all), "closed"});
  return sources;
}

std::vector<AwaitedCall> AwaitedCallsFor(
    const std::vector<BrowserId>& windows) {
  std::vector<AwaitedCall> calls;
  calls.reserve(windows.size() + 1);
  const auto* is_visible =
      rpc::BrowserWindow::descriptor()->FindMethodByName("IsVisible");
  for (const BrowserId& window : windows)
    calls.push_back({is_visible, std::make_unique<BrowserId>(window)});
  if (windows.empty()) {
    // After the last of all ids there is no window to be listed.
    auto none = std::make_unique<rpc::directory::ListWindowsRequest>();
    none->mutable_after()->set_value(std::numeric_limits<int64_t>::max());
    calls.push_back(
        {WindowDirectory::descriptor()->FindMethodByName("ListWindows"),
         std::move(none)});
  }
  return calls;
}

// UNIMPLEMENTED shows it, too. Where the stream is not there either, that is
// said when it ends.
bool IsHandled(const absl::Status& reply) {
  return reply.ok() || absl::IsUnimplemented(reply);
}

rpcctl::AwaitReply AwaitWindows(const std::vector<BrowserId>& windows) {
  return [windows](rpcctl::Session& session) {
    for (const AwaitedCall& call : AwaitedCallsFor(windows)) {
      const auto response = session.NewMessage(call.method->output_type());
      const absl::Status reply =
          session.Call(call.method, *call.request, response.get());
      if (!IsHandled(reply))
        return rpcctl::FailOn(session.client(), reply);
    }
    return rpcctl::kSuccess;
  };
}

}  // namespace windowctl
