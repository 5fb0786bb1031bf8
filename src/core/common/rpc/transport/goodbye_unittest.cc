// Connections that are closed, but keep their sockets until their goodbyes have
// left: max_connections bounds them too.

#include <gtest/gtest.h>

#include <cstddef>
#include <filesystem>
#include <iterator>
#include <memory>
#include <string>
#include <vector>

#include "core/common/rpc/transport/lab.h"

namespace rpc::transport {
namespace {

using lab::Lab_Stub;

constexpr size_t kMaxConnections = 3;

size_t OpenDescriptors() {
  return static_cast<size_t>(
      std::distance(std::filesystem::directory_iterator("/proc/self/fd"),
                    std::filesystem::directory_iterator()));
}

class WaitingGoodbyes : public ::testing::Test {
 protected:
  static ServerOptions Options() {
    ServerOptions options;
    options.limits.max_connections = kMaxConnections;
    options.limits.goodbye_timeout = std::chrono::hours(1);
    return options;
  }

  // A client that does not read, and was closed for what it sent.
  std::unique_ptr<RawPeer> ClosedPeer() {
    auto peer = lab.NewPeer();
    CallFrame call;
    lab::Number size;
    size.set_number(1'000'000);
    call.set_method_id(peer->IdOf("Make"));
    size.SerializeToString(call.mutable_request());
    peer->Send(Frame::kCall, call);
    lab.RunReady();
    peer->SendHello();
    lab.RunReady();
    return peer;
  }
  const Counters& counters() { return lab.server->counters(); }

  const absl::Status why = absl::FailedPreconditionError("a second hello");
  Lab lab{Options()};
};

TEST_F(WaitingGoodbyes, AreKeptWhileThereIsRoomForTheirSockets) {
  const auto client = lab.NewClient();
  const auto first = ClosedPeer();
  const auto second = ClosedPeer();
  EXPECT_EQ(counters().connections_now, 1u);
  EXPECT_EQ(counters().limit_hits.goodbye_timeout, 0u);
  EXPECT_EQ(first->AwaitGoodbye(), why);
  EXPECT_EQ(second->AwaitGoodbye(), why);
}

TEST_F(WaitingGoodbyes, MakeRoomForAClientBeyondTheOldestFirst) {
  const auto client = lab.NewClient();
  const auto first = ClosedPeer();
  const auto second = ClosedPeer();
  const auto another = lab.NewClient();
  EXPECT_EQ(counters().limit_hits.goodbye_timeout, 1u);
  EXPECT_EQ(counters().limit_hits.max_connections, 0u);
  EXPECT_EQ(CallText(*another, &Lab_Stub::Echo, "here").value(), "here");
  EXPECT_EQ(CallText(*client, &Lab_Stub::Echo, "too").value(), "too");
  EXPECT_EQ(first->AwaitGoodbye(), absl::OkStatus());
  EXPECT_EQ(second->AwaitGoodbye(), why);
}

TEST_F(WaitingGoodbyes, ThatHaveLeftTakeNobodysPlace) {
  const auto client = lab.NewClient();
  const auto first = ClosedPeer();
  const auto second = ClosedPeer();
  EXPECT_EQ(first->AwaitGoodbye(), why);
  const auto another = lab.NewClient();
  EXPECT_EQ(counters().limit_hits.goodbye_timeout, 0u);
  EXPECT_EQ(second->AwaitGoodbye(), why);
}

TEST_F(WaitingGoodbyes, HoldNoMoreDescriptorsThanMaxConnections) {
  const size_t before = OpenDescriptors();
  std::vector<std::unique_ptr<RawPeer>> peers;
  for (size_t i = 0; i < 20; ++i) {
    peers.push_back(ClosedPeer());
  }
  EXPECT_EQ(counters().connections_refused, 0u);
  EXPECT_EQ(OpenDescriptors() - before - peers.size(), kMaxConnections);
}

}  // namespace
}  // namespace rpc::transport
