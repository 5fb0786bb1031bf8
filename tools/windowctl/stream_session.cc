#include "tools/windowctl/stream_session.h"

#include <csignal>
#include <cstdio>
#include <string>
#include <utility>

#include "absl/strings/numbers.h"
#include "absl/strings/str_cat.h"
#include "core/common/rpc/transport/client_controller.h"
#include "rpc/browser/browser_window.pb.h"
#include "tools/windowctl/connect.h"

namespace windowctl {

StreamSession::StreamSession(const Options& options)
    : options_(options), signals_(loop_) {}

ExitCode StreamSession::Open(const Arguments& window_words) {
  for (const std::string& word : window_words) {
    int64_t id;
    if (!absl::SimpleAtoi(word, &id)) {
      return Fail(kUsage, absl::StrCat("'", word, "' is not a window's id."));
    }
    windows_.emplace_back().set_value(id);
  }
  if (windows_.empty())
    return Fail(kUsage, "Name at least one window by its id.");
  auto client = Connect(loop_, options_.socket);
  if (!client.ok())
    return Fail(kNoConnection, client.status().message());
  client_ = *std::move(client);
  return kSuccess;
}

ExitCode StreamSession::Run(std::function<void()> end) {
  for (const BrowserId& window : windows_) {
    if (ExitCode fault = AwaitWindow(window); fault != kSuccess)
      return fault;
  }
  // The host may have ended the stream before it replied.
  loop_.poll();
  if (ended_)
    return OutcomeOf(*ended_);
  // Not before: until here a signal ends the process.
  signals_.add(SIGINT);
  signals_.add(SIGTERM);
  std::fputs("windowctl: subscribed\n", stderr);
  // The next signal ends the process, should the host not react to this one.
  signals_.async_wait([this, &end](std::error_code error, int) {
    if (error)
      return;
    signals_.clear();
    end();
  });
  while (!ended_)
    loop_.run_one();
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
  controller.set_timeout(options_.timeout);
  google::protobuf::BoolValue visible;
  rpc::BrowserWindow_Stub(client_.get())
      .IsVisible(&controller, &window, &visible, nullptr);
  // A host without this method has heard of the subscription all the same.
  if (controller.status().ok() || absl::IsUnimplemented(controller.status()))
    return kSuccess;
  return FailOn(*client_, controller.status());
}

}  // namespace windowctl
