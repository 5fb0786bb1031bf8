#include "tools/cli/flags.h"

#include "absl/strings/str_cat.h"
#include "gmock/gmock.h"
#include "gtest/gtest.h"

namespace cli {
namespace {

using ::testing::ElementsAre;

class FlagsTest : public ::testing::Test {
 protected:
  FlagsTest() {
    flags_.AddSwitch("help", &help_);
    flags_.AddText("socket", &socket_);
    flags_.AddText("title", &title_);
    flags_.AddInteger("windows", 0, 100, &windows_);
    flags_.AddSize("bytes", 1, size_t{1} << 40, &bytes_);
    flags_.AddSeconds("timeout", &timeout_);
  }

  absl::StatusOr<std::vector<std::string>> Parse(
      std::vector<const char*> words) {
    words.insert(words.begin(), "program");
    return flags_.Parse(static_cast<int>(words.size()), words.data());
  }

  std::string Fault(std::vector<const char*> words) {
    absl::Status status = Parse(std::move(words)).status();
    EXPECT_EQ(absl::StatusCode::kInvalidArgument, status.code());
    return std::string(status.message());
  }

  bool help_ = false;
  std::string socket_ = "default";
  std::optional<std::string> title_;
  int windows_ = 3;
  size_t bytes_ = 5;
  std::chrono::milliseconds timeout_{10'000};
  Flags flags_;
};

TEST_F(FlagsTest, WithoutWordsNothingChanges) {
  EXPECT_THAT(*Parse({}), ElementsAre());
  EXPECT_FALSE(help_);
  EXPECT_EQ("default", socket_);
  EXPECT_EQ(3, windows_);
  EXPECT_EQ(std::chrono::seconds(10), timeout_);
}

TEST_F(FlagsTest, ValuesFollowAsNextWordOrAfterAnEqualsSign) {
  EXPECT_THAT(*Parse({"--socket", "a=b", "--windows=7", "--timeout", "0.25"}),
              ElementsAre());
  EXPECT_EQ("a=b", socket_);
  EXPECT_EQ(7, windows_);
  EXPECT_EQ(std::chrono::milliseconds(250), timeout_);
}

TEST_F(FlagsTest, FlagsThatAreGivenAreNamedInTheirOrder) {
  EXPECT_TRUE(Parse({"--windows=7", "word", "-h", "--socket", "a"}).ok());
  EXPECT_THAT(flags_.given(), ElementsAre("windows", "help", "socket"));
}

TEST_F(FlagsTest, ValueMayBeEmptyOrLookLikeAFlag) {
  ASSERT_TRUE(Parse({"--socket="}).ok());
  EXPECT_EQ("", socket_);
  ASSERT_TRUE(Parse({"--socket", "--help"}).ok());
  EXPECT_EQ("--help", socket_);
  EXPECT_FALSE(help_);
}

TEST_F(FlagsTest, EmptyTextDiffersFromNone) {
  ASSERT_TRUE(Parse({}).ok());
  EXPECT_EQ(std::nullopt, title_);
  ASSERT_TRUE(Parse({"--title", ""}).ok());
  EXPECT_EQ("", title_);
}

TEST_F(FlagsTest, FlagsAndArgumentsMix) {
  EXPECT_THAT(*Parse({"call", "--help", "Show", "-5", "-"}),
              ElementsAre("call", "Show", "-5", "-"));
  EXPECT_TRUE(help_);
}

TEST_F(FlagsTest, TwoDashesEndTheFlags) {
  EXPECT_THAT(*Parse({"call", "--", "--help", "--"}),
              ElementsAre("call", "--help", "--"));
  EXPECT_FALSE(help_);
}

TEST_F(FlagsTest, ShortHelpStandsForHelp) {
  EXPECT_THAT(*Parse({"--", "-h"}), ElementsAre("-h"));
  EXPECT_THAT(*Parse({"--socket", "-h"}), ElementsAre());
  EXPECT_EQ("-h", socket_);
  EXPECT_FALSE(help_);
  EXPECT_THAT(*Parse({"call", "-h"}), ElementsAre("call"));
  EXPECT_TRUE(help_);
}

TEST_F(FlagsTest, UnknownFlagIsNamedWithTheNearestKnownOne) {
  EXPECT_EQ("There is no flag --sokcet. Did you mean --socket?",
            Fault({"--sokcet=x"}));
  EXPECT_EQ("There is no flag --colour.", Fault({"--colour"}));
}

TEST_F(FlagsTest, MissingValueIsAFault) {
  EXPECT_EQ("The flag --socket needs a value.", Fault({"--socket"}));
}

TEST_F(FlagsTest, SwitchTakesNoValue) {
  EXPECT_EQ("The flag --help takes no value.", Fault({"--help=yes"}));
}

TEST_F(FlagsTest, IntegerOutOfRangeOrMalformedIsAFault) {
  for (const char* value : {"101", "-1", "3.5", "many", "", "9999999999"}) {
    EXPECT_EQ(absl::StrCat("The value of --windows, '", value,
                           "', is not a whole number from 0 to 100."),
              Fault({"--windows", value}));
  }
  EXPECT_EQ(3, windows_);
}

TEST_F(FlagsTest, IntegerAtTheEndsOfItsRangeIsTaken) {
  ASSERT_TRUE(Parse({"--windows", "0"}).ok());
  EXPECT_EQ(0, windows_);
  ASSERT_TRUE(Parse({"--windows", "100"}).ok());
  EXPECT_EQ(100, windows_);
}

TEST_F(FlagsTest, SizeMayBeBeyondTheRangeOfAnInteger) {
  ASSERT_TRUE(Parse({"--bytes", "1099511627776"}).ok());
  EXPECT_EQ(size_t{1} << 40, bytes_);
  ASSERT_TRUE(Parse({"--bytes", "1"}).ok());
  EXPECT_EQ(1u, bytes_);
}

TEST_F(FlagsTest, SizeOutOfRangeOrMalformedIsAFault) {
  for (const char* value : {"0", "1099511627777", "-1", "1e3", ""}) {
    EXPECT_EQ(absl::StrCat("The value of --bytes, '", value,
                           "', is not a whole number from 1 to 1099511627776."),
              Fault({"--bytes", value}));
  }
  EXPECT_EQ(5u, bytes_);
}

TEST_F(FlagsTest, SecondsOutOfRangeOrMalformedAreAFault) {
  for (const char* value : {"0", "-1", "86401", "soon", "", "nan", "inf"}) {
    EXPECT_EQ(
        absl::StrCat("The value of --timeout, '", value,
                     "', is not a number of seconds from 0.001 to 86400."),
        Fault({"--timeout", value}));
  }
  EXPECT_EQ(std::chrono::seconds(10), timeout_);
}

TEST_F(FlagsTest, SecondsMayHaveAnotherRange) {
  flags_.AddSeconds("pause", &timeout_, std::chrono::milliseconds(50),
                    std::chrono::seconds(3));
  for (const char* value : {"0.049", "3.001"}) {
    EXPECT_EQ(absl::StrCat("The value of --pause, '", value,
                           "', is not a number of seconds from 0.05 to 3."),
              Fault({"--pause", value}));
  }
  ASSERT_TRUE(Parse({"--pause=0.05"}).ok());
  EXPECT_EQ(std::chrono::milliseconds(50), timeout_);
  ASSERT_TRUE(Parse({"--pause=3"}).ok());
  EXPECT_EQ(std::chrono::seconds(3), timeout_);
}

}  // namespace
}  // namespace cli
