#include "core/common/rpc/stream/abstract_stream.h"

#include <gtest/gtest.h>

#include <memory>
#include <type_traits>
#include <utility>

#include "core/common/rpc/testing/fake_endpoint.h"
#include "core/common/rpc/testing/virtual_slot.h"
#include "rpc/transport/stream_message.pb.h"

namespace torvane {
namespace {

// Does what streams do with their base, and nothing else.
class PlainStream : public AbstractStream {
 public:
  PlainStream(StreamChannel channel, bool& destroyed)
      : AbstractStream(std::move(channel)), destroyed_(destroyed) {}
  ~PlainStream() override { destroyed_ = true; }

  void OnNext(rpc::transport::StreamMessage* message) override {
    sent_ = Send(*message);
  }
  void OnError(rpc::transport::StreamMessage*) override {}
  void OnCompleted() override { Complete(); }

  bool sent_ = false;

 private:
  bool& destroyed_;
};

TEST(AbstractStream, HasItsThreeOperationsAfterTheDestructor) {
  EXPECT_TRUE(std::has_virtual_destructor_v<AbstractStream>);
  EXPECT_EQ(SlotOf(&AbstractStream::OnNext), kDestructorSlots);
  EXPECT_EQ(SlotOf(&AbstractStream::OnError), kDestructorSlots + 1);
  EXPECT_EQ(SlotOf(&AbstractStream::OnCompleted), kDestructorSlots + 2);
}

TEST(AbstractStream, KeepsItsChannelUntilItIsDestroyed) {
  const auto client = std::make_shared<FakeClient>();
  bool destroyed = false;
  std::unique_ptr<AbstractStream> stream =
      std::make_unique<PlainStream>(MakeChannel(client), destroyed);
  stream->OnCompleted();
  EXPECT_EQ(client->completions, 1);
  EXPECT_EQ(client->endpoints_destroyed, 0);

  stream.reset();
  EXPECT_TRUE(destroyed);
  EXPECT_EQ(client->endpoints_destroyed, 1);
}

TEST(AbstractStream, WritesFramesToItsChannel) {
  const auto client = std::make_shared<FakeClient>();
  bool destroyed = false;
  PlainStream stream(MakeChannel(client), destroyed);
  rpc::transport::StreamMessage frame;
  frame.set_call_id(5);
  stream.OnNext(&frame);
  EXPECT_TRUE(stream.sent_);
  ASSERT_EQ(client->frames.size(), 1u);
  EXPECT_EQ(client->frames[0].call_id(), 5);

  client->reachable = false;
  stream.OnNext(&frame);
  EXPECT_FALSE(stream.sent_);
}

TEST(AbstractStream, MayBeDestroyedByItsTransportWithinComplete) {
  const auto client = std::make_shared<FakeClient>();
  bool destroyed = false;
  auto* stream = new PlainStream(MakeChannel(client), destroyed);
  client->on_complete = [stream] { delete stream; };
  stream->OnCompleted();
  EXPECT_TRUE(destroyed);
  EXPECT_EQ(client->endpoints_destroyed, 1);
}

}  // namespace
}  // namespace torvane
