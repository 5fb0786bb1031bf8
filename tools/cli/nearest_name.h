// Finds the name that somebody who has mistyped it probably meant.
//
//   NearestName("mximize", {"Maximize", "Minimize"})   "Maximize"
//
// Sequence: any thread.
//
// Failure: nullopt when no candidate is similar enough.

#ifndef TOOLS_CLI_NEAREST_NAME_H_
#define TOOLS_CLI_NEAREST_NAME_H_

#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace cli {

// The candidate that takes the fewest insertions, deletions and replacements of
// letters to reach, ignoring case; the first of several equal ones.
std::optional<std::string> NearestName(
    std::string_view name,
    const std::vector<std::string>& candidates);

// Returns " Did you mean NAME?", for the end of an error message, or nothing.
std::string DidYouMean(std::string_view name,
                       const std::vector<std::string>& candidates);

}  // namespace cli

#endif  // TOOLS_CLI_NEAREST_NAME_H_
