#include "tools/cli/limit_flags.h"

#include <algorithm>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <string>
#include <utility>
#include <vector>

#include "absl/strings/str_cat.h"
#include "absl/strings/str_replace.h"
#include "core/common/rpc/serving/limit_table.h"

namespace cli {
namespace {

using rpc::serving::kLimitTable;
using rpc::serving::LimitInfo;
using rpc::serving::Limits;
using std::chrono::milliseconds;

std::string FlagName(const LimitInfo& limit) {
  return absl::StrReplaceAll(limit.name, {{"_", "-"}});
}

bool IsAmong(LimitNames names, const LimitInfo& limit) {
  return names.empty() || std::ranges::find(names, limit.name) != names.end();
}

// `value` as the user types it: times are milliseconds in the table, but
// seconds in flags.
std::string ValueText(const LimitInfo& limit, int64_t value) {
  return limit.size != nullptr
             ? absl::StrCat(value)
             : absl::StrCat(
                   std::chrono::duration<double>(milliseconds(value)).count());
}

}  // namespace

void AddLimitFlags(Flags& flags, Limits* limits, LimitNames names) {
  for (const LimitInfo& limit : kLimitTable) {
    if (!IsAmong(names, limit))
      continue;
    if (limit.size != nullptr) {
      flags.AddSize(FlagName(limit), static_cast<size_t>(limit.least),
                    static_cast<size_t>(limit.most), &(limits->*limit.size));
    } else {
      flags.AddSeconds(FlagName(limit), &(limits->*limit.time),
                       milliseconds(limit.least), milliseconds(limit.most));
    }
  }
}

absl::Status CheckLimits(const Limits& limits) {
  absl::Status fault = rpc::serving::Validate(limits);
  if (fault.ok())
    return fault;
  // Replaces the names of limits in the text by those of their flags.
  std::vector<std::pair<std::string, std::string>> flags;
  for (const LimitInfo& limit : kLimitTable)
    flags.emplace_back(limit.name, absl::StrCat("--", FlagName(limit)));
  return absl::InvalidArgumentError(absl::StrCat(
      "The limit ", absl::StrReplaceAll(fault.message(), flags), "."));
}

std::vector<FlagDescription> DescribeLimits(LimitNames names) {
  const Limits defaults;
  std::vector<FlagDescription> flags;
  for (const LimitInfo& limit : kLimitTable) {
    if (!IsAmong(names, limit))
      continue;
    flags.push_back(
        {FlagName(limit), limit.size != nullptr ? "N" : "SECONDS",
         absl::StrCat(limit.meaning, ",\n", ValueText(limit, limit.least),
                      " to ", ValueText(limit, limit.most), "; default: ",
                      ValueText(limit, limit.ValueIn(defaults)))});
  }
  return flags;
}

}  // namespace cli
