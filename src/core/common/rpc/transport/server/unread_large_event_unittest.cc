// A large event for many clients that do not read lies in memory once.

#include <gtest/gtest.h>

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "core/common/rpc/stream/event_stream.h"
#include "core/common/rpc/testing/allocation_counter.h"
#include "core/common/rpc/testing/window_id.h"
#include "core/common/rpc/transport/event_subscriber.h"
#include "core/common/rpc/transport/testing/lab.h"

namespace rpc::transport {
namespace {

using torvane::WindowId;

constexpr size_t kClients = 30;
constexpr size_t kLargeBytes = 1'000'000;

ptrdiff_t LiveBytes() {
  return static_cast<ptrdiff_t>(torvane::CountAllocations().live_bytes);
}

class UnreadLargeEvent : public ::testing::Test {
 protected:
  void SetUp() override {
    for (size_t i = 0; i < kClients; ++i) {
      clients.push_back(lab.NewPeer());
      Subscribe(*clients.back());
    }
    lab.RunUntil([this] {
      return lab.server->counters().subscriptions_now == kClients;
    });
  }

  static void Subscribe(RawPeer& peer) {
    StreamOpenFrame open;
    open.set_stream_id(1);
    open.set_method_id(peer.IdOf("Watch"));
    peer.Send(Frame::kStreamOpen, open);
    rpc::EventSubscription subscription;
    *subscription.mutable_subscribe_to() = WindowId(1);
    StreamDataFrame data;
    data.add_stream_ids(1);
    subscription.SerializeToString(data.mutable_message()->mutable_payload());
    peer.Send(Frame::kStreamData, data);
  }

  void Publish(char letter) {
    lab::Text event;
    event.set_text(std::string(kLargeBytes, letter));
    EXPECT_EQ(torvane::EventStream<lab::Text>::Publish(WindowId(1), event),
              kClients);
    lab.RunReady();
  }

  Lab lab;
  std::vector<std::unique_ptr<RawPeer>> clients;
};

TEST_F(UnreadLargeEvent, LiesInMemoryOnceForAllClients) {
  const ptrdiff_t before = LiveBytes();
  Publish('a');
  EXPECT_LT(LiveBytes() - before, ptrdiff_t{2 * kLargeBytes});
  Publish('b');
  EXPECT_LT(LiveBytes() - before, ptrdiff_t{3 * kLargeBytes});
  // Each client counts it as its own.
  for (const serving::ConnectionReport& report :
       lab.server->Report().connections) {
    EXPECT_GT(report.queued_bytes, kLargeBytes);
  }
  lab.server->Stop();
  lab.RunReady();
  EXPECT_LT(LiveBytes() - before, ptrdiff_t{kLargeBytes / 2});
}

TEST_F(UnreadLargeEvent, ArrivesWholeAtThoseWhoReadLater) {
  Publish('a');
  Publish('b');
  for (const auto& client : clients) {
    for (const char letter : {'a', 'b'}) {
      const std::optional<Frame> frame = client->Receive();
      ASSERT_TRUE(frame && frame->has_stream_data());
      EXPECT_EQ(frame->stream_data().stream_ids_size(), 1);
      lab::Text event;
      ASSERT_TRUE(
          event.ParseFromString(frame->stream_data().message().payload()));
      EXPECT_EQ(event.text(), std::string(kLargeBytes, letter));
    }
  }
}

}  // namespace
}  // namespace rpc::transport
