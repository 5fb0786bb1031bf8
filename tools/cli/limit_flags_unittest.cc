#include "tools/cli/limit_flags.h"

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "absl/strings/str_cat.h"
#include "absl/strings/str_format.h"
#include "absl/strings/str_replace.h"
#include "core/common/rpc/serving/limit_table.h"
#include "gmock/gmock.h"
#include "gtest/gtest.h"

namespace cli {
namespace {

using rpc::serving::kLimitTable;
using rpc::serving::LimitInfo;
using rpc::serving::Limits;
using std::chrono::milliseconds;
using ::testing::HasSubstr;

class LimitFlagsTest : public ::testing::Test {
 protected:
  LimitFlagsTest() { AddLimitFlags(flags_, &limits_); }

  absl::Status Parse(std::vector<const char*> words) {
    words.insert(words.begin(), "program");
    return flags_.Parse(static_cast<int>(words.size()), words.data()).status();
  }

  // "--max-calls" for max_calls.
  static std::string FlagOf(const LimitInfo& limit) {
    return absl::StrCat("--", absl::StrReplaceAll(limit.name, {{"_", "-"}}));
  }

  absl::Status ParseValue(const LimitInfo& limit, int64_t value) {
    const std::string text =
        limit.size != nullptr
            ? absl::StrCat(value)
            : absl::StrFormat("%.3f", static_cast<double>(value) / 1000);
    return Parse({absl::StrCat(FlagOf(limit), "=", text).c_str()});
  }

  Flags flags_;
  Limits limits_;
};

TEST_F(LimitFlagsTest, EachFlagSetsTheLimitOfItsName) {
  ASSERT_TRUE(Parse({"--max-frame-bytes=8192", "--max-client-frame-bytes=8193",
                     "--max-outbox-bytes=1025", "--busy-outbox-bytes=1026",
                     "--max-connections=1", "--max-calls=2", "--max-streams=3",
                     "--max-subscriptions=4", "--max-questions=5",
                     "--max-subscription-bytes=9", "--handshake-timeout=0.006",
                     "--frame-timeout=0.007", "--accept-pause=0.008"})
                  .ok());
  EXPECT_EQ(8192u, limits_.max_frame_bytes);
  EXPECT_EQ(8193u, limits_.max_client_frame_bytes);
  EXPECT_EQ(1025u, limits_.max_outbox_bytes);
  EXPECT_EQ(1026u, limits_.busy_outbox_bytes);
  EXPECT_EQ(1u, limits_.max_connections);
  EXPECT_EQ(2u, limits_.max_calls);
  EXPECT_EQ(3u, limits_.max_streams);
  EXPECT_EQ(4u, limits_.max_subscriptions);
  EXPECT_EQ(9u, limits_.max_subscription_bytes);
  EXPECT_EQ(5u, limits_.max_questions);
  EXPECT_EQ(milliseconds(6), limits_.handshake_timeout);
  EXPECT_EQ(milliseconds(7), limits_.frame_timeout);
  EXPECT_EQ(milliseconds(8), limits_.accept_pause);
}

TEST_F(LimitFlagsTest, EveryLimitHasItsFlagAndItsHelp) {
  for (const LimitInfo& limit : kLimitTable) {
    EXPECT_TRUE(ParseValue(limit, 10'000).ok()) << limit.name;
    EXPECT_EQ(10'000, limit.ValueIn(limits_)) << limit.name;
    EXPECT_THAT(FlagTable(DescribeLimits()),
                HasSubstr(absl::StrCat("  ", FlagOf(limit), " ")));
    EXPECT_THAT(FlagTable(DescribeLimits()),
                HasSubstr(absl::StrCat(limit.meaning, ",\n")));
  }
}

TEST_F(LimitFlagsTest, AProgramMayHaveSomeOfThem) {
  constexpr std::string_view kNames[] = {"max_streams", "accept_pause"};
  std::vector<std::string> described;
  for (const FlagDescription& flag : DescribeLimits(kNames))
    described.push_back(flag.name);
  EXPECT_EQ((std::vector<std::string>{"max-streams", "accept-pause"}),
            described);
  Flags flags;
  AddLimitFlags(flags, &limits_, kNames);
  const char* const words[] = {"program", "--max-streams=7"};
  EXPECT_TRUE(flags.Parse(2, words).ok());
  EXPECT_EQ(7u, limits_.max_streams);
  const char* const others[] = {"program", "--max-calls=7"};
  EXPECT_FALSE(flags.Parse(2, others).ok());
}

TEST_F(LimitFlagsTest, FlagsTakeWhatTheTableAllowsAndNoMore) {
  for (const LimitInfo& limit : kLimitTable) {
    for (const int64_t allowed : {limit.least, limit.most}) {
      EXPECT_TRUE(ParseValue(limit, allowed).ok()) << limit.name;
      EXPECT_EQ(allowed, limit.ValueIn(limits_)) << limit.name;
    }
    for (const int64_t refused : {limit.least - 1, limit.most + 1}) {
      EXPECT_TRUE(absl::IsInvalidArgument(ParseValue(limit, refused)))
          << limit.name;
      EXPECT_EQ(limit.most, limit.ValueIn(limits_)) << limit.name;
    }
  }
}

TEST_F(LimitFlagsTest, HelpSaysRangeAndDefault) {
  EXPECT_THAT(
      FlagTable(DescribeLimits()),
      HasSubstr("  --max-calls N                 calls in flight of one "
                "client,\n"
                "                                1 to 1000000; default: "
                "1024\n"));
  EXPECT_THAT(FlagTable(DescribeLimits()),
              HasSubstr("  --accept-pause SECONDS        without accepting, "
                        "when out of descriptors,\n"
                        "                                0.001 to 86400; "
                        "default: 0.05\n"));
}

TEST_F(LimitFlagsTest, NonsenseIsAFaultAndChangesNothing) {
  for (const char* words :
       {"--max-frame-bytes=8191", "--max-frame-bytes=1073741825",
        "--max-connections=0", "--max-connections=-1", "--max-calls=many",
        "--max-calls=", "--max-streams=1000001", "--max-streams=1.5",
        "--max-streams=99999999999999999999", "--handshake-timeout=0",
        "--accept-pause=soon"}) {
    EXPECT_TRUE(absl::IsInvalidArgument(Parse({words}))) << words;
  }
  EXPECT_EQ(
      "The value of --max-calls, '0', is not a whole number from 1 to "
      "1000000.",
      Parse({"--max-calls=0"}).message());
  const Limits defaults;
  for (const LimitInfo& limit : kLimitTable)
    EXPECT_EQ(limit.ValueIn(defaults), limit.ValueIn(limits_)) << limit.name;
}

TEST_F(LimitFlagsTest, ClientsAreSlowedDownBeforeTheyAreDisconnected) {
  EXPECT_TRUE(CheckLimits(limits_).ok());
  ASSERT_TRUE(
      Parse({"--busy-outbox-bytes=5000", "--max-outbox-bytes=5000"}).ok());
  EXPECT_TRUE(CheckLimits(limits_).ok());
  ASSERT_TRUE(Parse({"--max-outbox-bytes=4999"}).ok());
  EXPECT_EQ(absl::InvalidArgumentError("The limit --busy-outbox-bytes, 5000, "
                                       "is above --max-outbox-bytes, 4999."),
            CheckLimits(limits_));
}

}  // namespace
}  // namespace cli
