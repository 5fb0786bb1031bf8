#include "tools/rpcctl/text_table.h"

#include <algorithm>
#include <utility>

#include "absl/log/absl_check.h"
#include "absl/strings/ascii.h"
#include "absl/strings/str_format.h"
#include "tools/cli/printable.h"

namespace rpcctl {

TextTable::TextTable(const std::vector<Column>& columns)
    : columns_(columns), widths_(columns.size()) {
  Row headings;
  for (const Column& column : columns)
    headings.push_back(column.heading);
  if (headings != Row(columns.size()))
    AddRow(std::move(headings));
}

void TextTable::AddRow(Row row) {
  ABSL_CHECK_EQ(row.size(), columns_.size());
  for (size_t i = 0; i < row.size(); ++i) {
    row[i] = cli::Printable(row[i]);
    widths_[i] = std::max(widths_[i], row[i].size());
  }
  rows_.push_back(std::move(row));
}

std::string TextTable::ToString() const {
  std::string text;
  for (const Row& row : rows_) {
    std::string line;
    for (size_t i = 0; i < row.size(); ++i) {
      const char* const gap = i == 0 ? "" : "  ";
      if (columns_[i].alignment == kRight)
        absl::StrAppendFormat(&line, "%s%*s", gap, widths_[i], row[i]);
      else
        absl::StrAppendFormat(&line, "%s%-*s", gap, widths_[i], row[i]);
    }
    absl::StripTrailingAsciiWhitespace(&line);
    text += line + "\n";
  }
  return text;
}

}  // namespace rpcctl
