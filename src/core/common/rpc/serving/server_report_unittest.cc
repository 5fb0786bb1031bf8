#include "core/common/rpc/serving/server_report.h"

#include <gtest/gtest.h>

namespace rpc::serving {
namespace {

// A transport that does not know something leaves it as it is.
TEST(ConnectionReport, SaysNothingUntilItIsFilledIn) {
  const ConnectionReport report;
  EXPECT_EQ(report.id, 0u);
  EXPECT_EQ(report.pid, 0);
  EXPECT_EQ(report.user, 0u);
  EXPECT_EQ(report.calls, 0u);
  EXPECT_EQ(report.streams, 0u);
  EXPECT_EQ(report.subscriptions, 0u);
  EXPECT_EQ(report.questions, 0u);
  EXPECT_EQ(report.queued_bytes, 0u);
  EXPECT_EQ(QuestionReport().window, 0);
}

}  // namespace
}  // namespace rpc::serving
