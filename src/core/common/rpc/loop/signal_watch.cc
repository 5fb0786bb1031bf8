#include "core/common/rpc/loop/signal_watch.h"

#include <system_error>
#include <utility>

#include "absl/log/absl_check.h"
#include "core/common/rpc/loop/asio.h"

namespace rpc::loop {

// Shared with the wait under way, within which the watch may be destroyed.
struct SignalWatch::State {
  asio::signal_set signals;
  Handler handler;
  bool watching = true;

  static void Wait(const std::shared_ptr<State>& state) {
    state->signals.async_wait([state](const std::error_code&, int signal) {
      if (state->watching) {
        Wait(state);
        state->handler(signal);
      }
    });
  }
};

SignalWatch::SignalWatch(Loop& loop,
                         std::initializer_list<int> signals,
                         Handler handler)
    : state_(new State{asio::signal_set(loop.context()), std::move(handler)}) {
  for (const int signal : signals) {
    std::error_code error;
    state_->signals.add(signal, error);
    ABSL_CHECK(!error) << "signal " << signal << ": " << error.message();
  }
  State::Wait(state_);
}

SignalWatch::~SignalWatch() {
  state_->watching = false;
  std::error_code ignored;
  state_->signals.clear(ignored);
  state_->signals.cancel(ignored);
}

}  // namespace rpc::loop
