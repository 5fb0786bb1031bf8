#include "tools/cli/text_layout.h"

#include <string>

#include "gmock/gmock.h"
#include "gtest/gtest.h"

namespace cli {
namespace {

using ::testing::ElementsAre;

TEST(TextLayoutTest, LinesAreAsLongAsTheWidthAllows) {
  EXPECT_THAT(Wrap("ab cd efg", 5), ElementsAre("ab cd", "efg"));
  EXPECT_THAT(Wrap("ab cd efg", 4), ElementsAre("ab", "cd", "efg"));
  EXPECT_THAT(Wrap("  ", 4), ElementsAre("  "));
}

TEST(TextLayoutTest, WordThatIsLongerThanALineHasOneOfItsOwn) {
  EXPECT_THAT(Wrap("a bcdefg h", 3), ElementsAre("a", "bcdefg", "h"));
}

TEST(TextLayoutTest, LineBreaksAndIndentedLinesStayAsTheyAre) {
  EXPECT_THAT(Wrap("First:\n\n  a   b c d e f\n\nLast.", 8),
              ElementsAre("First:", "", "  a   b c d e f", "", "Last."));
}

TEST(TextLayoutTest, ColumnIsAsWideAsTheLongestName) {
  EXPECT_EQ("  a    one\n  bcd  two\n       three\n  e\n",
            Columns({{"a", "one"}, {"bcd", "two\nthree"}, {"e", ""}}));
}

TEST(TextLayoutTest, NoLineEndsInBlanks) {
  EXPECT_EQ("  a  one\n\n     two\n  b\n",
            Columns({{"a", "one\n\ntwo"}, {"b", ""}}));
}

TEST(TextLayoutTest, TextBesideAVeryLongNameBeginsOnTheNextLine) {
  const std::string name(29, 'n');
  EXPECT_EQ("  " + name + "\n" + std::string(32, ' ') + "long\n  b" +
                std::string(29, ' ') + "short\n",
            Columns({{name, "long"}, {"b", "short"}}));
}

}  // namespace
}  // namespace cli
