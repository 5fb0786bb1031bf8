#include "core/common/rpc/transport/reconnecting_client.h"

#include <gtest/gtest.h>
#include <sys/socket.h>

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "core/common/rpc/stream/event_stream.h"
#include "core/common/rpc/testing/private_folder.h"
#include "core/common/rpc/testing/window_id.h"
#include "core/common/rpc/transport/event_subscriber.h"
#include "core/common/rpc/transport/socket/unix_socket.h"
#include "core/common/rpc/transport/testing/lab.h"

namespace rpc::transport {
namespace {

using std::chrono::milliseconds;
using torvane::WindowId;

// A server that goes and comes, and a client that subscribes to window 1
// whenever it is connected.
class Reconnecting : public ::testing::Test {
 protected:
  Reconnecting() {
    options.first_pause = milliseconds(1);
    options.longest_pause = milliseconds(4);
    lab.server.reset();
  }

  void StartClient() {
    client.emplace(
        lab.loop, path, options,
        [this](Client& connected, const std::optional<Gap>& gap) {
          clients.push_back(&connected);
          gaps.push_back(gap);
          Subscribe(connected);
          std::exchange(when_connected, [] {})();
        },
        [this](const absl::Status& why, milliseconds pause) {
          downs.push_back(why);
          pauses.push_back(pause.count());
          std::exchange(when_down, [] {})();
        });
  }

  void StartServer() {
    lab.server.emplace(lab.loop);
    lab.server->AddService(&lab.service);
    const absl::Status listening = lab.server->Listen(path);
    ASSERT_TRUE(listening.ok()) << listening;
  }
  void StopServer() { lab.server.reset(); }

  void RunUntilConnected(size_t times) {
    lab.RunUntil([&] { return clients.size() >= times; });
  }
  void RunUntilDown(size_t times) {
    lab.RunUntil([&] { return downs.size() >= times; });
  }
  void RunUntilSubscribed() {
    lab.RunUntil([&] { return Publish("first") == 1; });
  }
  static size_t Publish(const std::string& text) {
    lab::Text event;
    event.set_text(text);
    return torvane::EventStream<lab::Text>::Publish(WindowId(1), event);
  }

  using Gap = ReconnectingClient::Gap;
  const torvane::PrivateFolder folder;
  const std::string path = folder.File("socket");
  ReconnectingOptions options;
  Lab lab;

  std::vector<Client*> clients;
  std::vector<std::optional<Gap>> gaps;
  std::vector<absl::Status> downs;
  std::vector<int64_t> pauses;
  std::vector<std::string> events;
  // Run once, at the end of the next callback.
  std::function<void()> when_connected = [] {};
  std::function<void()> when_down = [] {};
  std::optional<EventSubscriber<lab::Text>> subscriber;
  std::optional<ReconnectingClient> client;

 private:
  void Subscribe(Client& connected) {
    subscriber.emplace(
        connected, lab::Lab::descriptor()->FindMethodByName("Watch"),
        [this](const lab::Text& event) { events.push_back(event.text()); });
    subscriber->Subscribe(WindowId(1));
  }
};

TEST_F(Reconnecting, TheFirstConnectionHasMissedNothing) {
  StartServer();
  StartClient();
  EXPECT_TRUE(clients.empty());
  EXPECT_EQ(client->client(), nullptr);
  RunUntilConnected(1);
  EXPECT_EQ(client->client(), clients[0]);
  EXPECT_FALSE(gaps[0].has_value());
  EXPECT_TRUE(downs.empty());
}

TEST_F(Reconnecting, ANewConnectionIsSubscribedAnewAndToldWhatMayBeMissing) {
  StartServer();
  StartClient();
  RunUntilSubscribed();
  const loop::Clock::time_point before = lab.loop.Now();
  StopServer();
  RunUntilDown(1);
  EXPECT_EQ(client->client(), nullptr);
  EXPECT_EQ(Publish("unheard"), 0u);
  const loop::Clock::time_point between = lab.loop.Now();

  StartServer();
  RunUntilConnected(2);
  ASSERT_TRUE(gaps[1].has_value());
  EXPECT_EQ(gaps[1]->why, absl::UnavailableError("the server is stopping"));
  EXPECT_GE(gaps[1]->lost, before);
  EXPECT_LE(gaps[1]->lost, between);
  EXPECT_GE(gaps[1]->connected, between);
  EXPECT_EQ(client->client(), clients[1]);
  events.clear();
  RunUntilSubscribed();
  lab.RunUntil([&] { return !events.empty(); });
  EXPECT_EQ(events, std::vector<std::string>{"first"});
}

TEST_F(Reconnecting, AttemptsAreRepeatedWithAPauseThatGrows) {
  StartClient();
  RunUntilDown(5);
  EXPECT_EQ(downs[0], absl::UnavailableError("there is no socket at " + path +
                                             ": is the server up?"));
  EXPECT_EQ(pauses, (std::vector<int64_t>{1, 2, 4, 4, 4}));
  StartServer();
  RunUntilConnected(1);
  EXPECT_FALSE(gaps[0].has_value());
}

TEST_F(Reconnecting, AConnectionThatHasLastedMakesThePauseShortAgain) {
  StartClient();
  RunUntilDown(4);
  StartServer();
  RunUntilConnected(1);
  bool has_lasted = false;
  const std::unique_ptr<loop::Timer> timer =
      lab.loop.RunAfter(options.longest_pause, [&] { has_lasted = true; });
  lab.RunUntil([&] { return has_lasted; });
  const size_t before = pauses.size();
  StopServer();
  RunUntilDown(before + 2);
  EXPECT_EQ(pauses[before - 1], 4);
  EXPECT_EQ(pauses[before], 1);
  EXPECT_EQ(pauses[before + 1], 2);
}

TEST_F(Reconnecting, AConnectionThatIsLostAtOnceLeavesThePauseAsItIs) {
  options.longest_pause = std::chrono::hours(1);
  StartClient();
  RunUntilDown(2);
  StartServer();
  RunUntilConnected(1);
  const size_t before = pauses.size();
  StopServer();
  RunUntilDown(before + 1);
  EXPECT_EQ(pauses[before], 2 * pauses[before - 1]);
}

TEST_F(Reconnecting, AServerThatKeepsSilentIsTriedAgain) {
  const auto listener = UnixListener::Open(path);
  ASSERT_TRUE(listener.ok()) << listener.status();
  options.client.limits.handshake_timeout = milliseconds(1);
  StartClient();
  RunUntilDown(2);
  EXPECT_EQ(downs[1],
            absl::DeadlineExceededError("the server has not answered the hello "
                                        "within handshake_timeout, 1 ms"));
  EXPECT_TRUE(clients.empty());
}

TEST_F(Reconnecting, LimitsThatAreRefusedAreSaidEachTime) {
  StartServer();
  options.client.limits.max_calls = 0;
  StartClient();
  RunUntilDown(2);
  EXPECT_EQ(downs[1],
            absl::InvalidArgumentError("max_calls is 0, not 1 to 1000000"));
}

TEST_F(Reconnecting, ItMayBeDestroyedWhenItIsDown) {
  StartClient();
  bool later = false;
  std::unique_ptr<loop::Timer> timer;
  when_down = [&] {
    // Due after the next attempt would be.
    timer = lab.loop.RunAfter(2 * milliseconds(pauses[0]),
                              [&later] { later = true; });
    client.reset();
  };
  RunUntilDown(1);
  StartServer();
  lab.RunUntil([&] { return later; });
  EXPECT_TRUE(clients.empty());
  EXPECT_EQ(lab.server->counters().connections_accepted, 0u);
}

TEST_F(Reconnecting, ItMayBeDestroyedWhenItIsConnected) {
  StartServer();
  StartClient();
  when_connected = [this] { client.reset(); };
  RunUntilConnected(1);
  lab.RunUntil([&] { return lab.server->counters().connections_now == 0; });
  EXPECT_TRUE(downs.empty());
  // The stream that was opened says so.
  EXPECT_FALSE(subscriber->Subscribe(WindowId(2)));
}

TEST_F(Reconnecting, ItMayBeDestroyedWhenItsConnectionIsLost) {
  StartServer();
  StartClient();
  RunUntilConnected(1);
  when_down = [this] { client.reset(); };
  StopServer();
  RunUntilDown(1);
  lab.RunReady();
  EXPECT_EQ(downs.size(), 1u);
}

TEST_F(Reconnecting, DestroyedDuringAnAttemptItCallsNobody) {
  auto listener = UnixListener::Open(path);
  ASSERT_TRUE(listener.ok()) << listener.status();
  const loop::ScopedFd descriptor(listener->Release());
  StartClient();
  lab.RunReady();
  const loop::ScopedFd waiting(accept(descriptor.get(), nullptr, nullptr));
  EXPECT_TRUE(waiting.is_valid()) << "no attempt has begun";
  client.reset();
  lab.RunReady();
  EXPECT_TRUE(downs.empty());
}

TEST_F(Reconnecting, ABlockingCallMayBeMadeWhenItIsConnected) {
  StartServer();
  StartClient();
  absl::StatusOr<std::string> echo;
  when_connected = [&] {
    echo = CallText(*clients[0], &lab::Lab_Stub::Echo, "hello");
  };
  lab.RunUntil([&] { return echo.ok(); });
  EXPECT_EQ(*echo, "hello");
}

}  // namespace
}  // namespace rpc::transport
