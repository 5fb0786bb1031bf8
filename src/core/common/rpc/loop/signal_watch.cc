#include "core/common/rpc/loop/signal_watch.h"

#include <system_error>
#include <utility>

#include "absl/log/absl_check.h"
#include "core/common/rpc/loop/asio.h"

namespace rpc::loop {

// Shared with the wait under way, within which the watch may be destroyed.
class SignalWatch::State final : public std::enable_shared_from_this<State> {
 public:
  State(Loop& loop, std::initializer_list<int> signals, Handler handler)
      : signals_(loop.context()), handler_(std::move(handler)) {
    for (const int signal : signals) {
      std::error_code error;
      signals_.add(signal, error);
      ABSL_CHECK(!error) << "signal " << signal << ": " << error.message();
    }
  }

  void Wait() {
    signals_.async_wait(
        [self = shared_from_this()](const std::error_code& error, int signal) {
          if (!error && self->watching_) {
            self->Wait();
            self->handler_(signal);
          }
        });
  }

  void Stop() {
    watching_ = false;
    std::error_code ignored;
    signals_.clear(ignored);
    signals_.cancel(ignored);
  }

 private:
  asio::signal_set signals_;
  const Handler handler_;
  bool watching_ = true;
};

SignalWatch::SignalWatch(Loop& loop,
                         std::initializer_list<int> signals,
                         Handler handler)
    : state_(std::make_shared<State>(loop, signals, std::move(handler))) {
  state_->Wait();
}

SignalWatch::~SignalWatch() {
  state_->Stop();
}

}  // namespace rpc::loop
