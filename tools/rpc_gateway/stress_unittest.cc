// Many clients at once do whatever a client may do, some until they are killed.
// Nothing is left of them, neither in the gateway nor in the host.
//
// TORVANE_STRESS_SECONDS says for how long; a minute is a good one by hand.

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <signal.h>

#include <chrono>
#include <cstdlib>
#include <iostream>
#include <memory>
#include <string>
#include <vector>

#include "absl/strings/str_cat.h"
#include "core/common/rpc/grpc/testing/test_client.h"
#include "core/common/rpc/loop/loop.h"
#include "core/common/rpc/testing/private_folder.h"
#include "rpc/status/server_status.pb.h"
#include "tools/rpcctl/process_test_support.h"

namespace rpc_gateway {
namespace {

using rpc::grpc::TestClient;
using rpcctl::Process;
using testing::HasSubstr;
using testing::StartsWith;

constexpr int kClients = 3;

int Seconds() {
  const char* const seconds = std::getenv("TORVANE_STRESS_SECONDS");
  return seconds == nullptr ? 3 : std::atoi(seconds);
}

rpc::status::StatusReport Status(rpc::loop::Loop& loop, TestClient& client) {
  rpc::status::StatusReport report;
  const auto call = client.Call("/rpc.status.ServerStatus/GetStatus", "");
  EXPECT_TRUE(loop.RunUntil([&] { return call->over; }));
  EXPECT_EQ(call->status, absl::OkStatus());
  EXPECT_TRUE(report.ParseFromString(call->response));
  return report;
}

TEST(Stress, NothingIsLeftOfClientsThatDoAsTheyLike) {
  const torvane::PrivateFolder folder;
  const std::string socket = folder.File("host");
  Process host({WINDOW_HOST, "--socket", socket, "--windows", "1000",
                "--answer-timeout", "0.05"});
  ASSERT_THAT(host.ReadLine(), HasSubstr("ready at"));
  host.CloseErrors();
  host.CloseOutput();
  Process gateway({RPC_GATEWAY, "--socket", socket, "--listen", "127.0.0.1:0",
                   "--idle-peer", "0.05"});
  const std::string ready = gateway.ReadLine();
  ASSERT_THAT(ready, StartsWith("rpc_gateway: ready at "));
  const std::string address = ready.substr(ready.rfind(' ') + 1);

  const auto start_client = [&](int seed) {
    auto client = std::make_unique<Process>(std::vector<std::string>{
        STRESS_CLIENT, address, absl::StrCat(seed), absl::StrCat(Seconds())});
    EXPECT_EQ(client->ReadLine(), "busy");
    return client;
  };
  std::vector<std::unique_ptr<Process>> clients;
  for (int seed = 1; seed <= kClients; ++seed) {
    clients.push_back(start_client(seed));
  }
  // Others are killed in the midst of it.
  const auto end =
      std::chrono::steady_clock::now() + std::chrono::seconds(Seconds());
  int killed = 0;
  while (std::chrono::steady_clock::now() < end) {
    start_client(100 + killed)->Signal(SIGKILL);
    ++killed;
  }
  EXPECT_GT(killed, 0);
  for (const auto& client : clients) {
    const Process::Result result = client->Wait();
    EXPECT_EQ(result.exit_code, 0) << result.output << result.errors;
    std::cout << result.output;
  }
  clients.clear();

  rpc::loop::Loop loop;
  TestClient observer(loop, address);
  rpc::status::StatusReport report = Status(loop, observer);
  // The gateway itself, and this.
  while (report.connections_size() != 2) {
    report = Status(loop, observer);
  }
  EXPECT_EQ(report.total().calls_in_flight(), 0u);
  EXPECT_EQ(report.total().streams(), 0u);
  EXPECT_EQ(report.total().pending_questions(), 0u);

  // Under a sanitizer, what has leaked shows when it ends.
  gateway.Signal(SIGTERM);
  const Process::Result stopped = gateway.Wait();
  EXPECT_EQ(stopped.exit_code, 0) << stopped.errors;
  host.Signal(SIGTERM);
  EXPECT_EQ(host.Wait().exit_code, 0);
}

}  // namespace
}  // namespace rpc_gateway
