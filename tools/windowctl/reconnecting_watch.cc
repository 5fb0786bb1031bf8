#include "tools/windowctl/reconnecting_watch.h"

#include <chrono>
#include <csignal>
#include <initializer_list>
#include <string>
#include <utility>

#include "absl/log/absl_check.h"
#include "absl/strings/str_cat.h"
#include "absl/time/clock.h"
#include "core/common/rpc/loop/signal_watch.h"
#include "tools/cli/socket_path.h"
#include "tools/rpcctl/commands.h"
#include "tools/rpcctl/json.h"
#include "tools/rpcctl/session.h"

namespace windowctl {
namespace {

std::string TimeOfDay(absl::Time time) {
  return absl::FormatTime("%H:%M:%S", time, absl::LocalTimeZone());
}

}  // namespace

ReconnectingWatch::ReconnectingWatch(const rpcctl::Options& options,
                                     std::vector<BrowserId> windows)
    : options_(options), windows_(std::move(windows)) {}

ReconnectingWatch::~ReconnectingWatch() = default;

rpcctl::ExitCode ReconnectingWatch::Run() {
  const absl::Status folder = cli::CheckSocketFolder(options_.socket);
  if (!folder.ok())
    return rpcctl::Fail(rpcctl::kNoConnection, folder.message());
  // A second signal ends the process, in case the host does not react.
  std::optional<rpc::loop::SignalWatch> signals;
  signals.emplace(loop_, std::initializer_list<int>{SIGINT, SIGTERM}, [&](int) {
    signals.reset();
    OnInterrupt();
  });
  rpc::transport::ReconnectingOptions options;
  options.client = rpcctl::ClientOptionsFor(options_);
  options.client.call_timeout = options_.timeout;
  host_.emplace(
      loop_, options_.socket, std::move(options),
      [this](rpc::transport::Client& client,
             const std::optional<Host::Gap>& gap) { OnConnected(client, gap); },
      [this](const absl::Status& why, std::chrono::milliseconds) {
        OnDown(why);
      });
  ABSL_CHECK(loop_.RunUntil([this] { return exit_code_.has_value(); }))
      << "the watch is not over, but nothing is left to wait for";
  return *exit_code_;
}

void ReconnectingWatch::OnConnected(rpc::transport::Client& client,
                                    const std::optional<Host::Gap>& gap) {
  if (gap && !missing_since_)
    missing_since_ = absl::Now() - absl::FromChrono(loop_.Now() - gap->lost);
  events_.emplace(
      client,
      rpc::BrowserWindow::descriptor()->FindMethodByName(
          "WhenBrowserWindowClosed"),
      [](const rpc::BrowserWindowClosed& event) {
        rpcctl::PrintLine(rpcctl::ToJson(event));
      },
      [this](const absl::Status& status) { OnStreamEnd(status); });
  for (const BrowserId& window : windows_)
    events_->Subscribe(window);
  awaited_ = 0;
  AwaitNextWindow();
}

void ReconnectingWatch::AwaitNextWindow() {
  controller_.Reset();
  rpc::BrowserWindow_Stub(host_->client())
      .IsVisible(
          &controller_, &windows_[awaited_], &visible_,
          google::protobuf::NewCallback(this, &ReconnectingWatch::OnReply));
}

void ReconnectingWatch::OnReply() {
  // After a loss the windows are asked about anew, and at the end no more.
  if (exit_code_ || host_->client() == nullptr)
    return;
  const absl::Status& status = controller_.status();
  // UNIMPLEMENTED also shows that the host has handled the subscription.
  if (!status.ok() && !absl::IsUnimplemented(status)) {
    exit_code_ = rpcctl::FailOn(*host_->client(), status);
    return;
  }
  if (++awaited_ < windows_.size())
    return AwaitNextWindow();
  OnSubscribed();
}

void ReconnectingWatch::OnSubscribed() {
  down_ = absl::OkStatus();
  if (!missing_since_) {
    rpcctl::Say("subscribed");
    return;
  }
  rpcctl::Say(absl::StrCat("subscribed again; events from ",
                           TimeOfDay(*missing_since_), " to ",
                           TimeOfDay(absl::Now()), " may have been missed"));
  missing_since_.reset();
}

void ReconnectingWatch::OnDown(const absl::Status& why) {
  if (interrupted_)
    exit_code_ = rpcctl::kSuccess;
  // Each attempt fails like the one before, as long as there is no host.
  if (exit_code_ || std::exchange(down_, why) == why)
    return;
  rpcctl::Fail(rpcctl::kNoConnection, why);
}

void ReconnectingWatch::OnStreamEnd(const absl::Status& status) {
  if (status.ok())
    exit_code_ = rpcctl::kSuccess;
  else if (!exit_code_ && host_->client() != nullptr)
    exit_code_ = rpcctl::FailOn(*host_->client(), status);
}

void ReconnectingWatch::OnInterrupt() {
  interrupted_ = true;
  if (host_->client() == nullptr)
    exit_code_ = rpcctl::kSuccess;
  else
    events_->End();
}

}  // namespace windowctl
