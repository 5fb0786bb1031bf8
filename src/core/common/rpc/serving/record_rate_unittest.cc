#include "core/common/rpc/serving/record_rate.h"

#include <gtest/gtest.h>

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "absl/strings/str_cat.h"
#include "core/common/rpc/testing/log_capture.h"
#include "core/common/rpc/testing/manual_sequence.h"

namespace rpc::serving {
namespace {

using Texts = std::vector<std::string>;

class RecordRateTest : public ::testing::Test {
 protected:
  // As many records as a second has, and `more`; returns those of the first
  // kind.
  Texts Fill(uint64_t more) {
    Texts written;
    for (uint64_t i = 0; i < kRecordsPerSecond + more; ++i) {
      const std::string text = absl::StrCat("record ", i);
      rate_->Warn(text);
      if (i < kRecordsPerSecond) {
        written.push_back(text);
      }
    }
    return written;
  }
  static std::string LeftOut(uint64_t count) {
    return absl::StrCat(
        "Left out ", count,
        " records of clients that were refused something or closed");
  }

  torvane::LogCapture log_;
  loop::ManualSequence sequence_;
  std::optional<RecordRate> rate_{std::in_place, sequence_};
};

TEST_F(RecordRateTest, WritesAsManyAsASecondHas) {
  const Texts written = Fill(0);
  EXPECT_EQ(log_.TakeTexts(), written);
  EXPECT_EQ(sequence_.timers(), 0u);
}

TEST_F(RecordRateTest, LeavesOutTheRestAndSaysHowManyWhenTheSecondIsOver) {
  const Texts written = Fill(3);
  EXPECT_EQ(log_.TakeTexts(), written);
  sequence_.Advance(std::chrono::milliseconds(999));
  EXPECT_EQ(log_.TakeTexts(), Texts());
  sequence_.Advance(std::chrono::milliseconds(1));
  EXPECT_EQ(log_.TakeTexts(), Texts{LeftOut(3)});
  // Once, and then the next second begins.
  sequence_.Advance(std::chrono::seconds(5));
  EXPECT_EQ(log_.TakeTexts(), Texts());
  EXPECT_EQ(Fill(1), log_.TakeTexts());
}

TEST_F(RecordRateTest, RecordsThatComeSlowlyAreAllWritten) {
  Texts expected;
  for (uint64_t i = 0; i < 3 * kRecordsPerSecond; ++i) {
    expected.push_back(absl::StrCat("record ", i));
    rate_->Warn(expected.back());
    sequence_.Advance(std::chrono::seconds(1) / kRecordsPerSecond);
  }
  EXPECT_EQ(log_.TakeTexts(), expected);
}

TEST_F(RecordRateTest, SaysWhatWasLeftOutWhenItIsFlushedOrDestroyed) {
  Fill(2);
  log_.TakeTexts();
  rate_->Flush();
  EXPECT_EQ(log_.TakeTexts(), Texts{LeftOut(2)});
  EXPECT_EQ(sequence_.timers(), 0u);
  rate_->Warn("another one");
  rate_.reset();
  EXPECT_EQ(log_.TakeTexts(), Texts{LeftOut(1)});
}

}  // namespace
}  // namespace rpc::serving
