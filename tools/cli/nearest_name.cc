#include "tools/cli/nearest_name.h"

#include <algorithm>
#include <numeric>

#include "absl/strings/ascii.h"
#include "absl/strings/str_cat.h"

namespace cli {
namespace {

// The Levenshtein distance between `a` and `b`. row[j] is the distance between
// the letters of `a` so far and the first j of `b`.
size_t Distance(std::string_view a, std::string_view b) {
  std::vector<size_t> row(b.size() + 1);
  std::iota(row.begin(), row.end(), 0);
  for (size_t i = 0; i < a.size(); ++i) {
    size_t diagonal = row[0];
    row[0] = i + 1;
    for (size_t j = 0; j < b.size(); ++j) {
      const bool same = absl::ascii_tolower(a[i]) == absl::ascii_tolower(b[j]);
      const size_t replaced = diagonal + (same ? 0 : 1);
      diagonal = row[j + 1];
      row[j + 1] = std::min({replaced, row[j] + 1, row[j + 1] + 1});
    }
  }
  return row.back();
}

}  // namespace

std::optional<std::string> NearestName(
    std::string_view name,
    const std::vector<std::string>& candidates) {
  // Accepts a third of the letters being wrong, or two letters swapped in a
  // short name. With more differences it is probably another word.
  size_t nearest_distance = std::max<size_t>(2, name.size() / 3) + 1;
  std::optional<std::string> nearest;
  for (const std::string& candidate : candidates) {
    const size_t distance = Distance(name, candidate);
    if (distance >= nearest_distance)
      continue;
    nearest_distance = distance;
    nearest = candidate;
  }
  return nearest;
}

std::string DidYouMean(std::string_view name,
                       const std::vector<std::string>& candidates) {
  const std::optional<std::string> nearest = NearestName(name, candidates);
  return nearest ? absl::StrCat(" Did you mean ", *nearest, "?") : "";
}

}  // namespace cli
