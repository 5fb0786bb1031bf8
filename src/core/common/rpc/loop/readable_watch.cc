#include "core/common/rpc/loop/readable_watch.h"

#include <system_error>
#include <utility>

#include "absl/log/absl_check.h"
#include "core/common/rpc/loop/asio.h"

namespace rpc::loop {

// Shared with the wait under way, within which the watch may be destroyed.
class ReadableWatch::State final : public std::enable_shared_from_this<State> {
 public:
  State(Loop& loop, int descriptor, Handler handler)
      : descriptor_(loop.context()), handler_(std::move(handler)) {
    std::error_code error;
    descriptor_.assign(descriptor, error);
    ABSL_CHECK(!error) << "descriptor " << descriptor << ": "
                       << error.message();
  }

  void Wait() {
    descriptor_.async_wait(
        asio::posix::stream_descriptor::wait_read,
        [self = shared_from_this()](const std::error_code& error) {
          if (error || !self->watching_) {
            return;
          }
          self->handler_();
          if (self->watching_) {
            self->Wait();
          }
        });
  }

  void Stop() {
    watching_ = false;
    descriptor_.release();
  }

 private:
  asio::posix::stream_descriptor descriptor_;
  const Handler handler_;
  bool watching_ = true;
};

ReadableWatch::ReadableWatch(Loop& loop, int descriptor, Handler handler)
    : state_(std::make_shared<State>(loop, descriptor, std::move(handler))) {
  state_->Wait();
}

ReadableWatch::~ReadableWatch() {
  state_->Stop();
}

}  // namespace rpc::loop
