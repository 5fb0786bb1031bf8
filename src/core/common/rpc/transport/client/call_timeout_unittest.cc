// How long a call may take: by its controller, or else by its client.

#include <gtest/gtest.h>

#include <chrono>
#include <cstdint>
#include <limits>
#include <optional>

#include "core/common/rpc/transport/testing/lab.h"

namespace rpc::transport {
namespace {

using lab::Lab_Stub;
using std::chrono::hours;
using std::chrono::milliseconds;

ClientOptions WithCallTimeout(std::optional<milliseconds> timeout) {
  ClientOptions options;
  options.call_timeout = timeout;
  return options;
}

// A client whose calls reach a peer, which never answers.
struct TimedClient {
  explicit TimedClient(std::optional<milliseconds> call_timeout)
      : server(loop, WithCallTimeout(call_timeout)) {}

  // Begins the call, and returns the timeout that the server is told.
  uint64_t Start() {
    call.Start(*server.client, &Lab_Stub::Echo, "x");
    std::optional<Frame> frame;
    do {
      frame = server.peer.Receive();
    } while (frame && !frame->has_call());
    return frame ? frame->call().timeout_ms() : 0;
  }

  void Cancel() {
    call.controller.StartCancel();
    EXPECT_TRUE(loop.RunUntil([&] { return call.over(); }));
  }

  loop::Loop loop;
  TextCall call;
  RawServer server;
};

TEST(CallTimeout, WithoutOneACallWaitsForEver) {
  TimedClient client(std::nullopt);
  EXPECT_EQ(client.Start(), 0u);
}

TEST(CallTimeout, TheClientsHoldsForACallWithoutItsOwn) {
  TimedClient client(hours(1));
  EXPECT_EQ(client.Start(), 3'600'000u);
}

TEST(CallTimeout, TheCallsOwnComesBeforeTheClients) {
  for (const milliseconds own : {milliseconds(hours(2)), milliseconds(70)}) {
    TimedClient client(hours(1));
    client.call.controller.set_timeout(own);
    EXPECT_EQ(client.Start(), static_cast<uint64_t>(own.count()));
  }
}

TEST(CallTimeout, ResetForgetsTheCallsOwnAndKeepsTheClients) {
  TimedClient client(hours(1));
  client.call.controller.set_timeout(hours(2));
  EXPECT_EQ(client.Start(), 7'200'000u);
  client.Cancel();
  client.call.controller.Reset();
  EXPECT_EQ(client.Start(), 3'600'000u);
}

TEST(CallTimeout, TheClientKeepsItWhereTheServerDoesNot) {
  TimedClient client(milliseconds(1));
  client.Start();
  EXPECT_TRUE(client.loop.RunUntil([&] { return client.call.over(); }));
  EXPECT_EQ(client.call.controller.status(),
            absl::DeadlineExceededError("the call was not answered in time"));
}

// An older server would take the lower half of it for all of it.
TEST(CallTimeout, OfMoreThan32BitsIsKeptByTheClientAlone) {
  constexpr int64_t kLongest = std::numeric_limits<uint32_t>::max();
  TimedClient longest{milliseconds(kLongest)};
  EXPECT_EQ(longest.Start(), static_cast<uint64_t>(kLongest));
  TimedClient longer{milliseconds(kLongest + 1)};
  EXPECT_EQ(longer.Start(), 0u);
}

TEST(CallTimeout, OfNothingFailsTheCallAtOnce) {
  TimedClient client(milliseconds(0));
  EXPECT_EQ(CallText(*client.server.client, &Lab_Stub::Echo, "x").status(),
            absl::DeadlineExceededError("no time was left for the call"));
}

}  // namespace
}  // namespace rpc::transport
