// Prose in lines that a terminal of 80 columns shows whole.
//
//   Columns({{"--socket PATH", "where the host listens"}})
//       "  --socket PATH  where the host listens\n"
//
// Line breaks of the text stay, and so does a line that begins with two spaces,
// as it is.
//
// Sequence: any thread.
//
// Failure: none. A word that is longer than a line gets one of its own.

#ifndef TOOLS_CLI_TEXT_LAYOUT_H_
#define TOOLS_CLI_TEXT_LAYOUT_H_

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

namespace cli {

inline constexpr size_t kLineWidth = 80;

// The lines of the text, of at most `width` bytes.
std::vector<std::string> Wrap(std::string_view text, size_t width);

// Something, and what is said of it.
struct Row {
  std::string left;
  std::string text;
};

// The rows in two columns, indented. Beside a very long name there is nothing:
// its text begins on the next line.
std::string Columns(const std::vector<Row>& rows);

}  // namespace cli

#endif  // TOOLS_CLI_TEXT_LAYOUT_H_
