#include "tools/rpcctl/status_text.h"

#include <google/protobuf/util/time_util.h>

#include <string>
#include <utility>

#include "gmock/gmock.h"
#include "gtest/gtest.h"

namespace rpcctl {
namespace {

using google::protobuf::util::TimeUtil;
using rpc::status::Connection;
using rpc::status::Question;
using rpc::status::Refusals;
using rpc::status::StatusReport;
using ::testing::HasSubstr;
using ::testing::Not;

Connection& AddConnection(StatusReport& report,
                          uint64_t id,
                          const std::string& name) {
  Connection& connection = *report.add_connections();
  connection.set_id(id);
  connection.set_pid(4710 + static_cast<int32_t>(id));
  connection.set_uid(1000);
  connection.set_name(name);
  return connection;
}

void AddQuestion(Connection& connection, int64_t window, int64_t milliseconds) {
  Question& question = *connection.add_oldest_questions();
  question.set_method("rpc.BrowserWindow.OnCloseWindow");
  question.mutable_browser_id()->set_value(window);
  *question.mutable_age() = TimeUtil::MillisecondsToDuration(milliseconds);
}

TEST(StatusTextTest, ConnectionsStandInAnAlignedTableWithTheirSum) {
  StatusReport report;
  Connection& painter = AddConnection(report, 1, "painter");
  *painter.mutable_age() = TimeUtil::MillisecondsToDuration(3'723'456);
  painter.mutable_load()->set_calls_in_flight(2);
  painter.mutable_load()->set_streams(30);
  painter.mutable_load()->set_queued_bytes(1'048'576);
  AddConnection(report, 12, "");
  report.mutable_total()->set_calls_in_flight(2);
  report.mutable_total()->set_streams(30);
  report.mutable_total()->set_queued_bytes(1'048'576);
  EXPECT_THAT(
      StatusText(report),
      HasSubstr("ID  CLIENT    PID   UID       FOR  CALLS  STREAMS  QUESTIONS  "
                "QUEUED BYTES\n"
                " 1  painter  4711  1000  1h2m3.4s      2       30          0  "
                "     1048576\n"
                "12           4722  1000         0      0        0          0  "
                "           0\n"
                "    total                              2       30          0  "
                "     1048576\n"));
}

TEST(StatusTextTest, PendingQuestionsAreNamedTheOldestFirst) {
  StatusReport report;
  Connection& first = AddConnection(report, 1, "first");
  AddQuestion(first, 7, 5'000);
  AddQuestion(first, 8, 90);
  AddQuestion(AddConnection(report, 2, "second"), 9, 65'700);
  report.mutable_total()->set_pending_questions(3);
  const std::string text = StatusText(report);
  EXPECT_THAT(
      text,
      HasSubstr(
          "\nPENDING QUESTION                 WINDOW  CONNECTION     FOR\n"
          "rpc.BrowserWindow.OnCloseWindow       9           2  1m5.7s\n"
          "rpc.BrowserWindow.OnCloseWindow       7           1      5s\n"
          "rpc.BrowserWindow.OnCloseWindow       8           1       0\n"
          "\n"));
  EXPECT_THAT(text, Not(HasSubstr("more")));
}

TEST(StatusTextTest, QuestionsThatAreNotNamedAreCounted) {
  StatusReport report;
  AddQuestion(AddConnection(report, 1, "first"), 7, 5'000);
  report.mutable_total()->set_pending_questions(42);
  EXPECT_THAT(StatusText(report), HasSubstr("5s\nand 41 more\n\n"));
}

TEST(StatusTextTest, WithoutQuestionsThereIsNoTableOfThem) {
  EXPECT_THAT(StatusText({}), Not(HasSubstr("PENDING")));
}

TEST(StatusTextTest, NamesThatTheHostGivesAreEscaped) {
  StatusReport report;
  Connection& connection = AddConnection(report, 1, "client\x1b[2J");
  Question& question = *connection.add_oldest_questions();
  question.set_method("method\u202e");
  report.add_refusals()->set_limit("limit\nforged 1");
  const std::string text = StatusText(report);
  EXPECT_THAT(text, HasSubstr(" client\\x1b[2J "));
  EXPECT_THAT(text, HasSubstr("method\\u202e "));
  EXPECT_THAT(text, HasSubstr("limit\\x0aforged 1 "));
}

TEST(StatusTextTest, RefusalsAreCountedByLimit) {
  StatusReport report;
  for (const auto& [limit, count] :
       {std::pair("max_calls", 3), std::pair("max_connections", 10)}) {
    Refusals& refusals = *report.add_refusals();
    refusals.set_limit(limit);
    refusals.set_count(count);
  }
  EXPECT_THAT(StatusText(report), HasSubstr("\n\n"
                                            "LIMIT            REFUSALS\n"
                                            "max_calls               3\n"
                                            "max_connections        10\n"));
}

TEST(StatusTextTest, RefusedMessagesAreCountedOnceThereAreAny) {
  StatusReport report;
  EXPECT_THAT(StatusText(report), Not(HasSubstr("refused messages")));
  report.set_messages_refused(3);
  EXPECT_THAT(StatusText(report), HasSubstr("\nrefused messages: 3\n"));
}

}  // namespace
}  // namespace rpcctl
