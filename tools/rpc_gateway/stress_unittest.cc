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
#include <thread>
#include <vector>

#include "absl/strings/str_cat.h"
#include "core/common/rpc/conformance/scripted_service.h"
#include "core/common/rpc/grpc/testing/test_client.h"
#include "core/common/rpc/loop/loop.h"
#include "core/common/rpc/serving/counters.h"
#include "core/common/rpc/testing/private_folder.h"
#include "core/common/rpc/testing/window_id.h"
#include "core/common/rpc/transport/server.h"
#include "tools/rpcctl/process_test_support.h"

namespace rpc_gateway {
namespace {

using rpc::grpc::TestClient;
using rpcctl::Process;
using testing::StartsWith;

constexpr int kClients = 3;

int Seconds() {
  const char* const seconds = std::getenv("TORVANE_STRESS_SECONDS");
  return seconds == nullptr ? 3 : std::atoi(seconds);
}

// The host, on a thread of its own.
class Host {
 public:
  explicit Host(const std::string& socket) {
    server_.AddService(&service_);
    EXPECT_EQ(server_.Listen(socket), absl::OkStatus());
    thread_ = std::thread([this] { loop_.Run(); });
  }
  Host(const Host&) = delete;
  Host& operator=(const Host&) = delete;
  ~Host() { Stop(); }

  // When all clients have gone, and what they left behind has ended.
  void Stop() {
    if (!thread_.joinable()) {
      return;
    }
    loop_.Post([this] { StopWhenIdle(); });
    thread_.join();
  }

  // Once stopped.
  const rpc::serving::Counters& counters() const { return server_.counters(); }

 private:
  void StopWhenIdle() {
    if (server_.counters().connections_now == 0) {
      loop_.Stop();
    } else {
      timer_ = loop_.RunAfter(std::chrono::milliseconds(1),
                              [this] { StopWhenIdle(); });
    }
  }

  rpc::loop::Loop loop_;
  rpc::conformance::ScriptedService service_{loop_};
  rpc::transport::Server server_{loop_};
  std::unique_ptr<rpc::loop::Timer> timer_;
  std::thread thread_;
};

TEST(Stress, NothingIsLeftOfClientsThatDoAsTheyLike) {
  const torvane::PrivateFolder folder;
  const std::string socket = folder.File("host");
  Host host(socket);
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
  do {
    start_client(100 + killed)->Signal(SIGKILL);
    ++killed;
  } while (std::chrono::steady_clock::now() < end);
  for (const auto& client : clients) {
    const Process::Result result = client->Wait();
    EXPECT_EQ(result.exit_code, 0) << result.output << result.errors;
    std::cout << result.output;
  }
  clients.clear();
  std::cout << killed << " clients killed\n";

  // It serves as before.
  {
    rpc::loop::Loop loop;
    TestClient observer(loop, address);
    const auto call = observer.Call("/rpc.BrowserWindow/GetTitle",
                                    torvane::WindowId(1).SerializeAsString());
    EXPECT_TRUE(loop.RunUntil([&] { return call->over; }));
    EXPECT_EQ(call->status, absl::OkStatus());
  }
  // Under a sanitizer, what has leaked shows when it ends.
  gateway.Signal(SIGTERM);
  const Process::Result stopped = gateway.Wait();
  EXPECT_EQ(stopped.exit_code, 0) << stopped.errors;

  host.Stop();
  EXPECT_EQ(host.counters().calls_now, 0u);
  EXPECT_EQ(host.counters().calls_abandoned_now, 0u);
  EXPECT_EQ(host.counters().streams_now, 0u);
  EXPECT_EQ(host.counters().subscriptions_now, 0u);
  // The gateway itself kept to the protocol all the time.
  EXPECT_EQ(host.counters().protocol_violations, 0u);
  EXPECT_EQ(host.counters().handshakes_failed, 0u);
}

}  // namespace
}  // namespace rpc_gateway
