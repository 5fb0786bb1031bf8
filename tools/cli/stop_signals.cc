#include "tools/cli/stop_signals.h"

#include <signal.h>

#include <initializer_list>
#include <utility>

namespace cli {
namespace {

using Signals = std::initializer_list<int>;

bool IsIgnored(int signal) {
  struct sigaction action;
  return sigaction(signal, nullptr, &action) == 0 &&
         action.sa_handler == SIG_IGN;
}

}  // namespace

StopSignals::StopSignals(rpc::loop::Loop& loop, Handler on_stop)
    : on_stop_(std::move(on_stop)) {
  const auto on_signal = [this](int) { OnSignal(); };
  if (IsIgnored(SIGHUP))
    watch_.emplace(loop, Signals{SIGINT, SIGQUIT, SIGTERM}, on_signal);
  else
    watch_.emplace(loop, Signals{SIGINT, SIGQUIT, SIGTERM, SIGHUP}, on_signal);
}

void StopSignals::OnSignal() {
  watch_.reset();
  // Moved out: the handler may destroy this.
  const Handler on_stop = std::move(on_stop_);
  on_stop();
}

}  // namespace cli
