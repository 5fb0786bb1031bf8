// A server with many open streams stops, whether or not its clients read.

#include <gtest/gtest.h>

#include <algorithm>
#include <cstddef>
#include <filesystem>
#include <memory>
#include <string>
#include <vector>

#include "core/common/rpc/testing/private_folder.h"
#include "core/common/rpc/transport/testing/probe_service.h"

namespace rpc::transport {
namespace {

constexpr size_t kStreams = 1'000;
constexpr size_t kClients = 10;

class Stop : public ProbeTest {
 protected:
  // A server that listens, with all clients connected and their streams open.
  void ServeMany() {
    server.emplace(loop);
    server->AddService(&service);
    ASSERT_TRUE(server->Listen(path_).ok());
    for (size_t i = 0; i < kClients; ++i) {
      peer = NewPeer();
      for (uint64_t id = 0; id < kStreams / kClients; ++id) {
        Open(id);
      }
      peers_.push_back(std::move(peer));
    }
    ASSERT_EQ(counters().streams_now, kStreams);
  }

  // Every stream says more than the sockets take; nobody reads.
  void FillSockets() {
    int64_t number = 0;
    for (ProbeStream* stream : service.streams) {
      EXPECT_TRUE(stream->Say(std::string(10'000, 'x'), ++number));
    }
    RunReady();
    const std::vector<serving::ConnectionReport> reports =
        server->Report().connections;
    ASSERT_EQ(reports.size(), kClients);
    for (const serving::ConnectionReport& report : reports) {
      EXPECT_GT(report.queued_bytes, 0u);
    }
  }

  // Each stream has been told once, and then destroyed.
  void ExpectAllStreamsAreOver() {
    Log expected;
    for (size_t i = 1; i <= kStreams; ++i) {
      expected.push_back(std::to_string(i) + " completed");
      expected.push_back(std::to_string(i) + " destroyed");
    }
    Log log = TakeLog();
    std::sort(expected.begin(), expected.end());
    std::sort(log.begin(), log.end());
    EXPECT_EQ(log, expected);
    EXPECT_EQ(counters().streams_now, 0u);
  }

  // Waits for nobody: each turn of the loop is ready at once.
  void RunUntilEverythingHasEnded() {
    while (counters().connections_now > 0) {
      ASSERT_EQ(loop.context().poll_one(), 1u);
    }
  }

  bool HasSocket() const { return std::filesystem::exists(path_); }

  const torvane::PrivateFolder folder_;
  const std::string path_ = folder_.File("socket");
  std::vector<std::unique_ptr<RawPeer>> peers_;
};

TEST_F(Stop, EndsAllStreamsOfClientsThatReadWithoutWaiting) {
  ServeMany();
  ASSERT_TRUE(HasSocket());
  server->Stop();
  EXPECT_FALSE(HasSocket());
  RunUntilEverythingHasEnded();
  ExpectAllStreamsAreOver();
  for (const auto& client : peers_) {
    EXPECT_EQ(client->AwaitGoodbye(),
              absl::UnavailableError("the server is stopping"));
  }
}

TEST_F(Stop, EndsAllStreamsOfClientsThatDoNotReadWithoutWaiting) {
  ServeMany();
  FillSockets();
  TakeLog();
  server->Stop();
  EXPECT_FALSE(HasSocket());
  RunUntilEverythingHasEnded();
  ExpectAllStreamsAreOver();
  // Returns, although the clients have not read anything.
  loop.Run();
}

// Clients hear of it before the first stream ends.
TEST_F(Stop, SaysGoodbyeToAllClientsBeforeTheirStreamsHaveEnded) {
  ServeMany();
  server->Stop();
  EXPECT_EQ(loop.context().poll_one(), 1u);
  EXPECT_EQ(counters().streams_now, kStreams);
  EXPECT_EQ(counters().connections_now, kClients);
  for (const auto& client : peers_) {
    EXPECT_EQ(client->AwaitGoodbye(),
              absl::UnavailableError("the server is stopping"));
  }
  RunUntilEverythingHasEnded();
  ExpectAllStreamsAreOver();
}

TEST_F(Stop, IsOverAtOnceWhenTheServerIsDestroyedMeanwhile) {
  ServeMany();
  server->Stop();
  EXPECT_EQ(loop.context().poll_one(), 1u);
  // A slice, which ends some streams or all of them.
  EXPECT_EQ(loop.context().poll_one(), 1u);
  server.reset();
  Log log = TakeLog();
  EXPECT_EQ(log.size(), 2 * kStreams);
  loop.Run();
}

TEST(StopDeathTest, AServerIsNotDestroyedFromWithinItsService) {
  Lab lab;
  const auto client = lab.NewClient();
  lab.service.on_echo = [&](serving::CallContext*) { lab.server.reset(); };
  EXPECT_DEATH(CallText(*client, &lab::Lab_Stub::Echo, "x").IgnoreError(),
               "a Server is destroyed from within one of its services");
}

}  // namespace
}  // namespace rpc::transport
