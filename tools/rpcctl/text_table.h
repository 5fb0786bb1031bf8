// Aligns text in columns, each as wide as its widest cell.
//
//   TextTable table({{"NAME"}, {"PID", TextTable::kRight}});
//   table.AddRow({"painter", "4711"});
//   table.ToString()     "NAME      PID\npainter  4711\n"
//
// Cells are written in printable characters (tools/cli/printable.h), since many
// come from the server. They are aligned as if they were ASCII. No line ends in
// blanks. A table whose headings are all empty has no line of headings.
//
// Sequence: any one.
//
// Failure: a row with another number of cells than there are columns ends the
// process.

#ifndef TOOLS_RPCCTL_TEXT_TABLE_H_
#define TOOLS_RPCCTL_TEXT_TABLE_H_

#include <string>
#include <vector>

namespace rpcctl {

class TextTable {
 public:
  enum Alignment { kLeft, kRight };

  struct Column {
    std::string heading;
    Alignment alignment = kLeft;
  };
  using Row = std::vector<std::string>;

  explicit TextTable(const std::vector<Column>& columns);

  void AddRow(Row row);

  std::string ToString() const;

 private:
  std::vector<Column> columns_;
  std::vector<size_t> widths_;
  std::vector<Row> rows_;
};

}  // namespace rpcctl

#endif  // TOOLS_RPCCTL_TEXT_TABLE_H_
