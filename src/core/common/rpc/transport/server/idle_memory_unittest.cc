// What an idle connection costs, that neither side of it keeps the memory that
// a large message has taken, and that an event stream takes none for what it
// has no use for.

#include <gtest/gtest.h>
#include <sys/socket.h>

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "core/common/rpc/stream/event_stream.h"
#include "core/common/rpc/testing/allocation_counter.h"
#include "core/common/rpc/transport/event_subscriber.h"
#include "core/common/rpc/transport/testing/lab.h"

namespace rpc::transport {
namespace {

using lab::Lab_Stub;

constexpr size_t kLargeBytes = 3'000'000;

// What may remain: buffers for frames of usual sizes.
constexpr ptrdiff_t kIdleBytes = 512 << 10;

ptrdiff_t LiveBytes() {
  return static_cast<ptrdiff_t>(torvane::CountAllocations().live_bytes);
}

// What a client sends that makes one call.
std::string HelloAndCall(uint64_t method_id, const std::string& text) {
  HelloFrame hello;
  hello.set_protocol_version(kProtocolVersion);
  hello.set_max_frame_bytes(1 << 20);
  lab::Text request;
  request.set_text(text);
  CallFrame call;
  call.set_method_id(method_id);
  request.SerializeToString(call.mutable_request());
  std::string bytes;
  AppendFrame(Frame::kHello, hello, FrameSize(hello), &bytes);
  AppendFrame(Frame::kCall, call, FrameSize(call), &bytes);
  return bytes;
}

class IdleConnection : public ::testing::Test {
 protected:
  Lab lab{WithLargeRequests()};
  std::unique_ptr<Client> client = lab.NewClient();
  std::unique_ptr<RawPeer> peer = lab.NewPeer();
  const std::string large = std::string(kLargeBytes, 'x');
};

TEST_F(IdleConnection, KeepsNothingOfALargeCall) {
  const ptrdiff_t before = LiveBytes();
  EXPECT_TRUE(CallText(*client, &Lab_Stub::Echo, large).ok());
  EXPECT_LT(LiveBytes() - before, kIdleBytes);
}

TEST_F(IdleConnection, KeepsNothingOfALargeEvent) {
  size_t bytes = 0;
  EventSubscriber<lab::Text> subscriber(
      *client, lab::Lab::descriptor()->FindMethodByName("Watch"),
      [&](const lab::Text& event) { bytes += event.text().size(); });
  subscriber.Subscribe(BrowserId());
  lab.RunReady();
  const ptrdiff_t before = LiveBytes();
  {
    lab::Text event;
    event.set_text(large);
    EXPECT_EQ(torvane::EventStream<lab::Text>::Publish(BrowserId(), event), 1u);
  }
  lab.RunUntil([&] { return bytes == kLargeBytes; });
  EXPECT_LT(LiveBytes() - before, kIdleBytes);
}

TEST_F(IdleConnection, KeepsNothingOfALargeMessageToAStream) {
  const uint64_t frames = lab.server->counters().frames_read;
  const ptrdiff_t before = LiveBytes();
  {
    StreamDataFrame data;
    data.add_stream_ids(77);
    data.mutable_message()->set_payload(large);
    peer->Send(Frame::kStreamData, data);
  }
  lab.RunUntil([&] { return lab.server->counters().frames_read > frames; });
  EXPECT_LT(LiveBytes() - before, kIdleBytes);
}

TEST_F(IdleConnection, KeepsNothingOfAResponseThatWasTooLongForTheClient) {
  const ptrdiff_t before = LiveBytes();
  lab::Number size;
  size.set_number(kLargeBytes);
  CallFrame call;
  call.set_method_id(peer->IdOf("Make"));
  size.SerializeToString(call.mutable_request());
  peer->Send(Frame::kCall, call);
  const std::optional<Frame> reply = peer->Receive();
  ASSERT_TRUE(reply && reply->has_reply());
  EXPECT_TRUE(reply->reply().has_status());
  EXPECT_LT(LiveBytes() - before, kIdleBytes);
}

// What an event stream parses is never freed.
class EventStreamMemory : public IdleConnection {
 protected:
  void SetUp() override {
    StreamOpenFrame open;
    open.set_stream_id(1);
    open.set_method_id(peer->IdOf("Watch"));
    peer->Send(Frame::kStreamOpen, open);
    Say(Subscription(7));
  }
  static std::string Subscription(int64_t window) {
    EventSubscription subscription;
    subscription.mutable_subscribe_to()->set_value(window);
    return subscription.SerializeAsString();
  }
  void Say(const std::string& payload) {
    StreamDataFrame data;
    data.add_stream_ids(1);
    data.mutable_message()->set_payload(payload);
    peer->Send(Frame::kStreamData, data);
    lab.RunReady();
  }
};

TEST_F(EventStreamMemory, TakesNothingForWhatIsSubscribedToAlready) {
  constexpr int kTimes = 1'000;
  const ptrdiff_t before = torvane::CountAllocations().live();
  for (int i = 0; i < kTimes; ++i) {
    Say(Subscription(7));
  }
  EXPECT_LT(torvane::CountAllocations().live() - before, kTimes / 10);
  EXPECT_EQ(lab.server->counters().streams_now, 1u);
}

// Each of the unknown fields would be allocated.
TEST_F(EventStreamMemory, TakesNothingForASubscriptionThatIsTooLong) {
  constexpr size_t kFields = 20'000;
  std::string fields;
  for (size_t i = 0; i < kFields; ++i) {
    fields += std::string("\x4a\0", 2);
  }
  const size_t before = torvane::CountAllocations().allocations;
  Say(fields);
  EXPECT_LT(torvane::CountAllocations().allocations - before, kFields / 10);
  EXPECT_EQ(lab.server->counters().limit_hits.max_subscription_bytes, 1u);
}

// What `count` connections add to the memory that is in use, when all of them
// have had one call of Echo with `text`. Only the server's side has memory
// here; the other one is a descriptor.
ptrdiff_t BytesForConnections(Lab& lab, size_t count, const std::string& text) {
  std::vector<loop::ScopedFd> clients;
  clients.reserve(count);
  const uint64_t echo = lab.NewPeer()->IdOf("Echo");
  const std::string bytes = HelloAndCall(echo, text);
  std::string input(bytes.size() + 10'000, '\0');
  lab.RunReady();
  const uint64_t started = lab.server->counters().calls_started;
  const ptrdiff_t before = LiveBytes();
  for (size_t i = 0; i < count; ++i) {
    clients.push_back(lab.Connect());
    EXPECT_EQ(send(clients.back().get(), bytes.data(), bytes.size(), 0),
              static_cast<ssize_t>(bytes.size()));
    lab.RunReady();
    EXPECT_GT(recv(clients.back().get(), input.data(), input.size(), 0), 0);
  }
  EXPECT_EQ(lab.server->counters().calls_started, started + count);
  return LiveBytes() - before;
}

TEST_F(IdleConnection, CostsLessThanEightKib) {
  BytesForConnections(lab, 1, "");
  EXPECT_LT(BytesForConnections(lab, 100, ""), 100 * 8'192);
}

TEST_F(IdleConnection, CostsLessThanEightKibAlsoAfterUse) {
  const std::string text(30'000, 'x');
  BytesForConnections(lab, 1, text);
  EXPECT_LT(BytesForConnections(lab, 100, text), 100 * 8'192);
}

// Of half a frame that has come no more is kept than has come.
TEST_F(IdleConnection, KeepsOfHalfAFrameWhatHasCome) {
  peer->SendBytes(std::string("\xc0\x84\x3d", 3));  // of a million
  lab.RunReady();
  const ptrdiff_t before = LiveBytes();
  peer->SendBytes(std::string(3'000, 'x'));
  lab.RunReady();
  EXPECT_LT(LiveBytes() - before, 4'000);
}

}  // namespace
}  // namespace rpc::transport
