#include "tools/rpcctl/text_table.h"

#include "gtest/gtest.h"

namespace rpcctl {
namespace {

TEST(TextTableTest, HasHeadingsWithoutRows) {
  EXPECT_EQ("NAME  PID\n", TextTable({{"NAME"}, {"PID"}}).ToString());
}

TEST(TextTableTest, HasNoLineOfEmptyHeadings) {
  TextTable table({{""}, {"", TextTable::kRight}});
  EXPECT_EQ("", table.ToString());
  table.AddRow({"painter", "4711"});
  EXPECT_EQ("painter  4711\n", table.ToString());
}

TEST(TextTableTest, ColumnsAreAsWideAsTheirWidestCell) {
  TextTable table({{"NAME"}, {"PID", TextTable::kRight}, {"STATE"}});
  table.AddRow({"painter", "4711", "ok"});
  table.AddRow({"x", "12", "stopped"});
  EXPECT_EQ(
      "NAME      PID  STATE\n"
      "painter  4711  ok\n"
      "x          12  stopped\n",
      table.ToString());
}

TEST(TextTableTest, CellsAreEscapedAndAlignedByWhatIsPrinted) {
  TextTable table({{"NAME"}, {"PID"}});
  table.AddRow({"\x1b[2J\u202e\n", "1"});
  table.AddRow({"x", "2"});
  EXPECT_EQ(
      "NAME               PID\n"
      "\\x1b[2J\\u202e\\x0a  1\n"
      "x                  2\n",
      table.ToString());
}

TEST(TextTableTest, NoLineEndsInBlanks) {
  TextTable table({{"NAME"}, {"REMARK"}});
  table.AddRow({"x", ""});
  EXPECT_EQ("NAME  REMARK\nx\n", table.ToString());
}

TEST(TextTableDeathTest, RowMustFitTheColumns) {
  TextTable table({{"NAME"}, {"PID"}});
  EXPECT_DEATH(table.AddRow({"x"}), "");
}

}  // namespace
}  // namespace rpcctl
