#include "core/common/rpc/serving/limits.h"

#include <gtest/gtest.h>

#include <set>
#include <string>

#include "core/common/rpc/serving/limit_table.h"

namespace rpc::serving {
namespace {

using std::chrono::milliseconds;

// What Validate() says when `limit` is set to `value`.
absl::Status WhenSet(const LimitInfo& limit, int64_t value) {
  Limits limits;
  // As large as may be, so that no other limit is in the way.
  limits.max_outbox_bytes = 1 << 30;
  limits.busy_outbox_bytes = 1 << 10;
  if (limit.size != nullptr) {
    limits.*limit.size = static_cast<size_t>(value);
  } else {
    limits.*limit.time = milliseconds(value);
  }
  return Validate(limits);
}

TEST(LimitTable, HasACounterOfItsOwnForEachLimit) {
  LimitHits hits;
  uint64_t number = 0;
  for (const LimitInfo& limit : kLimitTable) {
    hits.*limit.hits = ++number;
  }
  std::set<uint64_t> seen;
  for (const LimitInfo& limit : kLimitTable) {
    seen.insert(hits.*limit.hits);
  }
  EXPECT_EQ(seen.size(), number);
  EXPECT_EQ(sizeof(LimitHits), number * sizeof(uint64_t));
}

TEST(LimitTable, ReadsEachLimitByItsName) {
  Limits limits;
  limits.max_calls = 77;
  limits.accept_pause = milliseconds(88);
  int found = 0;
  for (const LimitInfo& limit : kLimitTable) {
    if (std::string(limit.name) == "max_calls") {
      EXPECT_EQ(limit.ValueIn(limits), 77);
      ++found;
    } else if (std::string(limit.name) == "accept_pause") {
      EXPECT_EQ(limit.ValueIn(limits), 88);
      ++found;
    }
  }
  EXPECT_EQ(found, 2);
}

TEST(Limits, DefaultsAreValid) {
  EXPECT_EQ(Validate(Limits()), absl::OkStatus());
}

// What one client has costs the others time when it leaves.
TEST(Limits, DefaultsAreWhatAServiceOfFourStreamsNeeds) {
  EXPECT_EQ(Limits().max_streams, 128u);
  EXPECT_EQ(Limits().max_subscriptions, 2'048u);
  EXPECT_EQ(Limits().max_server_subscriptions, 16'384u);
  EXPECT_EQ(Limits().max_client_frame_bytes, 64u << 10);
}

TEST(Limits, MayBeAsSmallAndAsLargeAsTheTableSaysAndNoMore) {
  for (const LimitInfo& limit : kLimitTable) {
    EXPECT_TRUE(WhenSet(limit, limit.least).ok()) << limit.name;
    EXPECT_TRUE(WhenSet(limit, limit.most).ok()) << limit.name;
    EXPECT_TRUE(absl::IsInvalidArgument(WhenSet(limit, limit.least - 1)))
        << limit.name;
    EXPECT_TRUE(absl::IsInvalidArgument(WhenSet(limit, limit.most + 1)))
        << limit.name;
  }
}

TEST(Limits, OutOfTheirRangeAreNamed) {
  Limits limits;
  limits.max_frame_bytes = 8'191;
  EXPECT_EQ(Validate(limits),
            absl::InvalidArgumentError(
                "max_frame_bytes is 8191, not 8192 to 1073741824"));
  limits = Limits();
  limits.handshake_timeout = milliseconds(0);
  EXPECT_EQ(Validate(limits), absl::InvalidArgumentError(
                                  "handshake_timeout is 0, not 1 to 86400000"));
}

TEST(Limits, ReadingPausesBeforeTheClientIsCutOff) {
  Limits limits;
  limits.max_outbox_bytes = 2'000;
  limits.busy_outbox_bytes = 2'000;
  EXPECT_TRUE(Validate(limits).ok());
  limits.busy_outbox_bytes = 2'001;
  EXPECT_EQ(Validate(limits),
            absl::InvalidArgumentError(
                "busy_outbox_bytes, 2001, is above max_outbox_bytes, 2000"));
}

}  // namespace
}  // namespace rpc::serving
