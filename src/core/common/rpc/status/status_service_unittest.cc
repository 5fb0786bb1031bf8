// What clients are told about a report, and that it reaches them beside other
// services.

#include "core/common/rpc/status/status_service.h"

#include <google/protobuf/util/time_util.h>
#include <gtest/gtest.h>

#include <chrono>
#include <cstdint>
#include <iterator>
#include <map>
#include <string>

#include "core/common/rpc/serving/limit_table.h"
#include "core/common/rpc/testing/recording_call.h"
#include "core/common/rpc/transport/testing/lab.h"

namespace rpc::status {
namespace {

using google::protobuf::util::TimeUtil;
using serving::ServerReport;
using std::chrono::milliseconds;
using transport::ClientController;
using transport::Lab;

class StatusServiceTest : public ::testing::Test {
 protected:
  // What is said of `report`.
  static StatusReport Say(const ServerReport& report) {
    StatusService service([&report] { return report; });
    StatusReport response;
    torvane::CountingClosure done;
    service.GetStatus(nullptr, nullptr, &response, &done);
    EXPECT_EQ(done.runs(), 1);
    return response;
  }
};

TEST_F(StatusServiceTest, AnIdleServerIsReportedWithItsLimitsAndZeroes) {
  const StatusReport report = Say({});
  EXPECT_EQ(report.connections_size(), 0);
  EXPECT_EQ(report.total().streams(), 0u);
  EXPECT_EQ(report.refusals_size(),
            static_cast<int>(std::size(serving::kLimitTable)));
  for (const Refusals& refusals : report.refusals()) {
    EXPECT_EQ(refusals.count(), 0u) << refusals.limit();
  }
}

TEST_F(StatusServiceTest, EveryFigureOfAConnectionIsTold) {
  ServerReport report;
  report.connections.push_back({.id = 7,
                                .pid = 4711,
                                .user = 1000,
                                .name = "painter",
                                .age = milliseconds(61'500),
                                .calls = 2,
                                .streams = 3,
                                .subscriptions = 30,
                                .questions = 4,
                                .queued_bytes = 5'000'000'000,
                                .oldest_questions = {}});
  report.connections[0].oldest_questions.push_back(
      {.method = "lab.Lab.Decide", .window = 12, .age = milliseconds(2'250)});

  const StatusReport said = Say(report);
  ASSERT_EQ(said.connections_size(), 1);
  const Connection& connection = said.connections(0);
  EXPECT_EQ(connection.id(), 7u);
  EXPECT_EQ(connection.pid(), 4711);
  EXPECT_EQ(connection.uid(), 1000u);
  EXPECT_EQ(connection.name(), "painter");
  EXPECT_EQ(TimeUtil::ToString(connection.age()), "61.500s");
  EXPECT_EQ(connection.load().calls_in_flight(), 2u);
  EXPECT_EQ(connection.load().streams(), 3u);
  EXPECT_EQ(connection.load().subscriptions(), 30u);
  EXPECT_EQ(connection.load().pending_questions(), 4u);
  EXPECT_EQ(connection.load().queued_bytes(), 5'000'000'000u);
  ASSERT_EQ(connection.oldest_questions_size(), 1);
  const Question& question = connection.oldest_questions(0);
  EXPECT_EQ(question.method(), "lab.Lab.Decide");
  EXPECT_EQ(question.browser_id().value(), 12);
  EXPECT_EQ(TimeUtil::ToString(question.age()), "2.250s");
}

TEST_F(StatusServiceTest, TheTotalIsTheSumOverConnections) {
  ServerReport report;
  for (size_t i = 1; i <= 3; ++i) {
    report.connections.emplace_back();
    report.connections.back().calls = i;
    report.connections.back().streams = 10 * i;
    report.connections.back().subscriptions = 20 * i;
    report.connections.back().questions = 100 * i;
    report.connections.back().queued_bytes = 1000 * i;
  }
  const Load total = Say(report).total();
  EXPECT_EQ(total.calls_in_flight(), 6u);
  EXPECT_EQ(total.streams(), 60u);
  EXPECT_EQ(total.subscriptions(), 120u);
  EXPECT_EQ(total.pending_questions(), 600u);
  EXPECT_EQ(total.queued_bytes(), 6000u);
}

TEST_F(StatusServiceTest, RefusalsAreToldByTheNameOfTheirLimit) {
  ServerReport report;
  report.counters.limit_hits.max_calls = 3;
  report.counters.limit_hits.accept_pause = 4;
  std::map<std::string, uint64_t> refusals;
  const StatusReport said = Say(report);
  for (const Refusals& entry : said.refusals()) {
    refusals[entry.limit()] = entry.count();
  }
  EXPECT_EQ(refusals["max_calls"], 3u);
  EXPECT_EQ(refusals["accept_pause"], 4u);
  EXPECT_EQ(refusals["max_streams"], 0u);
}

TEST_F(StatusServiceTest, RefusedMessagesAreTold) {
  ServerReport report;
  EXPECT_EQ(Say(report).messages_refused(), 0u);
  report.counters.messages_refused = 5;
  EXPECT_EQ(Say(report).messages_refused(), 5u);
}

// One server, two services of two generated classes.
TEST_F(StatusServiceTest, IsServedBesideAnotherServiceOverOneConnection) {
  Lab* serving = nullptr;
  StatusService status([&serving] { return serving->server->Report(); });
  Lab lab;
  serving = &lab;
  lab.server->AddService(&status);
  transport::ClientOptions options;
  options.name = "observer";
  const auto client = lab.NewClient(options);
  const auto idle = lab.NewClient();

  transport::TextCall parked;
  parked.Start(*client, &lab::Lab_Stub::Park, "x");
  ClientController controller;
  StatusReport report;
  ServerStatus_Stub(client.get())
      .GetStatus(&controller, &StatusRequest::default_instance(), &report,
                 nullptr);
  EXPECT_TRUE(controller.status().ok()) << controller.status();
  ASSERT_EQ(report.connections_size(), 2);
  EXPECT_EQ(report.connections(0).name(), "observer");
  // The call that has brought the report is not in it.
  EXPECT_EQ(report.connections(0).load().calls_in_flight(), 1u);
  EXPECT_EQ(report.connections(1).load().calls_in_flight(), 0u);

  lab.service.parked[0].Complete();
  lab.RunUntil([&] { return parked.over(); });
  EXPECT_EQ(parked.response.text(), "x");
}

}  // namespace
}  // namespace rpc::status
