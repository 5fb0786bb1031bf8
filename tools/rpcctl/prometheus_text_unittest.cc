#include "tools/rpcctl/prometheus_text.h"

#include <google/protobuf/util/time_util.h>

#include <regex>
#include <string>
#include <string_view>

#include "absl/strings/str_split.h"
#include "gmock/gmock.h"
#include "gtest/gtest.h"

namespace rpcctl {
namespace {

using google::protobuf::util::TimeUtil;
using rpc::status::Connection;
using rpc::status::Refusals;
using rpc::status::StatusReport;
using ::testing::HasSubstr;

void AddRefusals(StatusReport& report, const std::string& limit, int count) {
  Refusals& refusals = *report.add_refusals();
  refusals.set_limit(limit);
  refusals.set_count(count);
}

void AddQuestion(Connection& connection, int64_t milliseconds) {
  *connection.add_oldest_questions()->mutable_age() =
      TimeUtil::MillisecondsToDuration(milliseconds);
}

TEST(PrometheusTextTest, EachFigureStandsUnderItsMeaningAndType) {
  StatusReport report;
  AddQuestion(*report.add_connections(), 1'500);
  AddQuestion(*report.add_connections(), 2'250);
  report.mutable_total()->set_calls_in_flight(1);
  report.mutable_total()->set_streams(20);
  report.mutable_total()->set_subscriptions(25);
  report.mutable_total()->set_pending_questions(3);
  report.mutable_total()->set_queued_bytes(5'000'000'000);
  AddRefusals(report, "max_calls", 7);
  AddRefusals(report, "max_streams", 0);
  report.set_messages_refused(4);
  EXPECT_EQ(
      PrometheusText(report),
      "# HELP torvane_connections Clients that are connected.\n"
      "# TYPE torvane_connections gauge\n"
      "torvane_connections 2\n"
      "# HELP torvane_calls_in_flight Calls that are not completed.\n"
      "# TYPE torvane_calls_in_flight gauge\n"
      "torvane_calls_in_flight 1\n"
      "# HELP torvane_streams Streams that are open.\n"
      "# TYPE torvane_streams gauge\n"
      "torvane_streams 20\n"
      "# HELP torvane_subscriptions Windows that streams are subscribed to.\n"
      "# TYPE torvane_subscriptions gauge\n"
      "torvane_subscriptions 25\n"
      "# HELP torvane_pending_questions Questions that wait for a client's "
      "answer.\n"
      "# TYPE torvane_pending_questions gauge\n"
      "torvane_pending_questions 3\n"
      "# HELP torvane_oldest_question_seconds How long the oldest of these has "
      "waited.\n"
      "# TYPE torvane_oldest_question_seconds gauge\n"
      "torvane_oldest_question_seconds 2.25\n"
      "# HELP torvane_queued_bytes Bytes that wait to be written to clients.\n"
      "# TYPE torvane_queued_bytes gauge\n"
      "torvane_queued_bytes 5000000000\n"
      "# HELP torvane_refusals_total How often a limit has made the server "
      "refuse something.\n"
      "# TYPE torvane_refusals_total counter\n"
      "torvane_refusals_total{limit=\"max_calls\"} 7\n"
      "torvane_refusals_total{limit=\"max_streams\"} 0\n"
      "# HELP torvane_messages_refused_total Messages of clients that their "
      "streams were not given.\n"
      "# TYPE torvane_messages_refused_total counter\n"
      "torvane_messages_refused_total 4\n");
}

TEST(PrometheusTextTest, WhereNothingWaitsTheOldestQuestionHasWaitedForZero) {
  EXPECT_THAT(PrometheusText(StatusReport()),
              HasSubstr("\ntorvane_oldest_question_seconds 0\n"));
}

// The line grammar of the format, for what is used of it.
TEST(PrometheusTextTest, EveryLineIsOneOfTheFormat) {
  StatusReport report;
  AddRefusals(report, "max_calls", 7);
  const std::regex line(
      "# HELP [a-z_]+ [^\\\\]+|# TYPE [a-z_]+ (gauge|counter)|"
      "[a-z_]+(\\{limit=\"[a-z_]+\"\\})? [0-9.]+");
  const std::string text = PrometheusText(report);
  ASSERT_TRUE(text.ends_with("\n"));
  for (const std::string_view one :
       absl::StrSplit(text.substr(0, text.size() - 1), '\n')) {
    EXPECT_TRUE(std::regex_match(std::string(one), line)) << one;
  }
}

}  // namespace
}  // namespace rpcctl
