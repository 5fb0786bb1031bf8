#include "core/common/rpc/transport/wire/turns.h"

#include <utility>

namespace rpc::transport {

asio::execution_context::id Turns::id;

Turns::Turns(asio::execution_context& context) : service(context) {}

Turns::~Turns() = default;

void Turns::Add(std::function<void()> turn) {
  waiting_.push_back(std::move(turn));
  if (waiting_.size() == 1) {
    PostNext();
  }
}

void Turns::shutdown() {
  waiting_.clear();
}

// The next turn is posted before this one begins, in case that runs the loop.
void Turns::PostNext() {
  asio::post(static_cast<asio::io_context&>(context()), [this] {
    const std::function<void()> turn = std::move(waiting_.front());
    waiting_.pop_front();
    if (!waiting_.empty()) {
      PostNext();
    }
    turn();
  });
}

}  // namespace rpc::transport
