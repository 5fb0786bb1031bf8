#include "core/common/rpc/serving/record_rate.h"

#include <chrono>
#include <utility>

#include "base/logging.h"

namespace rpc::serving {
namespace {

constexpr std::chrono::seconds kSecond{1};

}  // namespace

RecordRate::RecordRate(loop::Sequence& sequence) : sequence_(sequence) {}

RecordRate::~RecordRate() {
  Flush();
}

void RecordRate::Warn(const std::string& text) {
  const loop::Clock::time_point now = sequence_.Now();
  if (now - second_ >= kSecond) {
    Flush();
    second_ = now;
    written_ = 0;
  }
  if (written_ < kRecordsPerSecond) {
    ++written_;
    LOG(WARNING) << text;
    return;
  }
  if (++left_out_ == 1) {
    timer_ = sequence_.RunAt(second_ + kSecond, [this] { Flush(); });
  }
}

void RecordRate::Flush() {
  timer_.reset();
  if (left_out_ > 0) {
    LOG(WARNING) << "Left out " << std::exchange(left_out_, 0)
                 << " records of clients that were refused something or closed";
  }
}

}  // namespace rpc::serving
