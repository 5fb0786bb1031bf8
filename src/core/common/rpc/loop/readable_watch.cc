#include "core/common/rpc/loop/readable_watch.h"

#include <system_error>
#include <utility>

#include "absl/log/absl_check.h"
#include "core/common/rpc/loop/asio.h"

namespace rpc::loop {

// Shared with the wait under way, within which the watch may be destroyed.
struct ReadableWatch::State {
  asio::posix::stream_descriptor descriptor;
  Handler handler;
  bool watching = true;

  static void Wait(const std::shared_ptr<State>& state) {
    state->descriptor.async_wait(asio::posix::stream_descriptor::wait_read,
                                 [state](const std::error_code&) {
                                   if (state->watching) {
                                     state->handler();
                                   }
                                   if (state->watching) {
                                     Wait(state);
                                   }
                                 });
  }
};

ReadableWatch::ReadableWatch(Loop& loop, int descriptor, Handler handler)
    : state_(new State{asio::posix::stream_descriptor(loop.context()),
                       std::move(handler)}) {
  std::error_code error;
  state_->descriptor.assign(descriptor, error);
  ABSL_CHECK(!error) << "descriptor " << descriptor << ": " << error.message();
  State::Wait(state_);
}

ReadableWatch::~ReadableWatch() {
  state_->watching = false;
  state_->descriptor.release();
}

}  // namespace rpc::loop
