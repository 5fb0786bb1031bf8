#include "core/common/rpc/serving/limits.h"

#include "absl/strings/str_cat.h"
#include "core/common/rpc/serving/limit_table.h"

namespace rpc::serving {
namespace {

absl::Status OutOfRange(const LimitInfo& limit,
                        int64_t value,
                        int64_t least,
                        int64_t most) {
  return absl::InvalidArgumentError(
      absl::StrCat(limit.name, " is ", value, ", not ", least, " to ", most));
}

}  // namespace

absl::Status Validate(const Limits& limits) {
  for (const LimitInfo& limit : kLimitTable) {
    const int64_t value = limit.ValueIn(limits);
    if (value < limit.least || value > limit.most) {
      return OutOfRange(limit, value, limit.least, limit.most);
    }
  }
  if (limits.busy_outbox_bytes > limits.max_outbox_bytes) {
    return absl::InvalidArgumentError(
        absl::StrCat("busy_outbox_bytes, ", limits.busy_outbox_bytes,
                     ", is above max_outbox_bytes, ", limits.max_outbox_bytes));
  }
  return absl::OkStatus();
}

}  // namespace rpc::serving
