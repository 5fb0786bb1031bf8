#include "tools/windowctl/stream_session.h"

#include <csignal>
#include <cstdio>
#include <initializer_list>
#include <string>
#include <utility>

#include "absl/log/absl_check.h"
#include "absl/strings/numbers.h"
#include "absl/strings/str_cat.h"
#include "core/common/rpc/loop/signal_watch.h"
#include "core/common/rpc/transport/client_controller.h"
#include "rpc/browser/browser_window.pb.h"

namespace windowctl {

absl::StatusOr<std::vector<BrowserId>> ParseWindows(const Arguments& words) {
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

StreamSession::StreamSession(const Options& options) : options_(options) {}

ExitCode StreamSession::Open(const Arguments& window_words) {
  auto windows = ParseWindows(window_words);
  if (!windows.ok())
    return Fail(kUsage, windows.status().message());
  windows_ = *std::move(windows);
  deadline_.emplace(loop_, options_);
  auto client = Connect(loop_, options_);
  if (!client.ok())
    return Fail(kNoConnection, client.status().message());
  client_ = *std::move(client);
  return kSuccess;
}

ExitCode StreamSession::Run(const std::function<void()>& end) {
  for (const BrowserId& window : windows_) {
    if (ExitCode fault = AwaitWindow(window); fault != kSuccess)
      return fault;
  }
  // The host may have ended the stream before it replied; handles that now.
  loop_.RunReady();
  if (ended_)
    return OutcomeOf(*ended_);
  // Until here a signal ends the process. Later the first one ends the stream,
  // and a second one the process, in case the host does not react.
  std::optional<rpc::loop::SignalWatch> signals;
  signals.emplace(loop_, std::initializer_list<int>{SIGINT, SIGTERM}, [&](int) {
    signals.reset();
    end();
  });
  std::fputs("windowctl: subscribed\n", stderr);
  ABSL_CHECK(loop_.RunUntil([this] { return ended_.has_value(); }))
      << "the stream is not over, but nothing is left to wait for";
  return OutcomeOf(*ended_);
}

ExitCode StreamSession::OutcomeOf(const absl::Status& end) {
  return end.ok() ? kSuccess : FailOn(*client_, end);
}

std::function<void(const absl::Status&)> StreamSession::on_end() {
  return [this](const absl::Status& status) { ended_ = status; };
}

ExitCode StreamSession::AwaitWindow(const BrowserId& window) {
  rpc::transport::ClientController controller;
  controller.set_timeout(deadline_->Left());
  google::protobuf::BoolValue visible;
  rpc::BrowserWindow_Stub(client_.get())
      .IsVisible(&controller, &window, &visible, nullptr);
  // UNIMPLEMENTED also shows that the host has handled the subscription.
  if (controller.status().ok() || absl::IsUnimplemented(controller.status()))
    return kSuccess;
  return FailOn(*client_, controller.status());
}

}  // namespace windowctl
