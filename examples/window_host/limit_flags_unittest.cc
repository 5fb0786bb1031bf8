#include "examples/window_host/limit_flags.h"

#include <chrono>
#include <cstddef>
#include <string>
#include <vector>

#include "absl/strings/str_cat.h"
#include "absl/strings/str_replace.h"
#include "core/common/rpc/transport/counters.h"
#include "gmock/gmock.h"
#include "gtest/gtest.h"

namespace window_host {
namespace {

using rpc::transport::Limits;
using std::chrono::milliseconds;
using ::testing::HasSubstr;

class LimitFlagsTest : public ::testing::Test {
 protected:
  LimitFlagsTest() { AddLimitFlags(flags_, &limits_); }

  absl::Status Parse(std::vector<const char*> words) {
    words.insert(words.begin(), "program");
    return flags_.Parse(static_cast<int>(words.size()), words.data()).status();
  }

  cli::Flags flags_;
  Limits limits_;
};

TEST_F(LimitFlagsTest, EachFlagSetsTheLimitOfItsName) {
  ASSERT_TRUE(
      Parse({"--max-frame-bytes=8192", "--max-outbox-bytes=1025",
             "--busy-outbox-bytes=1026", "--max-connections=1", "--max-calls=2",
             "--max-streams=3", "--max-subscriptions=4", "--max-questions=5",
             "--max-subscription-bytes=9", "--handshake-timeout=0.006",
             "--goodbye-timeout=0.007", "--accept-pause=0.008"})
          .ok());
  EXPECT_EQ(8192u, limits_.max_frame_bytes);
  EXPECT_EQ(1025u, limits_.max_outbox_bytes);
  EXPECT_EQ(1026u, limits_.busy_outbox_bytes);
  EXPECT_EQ(1u, limits_.max_connections);
  EXPECT_EQ(2u, limits_.max_calls);
  EXPECT_EQ(3u, limits_.max_streams);
  EXPECT_EQ(4u, limits_.max_subscriptions);
  EXPECT_EQ(9u, limits_.max_subscription_bytes);
  EXPECT_EQ(5u, limits_.max_questions);
  EXPECT_EQ(milliseconds(6), limits_.handshake_timeout);
  EXPECT_EQ(milliseconds(7), limits_.goodbye_timeout);
  EXPECT_EQ(milliseconds(8), limits_.accept_pause);
}

TEST_F(LimitFlagsTest, EveryLimitHasItsFlagAndItsHelp) {
  for (const rpc::transport::NamedLimit& limit : rpc::transport::kNamedLimits) {
    const std::string flag =
        absl::StrCat("--", absl::StrReplaceAll(limit.name, {{"_", "-"}}));
    EXPECT_TRUE(Parse({absl::StrCat(flag, "=10000").c_str()}).ok()) << flag;
    EXPECT_THAT(LimitHelp(), HasSubstr(flag + " "));
  }
}

TEST_F(LimitFlagsTest, HelpSaysRangeAndDefault) {
  EXPECT_THAT(LimitHelp(),
              HasSubstr("  --max-calls N                calls in flight of one "
                        "client,\n"
                        "                               1 to 1000000; default: "
                        "10000\n"));
  EXPECT_THAT(LimitHelp(), HasSubstr("0.001 to 86400; default: 0.05\n"));
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
  EXPECT_EQ(defaults.max_frame_bytes, limits_.max_frame_bytes);
  EXPECT_EQ(defaults.max_connections, limits_.max_connections);
  EXPECT_EQ(defaults.max_calls, limits_.max_calls);
  EXPECT_EQ(defaults.max_streams, limits_.max_streams);
}

TEST_F(LimitFlagsTest, ClientsAreSlowedDownBeforeTheyAreDisconnected) {
  EXPECT_TRUE(CheckLimits(limits_).ok());
  ASSERT_TRUE(
      Parse({"--busy-outbox-bytes=5000", "--max-outbox-bytes=5000"}).ok());
  EXPECT_TRUE(CheckLimits(limits_).ok());
  ASSERT_TRUE(Parse({"--max-outbox-bytes=4999"}).ok());
  EXPECT_EQ(absl::InvalidArgumentError(
                "The value of --busy-outbox-bytes, 5000, is above that of "
                "--max-outbox-bytes, 4999."),
            CheckLimits(limits_));
}

}  // namespace
}  // namespace window_host
