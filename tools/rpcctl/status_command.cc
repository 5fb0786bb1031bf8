#include <unistd.h>

#include <chrono>
#include <csignal>
#include <cstdio>
#include <initializer_list>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "absl/strings/str_cat.h"
#include "core/common/rpc/loop/signal_watch.h"
#include "rpc/status/server_status.pb.h"
#include "tools/rpcctl/commands.h"
#include "tools/rpcctl/json.h"
#include "tools/rpcctl/prometheus_text.h"
#include "tools/rpcctl/session.h"
#include "tools/rpcctl/status_text.h"

namespace rpcctl {
namespace {

using rpc::status::StatusReport;

// Empties a terminal and goes to its upper left corner.
constexpr std::string_view kClearTerminal = "\033[H\033[2J\033[3J";

std::string TextOf(const StatusReport& report, const Options& options) {
  if (options.json)
    return absl::StrCat(ToJson(report), "\n");
  return options.prometheus ? PrometheusText(report) : StatusText(report);
}

ExitCode PrintStatus(Session& session, std::string_view before = "") {
  StatusReport report;
  const absl::Status status = session.Call(
      rpc::status::ServerStatus::descriptor()->FindMethodByName("GetStatus"),
      rpc::status::StatusRequest::default_instance(), &report);
  if (!status.ok())
    return FailOn(session.client(), status);
  std::fputs(absl::StrCat(before, TextOf(report, session.options())).c_str(),
             stdout);
  std::fflush(stdout);
  return kSuccess;
}

// Until a signal comes, or the server goes.
ExitCode WatchStatus(Session& session) {
  const bool is_terminal = isatty(STDOUT_FILENO) == 1;
  // Lines of JSON need nothing between them.
  const std::string_view between = session.options().json ? ""
                                   : is_terminal          ? kClearTerminal
                                                          : "\n";
  bool interrupted = false;
  // A second signal ends the process, in case the server does not reply.
  std::optional<rpc::loop::SignalWatch> signals;
  signals.emplace(session.loop(), std::initializer_list<int>{SIGINT, SIGTERM},
                  [&](int) {
                    signals.reset();
                    interrupted = true;
                  });
  std::string_view before = is_terminal ? between : "";
  while (!interrupted) {
    session.RestartTimeout();
    if (ExitCode fault = PrintStatus(session, before); fault != kSuccess)
      return fault;
    before = between;
    bool is_time = false;
    const auto timer = session.loop().RunAfter(std::chrono::seconds(1),
                                               [&] { is_time = true; });
    session.loop().RunUntil([&] {
      return is_time || interrupted || !session.client().status().ok();
    });
  }
  return kSuccess;
}

}  // namespace

ExitCode Status(Session& session, const Arguments& arguments) {
  const Options& options = session.options();
  if (!arguments.empty())
    return Fail(kUsage, "'status' takes no arguments.");
  if (options.json && options.prometheus)
    return Fail(kUsage, "Only one of --json and --prometheus can be given.");
  if (ExitCode fault = session.Connect(); fault != kSuccess)
    return fault;
  return options.watch ? WatchStatus(session) : PrintStatus(session);
}

}  // namespace rpcctl
