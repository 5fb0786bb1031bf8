// What a server says of itself, while lab clients keep it busy.

#include "core/common/rpc/serving/server_report.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <chrono>
#include <memory>
#include <string>
#include <vector>

#include "core/common/rpc/stream/callback_stream.h"
#include "core/common/rpc/testing/window_id.h"
#include "core/common/rpc/transport/callback_answerer.h"
#include "core/common/rpc/transport/event_subscriber.h"
#include "core/common/rpc/transport/testing/lab.h"

namespace rpc::transport {
namespace {

using lab::Lab_Stub;
using torvane::WindowId;
using Answerer = CallbackAnswerer<lab::Decision>;

ClientOptions Named(const std::string& name) {
  ClientOptions options;
  options.name = name;
  return options;
}

class Reports : public ::testing::Test {
 protected:
  // A client that answers for the windows, when the test lets it.
  std::unique_ptr<Answerer> AnswerFor(Client& client,
                                      const std::vector<int64_t>& windows) {
    auto answerer = std::make_unique<Answerer>(
        client, lab::Lab::descriptor()->FindMethodByName("Decide"),
        [this](const lab::Decision&, Answerer::Reply reply) {
          replies.push_back(std::move(reply));
        });
    for (const int64_t window : windows) {
      answerer->Subscribe(WindowId(window));
    }
    lab.RunReady();
    return answerer;
  }
  void Ask(int64_t window) {
    lab::Decision question;
    *question.mutable_browser_id() = WindowId(window);
    question.mutable_question();
    EXPECT_TRUE(torvane::CallbackStream<lab::Decision>::Ask(
        question,
        {.response_callback = [this](lab::Decision&) { ++settled; },
         .error_callback = [this](torvane::StreamCallError) { ++settled; }}));
  }

  std::vector<serving::ConnectionReport> Connections() {
    lab.RunReady();
    return lab.server->Report().connections;
  }

  int settled = 0;
  Lab lab;
  std::vector<Answerer::Reply> replies;
};

TEST_F(Reports, AReportOfAnIdleServerHasNoConnections) {
  EXPECT_TRUE(Connections().empty());
}

TEST_F(Reports, AReportNamesEveryClientInTheOrderInWhichTheyCame) {
  const auto start = std::chrono::steady_clock::now();
  const auto first = lab.NewClient(Named("first"));
  auto second = lab.NewClient(Named("second"));
  const auto third = lab.NewClient(Named(std::string("th\nird\0", 7)));
  second.reset();
  const std::vector<serving::ConnectionReport> connections = Connections();
  const auto longest = std::chrono::steady_clock::now() - start;

  ASSERT_EQ(connections.size(), 2u);
  EXPECT_EQ(connections[0].id, 1u);
  EXPECT_EQ(connections[0].name, "first");
  EXPECT_EQ(connections[1].id, 3u);
  EXPECT_EQ(connections[1].name, "th\\nird\\x00");
  for (const serving::ConnectionReport& connection : connections) {
    EXPECT_EQ(connection.pid, getpid());
    EXPECT_EQ(connection.user, geteuid());
    EXPECT_EQ(connection.calls, 0u);
    EXPECT_EQ(connection.streams, 0u);
    EXPECT_EQ(connection.questions, 0u);
    EXPECT_EQ(connection.queued_bytes, 0u);
  }
  EXPECT_LE(connections[0].age, longest);
  EXPECT_LE(connections[1].age, connections[0].age);
}

TEST_F(Reports, AReportHasConnectionsThatHaveNotSaidHello) {
  const auto socket = lab.Connect();
  const std::vector<serving::ConnectionReport> connections = Connections();
  ASSERT_EQ(connections.size(), 1u);
  EXPECT_EQ(connections[0].name, "");
  EXPECT_EQ(connections[0].pid, getpid());
  EXPECT_EQ(connections[0].user, getuid());
  EXPECT_GT(connections[0].age.count(), 0);
}

TEST_F(Reports, AReportCountsCallsAndStreamsOfEachConnection) {
  const auto busy = lab.NewClient();
  const auto idle = lab.NewClient();
  TextCall calls[2];
  for (TextCall& call : calls) {
    call.Start(*busy, &Lab_Stub::Park, "x");
  }
  const EventSubscriber<lab::Text> events(
      *busy, lab::Lab::descriptor()->FindMethodByName("Watch"),
      [](const lab::Text&) {});
  const auto answerer = AnswerFor(*busy, {1});
  lab.RunUntil([&] { return lab.service.parked.size() == 2; });

  std::vector<serving::ConnectionReport> connections = Connections();
  ASSERT_EQ(connections.size(), 2u);
  EXPECT_EQ(connections[0].calls, 2u);
  EXPECT_EQ(connections[0].streams, 2u);
  EXPECT_EQ(connections[0].subscriptions, 1u);
  EXPECT_EQ(connections[1].calls, 0u);
  EXPECT_EQ(connections[1].streams, 0u);

  lab.service.parked[0].Complete();
  EXPECT_EQ(Connections()[0].calls, 1u);
  lab.service.parked[1].Complete();
  lab.RunUntil([&] { return calls[1].over(); });
}

TEST_F(Reports, AReportHasPendingQuestionsWithTheirAge) {
  const auto client = lab.NewClient();
  auto first = AnswerFor(*client, {1});
  const auto second = AnswerFor(*client, {2, 3});
  Ask(2);
  Ask(1);
  Ask(3);
  const serving::ConnectionReport report = Connections().at(0);
  EXPECT_EQ(report.questions, 3u);
  // In the order of asking, whichever stream they are on.
  ASSERT_EQ(report.oldest_questions.size(), 3u);
  EXPECT_EQ(report.oldest_questions[0].window, 2);
  EXPECT_EQ(report.oldest_questions[1].window, 1);
  EXPECT_EQ(report.oldest_questions[2].window, 3);
  EXPECT_EQ(report.oldest_questions[0].method, "lab.Lab.Decide");
  EXPECT_GE(report.oldest_questions[0].age, report.oldest_questions[2].age);

  lab.RunUntil([&] { return replies.size() == 3; });
  lab::Decision answer;
  answer.mutable_response();
  EXPECT_TRUE(replies[0].Answer(answer).ok());
  EXPECT_EQ(Connections().at(0).questions, 2u);
  replies[2].Decline();
  EXPECT_EQ(Connections().at(0).questions, 1u);
  EXPECT_EQ(settled, 2);
  first->Unsubscribe(WindowId(1));
  EXPECT_EQ(Connections().at(0).questions, 0u);
  EXPECT_EQ(settled, 3);
}

TEST_F(Reports, AReportForgetsTheQuestionsOfAStreamThatEnds) {
  const auto client = lab.NewClient();
  const auto answerer = AnswerFor(*client, {1});
  Ask(1);
  EXPECT_EQ(Connections().at(0).questions, 1u);
  answerer->End();
  const serving::ConnectionReport report = Connections().at(0);
  EXPECT_EQ(report.questions, 0u);
  EXPECT_EQ(report.streams, 0u);
  EXPECT_EQ(settled, 1);
}

TEST_F(Reports, AReportNamesNoMoreThanTheOldestQuestions) {
  const auto client = lab.NewClient();
  const auto first = AnswerFor(*client, {1});
  const auto second = AnswerFor(*client, {2});
  for (size_t i = 0; i < serving::kReportedQuestions; ++i) {
    Ask(1);
    Ask(2);
  }
  const serving::ConnectionReport report = Connections().at(0);
  EXPECT_EQ(report.questions, 2 * serving::kReportedQuestions);
  ASSERT_EQ(report.oldest_questions.size(), serving::kReportedQuestions);
  for (size_t i = 0; i < serving::kReportedQuestions; ++i) {
    EXPECT_EQ(report.oldest_questions[i].window, i % 2 == 0 ? 1 : 2);
  }
}

TEST_F(Reports, AReportCountsTheBytesThatWaitForAClientThatDoesNotRead) {
  const auto peer = lab.NewPeer();
  lab::Number bytes;
  bytes.set_number(1 << 19);
  CallFrame call;
  call.set_method_id(peer->IdOf("Make"));
  bytes.SerializeToString(call.mutable_request());
  peer->Send(Frame::kCall, call);
  // The socket's own buffer holds some of it.
  const size_t queued = Connections().at(0).queued_bytes;
  EXPECT_GT(queued, 0u);
  EXPECT_LE(queued, (1u << 19) + 100);
  EXPECT_TRUE(peer->Receive());
  EXPECT_EQ(Connections().at(0).queued_bytes, 0u);
}

TEST_F(Reports, AReportCarriesTheCounters) {
  const auto client = lab.NewClient();
  EXPECT_TRUE(CallText(*client, &Lab_Stub::Echo, "x").ok());
  const serving::ServerReport report = lab.server->Report();
  EXPECT_EQ(report.counters.calls_started, 1u);
  EXPECT_EQ(report.counters.connections_now, 1u);
}

}  // namespace
}  // namespace rpc::transport
