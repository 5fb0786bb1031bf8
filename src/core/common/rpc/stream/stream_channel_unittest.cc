#include "core/common/rpc/stream/stream_channel.h"

#include <google/protobuf/descriptor.h>
#include <gtest/gtest.h>

#include <memory>
#include <optional>
#include <type_traits>
#include <utility>

#include "core/common/rpc/testing/fake_endpoint.h"
#include "rpc/transport/stream_message.pb.h"

namespace torvane {
namespace {

using google::protobuf::FieldDescriptor;

TEST(StreamChannel, IsMovedAndNeverCopied) {
  EXPECT_TRUE(std::is_nothrow_move_constructible_v<StreamChannel>);
  EXPECT_FALSE(std::is_copy_constructible_v<StreamChannel>);
  EXPECT_FALSE(std::is_copy_assignable_v<StreamChannel>);
}

TEST(StreamChannel, CarriesFramesAndTheEndToItsEndpoint) {
  const auto client = std::make_shared<FakeClient>();
  StreamChannel channel = MakeChannel(client);
  rpc::transport::StreamMessage frame;
  frame.set_payload("payload");
  frame.set_call_id(-7);
  EXPECT_TRUE(channel.Send(frame));
  ASSERT_EQ(client->frames.size(), 1u);
  EXPECT_EQ(client->frames[0].SerializeAsString(), frame.SerializeAsString());

  channel.Complete();
  EXPECT_EQ(client->completions, 1);
}

TEST(StreamChannel, SaysWhenAFrameCouldNotBeTaken) {
  const auto client = std::make_shared<FakeClient>();
  StreamChannel channel = MakeChannel(client);
  client->reachable = false;
  EXPECT_FALSE(channel.Send(rpc::transport::StreamMessage()));
}

TEST(StreamChannel, ADestroyedShellLeavesTheReceiverOfTheChannelAlone) {
  const auto client = std::make_shared<FakeClient>();
  std::optional<StreamChannel> shell(MakeChannel(client));
  StreamChannel channel = std::move(*shell);
  shell.reset();
  EXPECT_EQ(client->endpoints_destroyed, 0);
  EXPECT_TRUE(channel.Send(rpc::transport::StreamMessage()));
}

TEST(StreamChannel, OwnsItsEndpoint) {
  const auto client = std::make_shared<FakeClient>();
  { StreamChannel channel = MakeChannel(client); }
  EXPECT_EQ(client->endpoints_destroyed, 1);
}

TEST(StreamMessage, CarriesBytesAndASignedCallId) {
  const auto* frame = rpc::transport::StreamMessage::descriptor();
  EXPECT_EQ(frame->full_name(), "rpc.transport.StreamMessage");
  EXPECT_EQ(frame->FindFieldByName("payload")->type(),
            FieldDescriptor::TYPE_BYTES);
  EXPECT_EQ(frame->FindFieldByName("call_id")->type(),
            FieldDescriptor::TYPE_INT64);
}

}  // namespace
}  // namespace torvane
