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
#include "tools/rpcctl/session.h"

namespace windowctl {
namespace {

using google::protobuf::Message;
using google::protobuf::MessageFactory;

std::string TimeOfDay(absl::Time time) {
  return absl::FormatTime("%H:%M:%S", time, absl::LocalTimeZone());
}

}  // namespace

ReconnectingWatch::ReconnectingWatch(const rpcctl::Options& options,
                                     const std::vector<BrowserId>& windows)
    : options_(options),
      sources_(SourcesFor(windows)),
      calls_(AwaitedCallsFor(windows)) {}

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
  streams_.clear();
  for (const rpcctl::EventSource& source : sources_) {
    auto& stream = streams_.emplace_back(
        client, source.method, *MessageFactory::generated_factory(),
        [&](const Message& event) {
          rpcctl::PrintLine(rpcctl::EventLine(options_, source.label, event));
        },
        [this](const absl::Status& status) { OnStreamEnd(status); });
    for (const auto& key : source.keys)
      stream.Subscribe(*key);
  }
  awaited_ = 0;
  AwaitNext();
}

void ReconnectingWatch::AwaitNext() {
  const AwaitedCall& call = calls_[awaited_];
  response_.reset(MessageFactory::generated_factory()
                      ->GetPrototype(call.method->output_type())
                      ->New());
  controller_.Reset();
  host_->client()->CallMethod(
      call.method, &controller_, call.request.get(), response_.get(),
      google::protobuf::NewCallback(this, &ReconnectingWatch::OnReply));
}

void ReconnectingWatch::OnReply() {
  // After a loss the calls are made anew, and at the end no more.
  if (exit_code_ || host_->client() == nullptr)
    return;
  const absl::Status& status = controller_.status();
  if (!IsHandled(status)) {
    exit_code_ = rpcctl::FailOn(*host_->client(), status);
    return;
  }
  if (++awaited_ < calls_.size())
    return AwaitNext();
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
  for (auto& stream : streams_)
    stream.End();
}

}  // namespace windowctl
