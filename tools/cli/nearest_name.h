// Finds what somebody probably meant who has mistyped a name.
//
//   NearestName("mximize", {"Maximize", "Minimize"})   "Maximize"
//
// Sequence: any thread.
//
// Failure: nothing, when no candidate is similar enough to be worth suggesting.

#ifndef TOOLS_CLI_NEAREST_NAME_H_
#define TOOLS_CLI_NEAREST_NAME_H_

#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace cli {

// The candidate that takes the fewest insertions, deletions and replacements of
// letters to reach, upper and lower case being the same; of equals, the first.
std::optional<std::string> NearestName(
    std::string_view name,
    const std::vector<std::string>& candidates);

// " Did you mean NAME?", or nothing: for the end of an error message.
std::string DidYouMean(std::string_view name,
                       const std::vector<std::string>& candidates);

}  // namespace cli

#endif  // TOOLS_CLI_NEAREST_NAME_H_
