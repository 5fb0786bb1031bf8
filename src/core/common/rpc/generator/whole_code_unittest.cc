#include "core/common/rpc/generator/whole_code.h"

#include <gtest/gtest.h>

namespace torvane::generator {
namespace {

TEST(WholeCode, HasEverythingClosed) {
  EXPECT_EQ(WhyNotWhole(""), "");
  EXPECT_EQ(
      WhyNotWhole("#ifndef A\nint a[] = {f(\"\\\"{\")};  // ( \" $\n#endif"),
      "");
  EXPECT_EQ(WhyNotWhole("char c = '\\'';"), "");
}

TEST(WholeCode, ClosesEveryBracketWithItsOwn) {
  EXPECT_EQ(WhyNotWhole("f(a[1);"), "nothing opens )");
  EXPECT_EQ(WhyNotWhole("}"), "nothing opens }");
  EXPECT_EQ(WhyNotWhole("f(]"), "nothing opens ]");
  EXPECT_EQ(WhyNotWhole("{ f();"), "nothing closes {");
}

TEST(WholeCode, ClosesLiteralsOnTheirLine) {
  EXPECT_EQ(WhyNotWhole("s = \"abc;\n\""), "nothing closes \"");
  EXPECT_EQ(WhyNotWhole("c = '\\';"), "nothing closes '");
}

TEST(WholeCode, ClosesConditions) {
  EXPECT_EQ(WhyNotWhole("#ifndef A\n"), "nothing closes #if");
  EXPECT_EQ(WhyNotWhole("#endif\n"), "nothing opens #endif");
}

TEST(WholeCode, HasNoVariablesLeft) {
  EXPECT_EQ(WhyNotWhole("class $class$ {};"), "a variable is left");
}

}  // namespace
}  // namespace torvane::generator
