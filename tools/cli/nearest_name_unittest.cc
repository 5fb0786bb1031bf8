#include "tools/cli/nearest_name.h"

#include "gtest/gtest.h"

namespace cli {
namespace {

TEST(NearestName, MissingWrongAndSurplusLettersAreForgiven) {
  const std::vector<std::string> names = {"Show", "Maximize", "Minimize"};
  EXPECT_EQ("Maximize", NearestName("Maxmize", names));
  EXPECT_EQ("Maximize", NearestName("Maxinize", names));
  EXPECT_EQ("Maximize", NearestName("Maximizze", names));
}

TEST(NearestName, SwappedLettersInAShortNameAreForgiven) {
  EXPECT_EQ("Show", NearestName("Shwo", {"Hide", "Show"}));
}

TEST(NearestName, UpperAndLowerCaseAreTheSame) {
  EXPECT_EQ("GetTitle", NearestName("gettitle", {"SetTitle", "GetTitle"}));
}

TEST(NearestName, OfEqualsTheFirstIsTaken) {
  EXPECT_EQ("Hide", NearestName("Hid", {"Hide", "Hidy"}));
}

TEST(NearestName, AnotherWordIsNotSuggested) {
  EXPECT_EQ(std::nullopt, NearestName("Teleport", {"Show", "Maximize"}));
  EXPECT_EQ(std::nullopt, NearestName("", {"Show"}));
  EXPECT_EQ(std::nullopt, NearestName("Show", {}));
}

TEST(DidYouMean, AsksOnlyWhenThereIsASuggestion) {
  EXPECT_EQ(" Did you mean Show?", DidYouMean("Shw", {"Show"}));
  EXPECT_EQ("", DidYouMean("Teleport", {"Show"}));
}

}  // namespace
}  // namespace cli
