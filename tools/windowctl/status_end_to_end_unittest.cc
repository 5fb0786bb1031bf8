// The status of the real host, asked for with the real client.

#include <sched.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <string>
#include <vector>

#include "absl/strings/str_cat.h"
#include "core/common/rpc/loop/loop.h"
#include "core/common/rpc/transport/server.h"
#include "gmock/gmock.h"
#include "gtest/gtest.h"
#include "rpc/status/server_status.pb.h"
#include "rpc/status/server_status.rpc.h"
#include "tools/rpcctl/exit_code.h"
#include "tools/rpcctl/json.h"
#include "tools/windowctl/end_to_end_test_support.h"

namespace windowctl {
namespace {

using ::testing::ContainsRegex;
using ::testing::HasSubstr;
using ::testing::Not;
using ::testing::StartsWith;

class StatusTest : public EndToEndTest {
 protected:
  // What 'status' prints.
  std::string Status(std::vector<std::string> flags = {}) const {
    flags.insert(flags.begin(), "status");
    const Process::Result result = RunClient(flags);
    EXPECT_EQ(kSuccess, result.exit_code);
    EXPECT_EQ("", result.errors);
    return result.output;
  }
};

TEST_F(StatusTest, ConnectionsStreamsAndQuestionsAreShown) {
  StartHost();
  Process& answerer = StartClient({"answer", "OnCloseWindow", "1", "2"});
  StartClient({"watch", "1"});
  host_->Write("close 2\n");
  answerer.ReadLine();
  const std::string text = Status();
  EXPECT_THAT(text,
              ContainsRegex(absl::StrCat(" 1  windowctl +", answerer.pid(),
                                         " .* 0 +1 +1 +0\n")));
  EXPECT_THAT(text, ContainsRegex("total +0 +2 +1 +0\n"));
  EXPECT_THAT(text, ContainsRegex(
                        "rpc.BrowserWindow.OnCloseWindow +2 +1 +[0-9.a-z]+\n"));
  // An answer settles the question.
  answerer.Write("{}\n");
  host_->ReadLine();
  EXPECT_THAT(Status(), Not(HasSubstr("OnCloseWindow")));
}

TEST_F(StatusTest, CallThatWaitsIsInFlight) {
  StartHost();
  Process& answerer = StartClient({"answer", "OnCloseWindow", "1"});
  const Process caller(ClientWords({"call", "Close", R"({"value": 1})"}));
  answerer.ReadLine();
  EXPECT_THAT(Status(), ContainsRegex("total +1 +1 +1 +0\n"));
}

TEST_F(StatusTest, PrometheusGetsTheFiguresOfTheWholeServer) {
  StartHost({"--max-streams=1"});
  StartClient({"watch", "1"});
  const std::string text = Status({"--prometheus"});
  EXPECT_THAT(text, StartsWith("# HELP torvane_connections "));
  EXPECT_THAT(text, HasSubstr("\ntorvane_connections 2\n"));
  EXPECT_THAT(text, HasSubstr("\ntorvane_streams 1\n"));
  EXPECT_THAT(text,
              HasSubstr("\ntorvane_refusals_total{limit=\"max_streams\"} 0\n"));
}

TEST_F(StatusTest, OnlyOneFormatCanBeAskedFor) {
  const Process::Result result =
      RunClient({"status", "--json", "--prometheus"});
  EXPECT_EQ(kUsage, result.exit_code);
  EXPECT_EQ("windowctl: Only one of --json and --prometheus can be given.\n",
            result.errors);
}

TEST_F(StatusTest, AWatchPrintsTheStatusAgainUntilItIsInterrupted) {
  StartHost();
  Process watch(ClientWords({"status", "--watch", "--json"}));
  for (int i = 0; i < 3; ++i)
    EXPECT_THAT(watch.ReadLine(), HasSubstr("\"callsInFlight\":0"));
  watch.Signal(SIGINT);
  const Process::Result result = watch.Wait();
  EXPECT_EQ(kSuccess, result.exit_code);
  EXPECT_EQ("", result.errors);
}

TEST_F(StatusTest, TablesOfAWatchHaveAnEmptyLineBetweenThem) {
  StartHost();
  Process watch(ClientWords({"status", "--watch"}));
  EXPECT_THAT(watch.ReadLine(), StartsWith("ID  CLIENT"));
  std::string before;
  for (std::string line; !line.starts_with("ID  CLIENT");) {
    before = line;
    line = watch.ReadLine();
  }
  EXPECT_EQ("", before);
  watch.Signal(SIGTERM);
  EXPECT_EQ(kSuccess, watch.Wait().exit_code);
}

TEST_F(StatusTest, AWatchOnATerminalBeginsAtItsTopEachTime) {
  StartHost();
  Process watch(ClientWords({"status", "--watch"}), Process::Terminal::kOutput);
  for (int i = 0; i < 2; ++i) {
    std::string line;
    while (line.find("ID  CLIENT") == std::string::npos)
      line = watch.ReadLine();
    EXPECT_THAT(line, StartsWith("\033[H\033[2J\033[3JID  CLIENT"));
  }
  watch.Signal(SIGINT);
  const Process::Result result = watch.Wait();
  EXPECT_EQ(kSuccess, result.exit_code);
  EXPECT_EQ("", result.errors);
}

// Takes a request and does not reply until it is told to.
class SilentStatus final : public rpc::status::ServerStatusRpc {
 public:
  void GetStatus(google::protobuf::RpcController*,
                 const rpc::status::StatusRequest*,
                 rpc::status::StatusReport*,
                 google::protobuf::Closure* done) override {
    asked = done;
  }

  google::protobuf::Closure* asked = nullptr;
};

TEST_F(StatusTest, AWatchWhoseServerKeepsSilentEndsWithTheSecondSignal) {
  SilentStatus status;
  rpc::loop::Loop loop;
  rpc::transport::Server server(loop);
  server.AddService(&status);
  ASSERT_TRUE(server.Listen(socket_).ok());
  Process watch(ClientWords({"status", "--watch"}));
  ASSERT_TRUE(loop.RunUntil([&] { return status.asked != nullptr; }));
  // Two at once could be one.
  siginfo_t ended = {};
  while (waitid(P_PID, static_cast<id_t>(watch.pid()), &ended,
                WEXITED | WNOHANG | WNOWAIT) == 0 &&
         ended.si_pid == 0) {
    watch.Signal(SIGINT);
    sched_yield();
  }
  EXPECT_EQ(-SIGINT, watch.Wait().exit_code);
  status.asked->Run();
}

TEST_F(StatusTest, AWatchEndsWithItsServer) {
  StartHost();
  Process watch(ClientWords({"status", "--watch", "--json"}));
  watch.ReadLine();
  StopHost();
  const Process::Result result = watch.Wait();
  EXPECT_EQ(kNoConnection, result.exit_code);
  EXPECT_EQ("windowctl: UNAVAILABLE: the server is stopping\n", result.errors);
}

TEST_F(StatusTest, JsonIsTheWholeReportOnOneLine) {
  StartHost();
  const Process& watcher = StartClient({"watch", "1"});
  const std::string json = Status({"--json"});
  EXPECT_EQ(json.size() - 1, json.find('\n'));
  EXPECT_THAT(json, HasSubstr(R"("pendingQuestions":0)"));

  rpc::status::StatusReport report;
  ASSERT_TRUE(rpcctl::FromJson(json, &report).ok());
  ASSERT_EQ(2, report.connections_size());
  EXPECT_EQ(watcher.pid(), report.connections(0).pid());
  EXPECT_EQ(getuid(), report.connections(0).uid());
  EXPECT_EQ(1u, report.connections(0).load().streams());
  EXPECT_EQ(0u, report.connections(1).load().streams());
  EXPECT_EQ(1u, report.total().streams());
  EXPECT_EQ("max_frame_bytes", report.refusals(0).limit());
}

TEST_F(StatusTest, RefusalsAreCountedUnderTheLimitThatWasSet) {
  StartHost({"--max-connections", "2"});
  StartClient({"watch", "1"});
  EXPECT_THAT(Status(), ContainsRegex("max_connections +0\n"));
  StartClient({"watch", "2"});
  const Process::Result refused = RunClient({"status"});
  EXPECT_EQ(kNoConnection, refused.exit_code);
  EXPECT_THAT(refused.errors, HasSubstr("max_connections, 2, are open"));
  // Until the host has noticed that one is gone, it goes on refusing.
  clients_.pop_back();
  Process::Result taken;
  do {
    taken = RunClient({"status"});
  } while (taken.exit_code == kNoConnection);
  EXPECT_THAT(taken.output, ContainsRegex("max_connections +[1-9]"));
}

TEST_F(StatusTest, ASubscriptionTooManyIsNoSubscription) {
  StartHost({"--max-subscriptions", "1"});
  const Process::Result result = RunClient({"watch", "1", "2"});
  EXPECT_EQ(kCallFailed, result.exit_code);
  EXPECT_EQ(
      "windowctl: RESOURCE_EXHAUSTED: max_subscriptions, 1, are in place\n",
      result.errors);
}

TEST_F(StatusTest, WrongUsageIsSaidBeforeConnecting) {
  const Process::Result result = RunClient({"status", "1"});
  EXPECT_EQ(kUsage, result.exit_code);
  EXPECT_EQ("windowctl: 'status' takes no arguments.\n", result.errors);
}

TEST_F(StatusTest, AbsentHostIsNoConnection) {
  EXPECT_EQ(kNoConnection, RunClient({"status"}).exit_code);
}

TEST_F(StatusTest, HostThatDoesNotOfferItIsAFailedCall) {
  rpc::loop::Loop loop;
  rpc::transport::Server server(loop);
  ASSERT_TRUE(server.Listen(socket_).ok());
  Process client(ClientWords({"status"}));
  EXPECT_TRUE(loop.RunUntil([&] {
    return server.counters().connections_accepted > 0 &&
           server.counters().connections_now == 0;
  }));
  const Process::Result result = client.Wait();
  EXPECT_EQ(kCallFailed, result.exit_code);
  EXPECT_EQ("", result.output);
  EXPECT_THAT(result.errors,
              StartsWith("windowctl: UNIMPLEMENTED: the server has no service "
                         "rpc.status.ServerStatus"));
}

}  // namespace
}  // namespace windowctl
