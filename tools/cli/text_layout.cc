#include "tools/cli/text_layout.h"

#include <algorithm>
#include <utility>

#include "absl/strings/match.h"
#include "absl/strings/str_cat.h"
#include "absl/strings/str_split.h"

namespace cli {
namespace {

// A longer left column has its text on the next line.
constexpr size_t kMaxLeft = 28;

}  // namespace

std::vector<std::string> Wrap(std::string_view text, size_t width) {
  std::vector<std::string> lines;
  for (std::string_view paragraph : absl::StrSplit(text, '\n')) {
    if (paragraph.empty() || absl::StartsWith(paragraph, "  ")) {
      lines.emplace_back(paragraph);
      continue;
    }
    std::string line;
    for (std::string_view word :
         absl::StrSplit(paragraph, ' ', absl::SkipEmpty())) {
      if (!line.empty() && line.size() + 1 + word.size() > width) {
        lines.push_back(line);
        line.clear();
      }
      absl::StrAppend(&line, line.empty() ? "" : " ", word);
    }
    lines.push_back(line);
  }
  return lines;
}

std::string Columns(const std::vector<Row>& rows) {
  size_t left = 0;
  for (const Row& row : rows)
    left = std::max(left, std::min(row.left.size(), kMaxLeft));
  const size_t indent = left + 4;
  std::string columns;
  for (const Row& row : rows) {
    std::string line = absl::StrCat("  ", row.left);
    if (row.left.size() > left)
      absl::StrAppend(&columns, std::exchange(line, ""), "\n");
    for (const std::string& text : Wrap(row.text, kLineWidth - indent)) {
      line.resize(text.empty() ? line.size() : indent, ' ');
      absl::StrAppend(&columns, std::exchange(line, ""), text, "\n");
    }
  }
  return columns;
}

}  // namespace cli
