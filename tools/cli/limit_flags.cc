#include "tools/cli/limit_flags.h"

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <utility>
#include <vector>

#include "absl/strings/str_cat.h"
#include "absl/strings/str_format.h"
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

// `value` as the user types it: times are milliseconds in the table, but
// seconds in flags.
std::string ValueText(const LimitInfo& limit, int64_t value) {
  return limit.size != nullptr
             ? absl::StrCat(value)
             : absl::StrCat(
                   std::chrono::duration<double>(milliseconds(value)).count());
}

}  // namespace

void AddLimitFlags(Flags& flags, Limits* limits) {
  for (const LimitInfo& limit : kLimitTable) {
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

std::string LimitHelp() {
  const Limits defaults;
  std::string help;
  for (const LimitInfo& limit : kLimitTable) {
    const char* const unit = limit.size != nullptr ? " N" : " SECONDS";
    absl::StrAppendFormat(&help, "  --%-25s  %s,\n%31s%s to %s; default: %s\n",
                          absl::StrCat(FlagName(limit), unit), limit.meaning,
                          "", ValueText(limit, limit.least),
                          ValueText(limit, limit.most),
                          ValueText(limit, limit.ValueIn(defaults)));
  }
  return help;
}

}  // namespace cli
