#include "core/common/rpc/grpc/front/deadline.h"

#include <algorithm>
#include <cstdint>

namespace rpc::grpc {
namespace {

constexpr std::chrono::seconds kCentury = std::chrono::hours(24 * 36'500);

}  // namespace

std::optional<std::chrono::steady_clock::time_point> DeadlineOf(
    gpr_timespec raw_deadline) {
  const gpr_clock_type clock = raw_deadline.clock_type;
  if (gpr_time_cmp(raw_deadline, gpr_inf_future(clock)) == 0) {
    return std::nullopt;
  }
  const gpr_timespec left = gpr_time_sub(raw_deadline, gpr_now(clock));
  return std::chrono::steady_clock::now() +
         std::clamp(std::chrono::seconds(left.tv_sec), -kCentury, kCentury) +
         std::chrono::nanoseconds(left.tv_nsec);
}

}  // namespace rpc::grpc
