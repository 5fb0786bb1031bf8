// What a peer of a later version of the protocol's messages may send without
// being misunderstood, and what it may rely on.

#include <google/protobuf/unknown_field_set.h>
#include <gtest/gtest.h>

#include <optional>
#include <string>
#include <utility>

#include "core/common/rpc/stream/event_stream.h"
#include "core/common/rpc/testing/socket_pair.h"
#include "core/common/rpc/testing/window_id.h"
#include "core/common/rpc/transport/event_subscriber.h"
#include "core/common/rpc/transport/testing/lab.h"

namespace rpc::transport {
namespace {

using lab::Lab_Stub;

// A field of a later version.
template <typename Body>
Body WithUnknownField(Body body) {
  body.GetReflection()->MutableUnknownFields(&body)->AddLengthDelimited(
      1'000, "of a later version");
  return body;
}

TEST(NewerPeer, AServerIgnoresAFieldOfABodyThatItDoesNotKnow) {
  Lab lab;
  RawPeer peer(lab.loop, lab.Connect());
  HelloFrame hello;
  hello.set_protocol_version(kProtocolVersion);
  hello.set_max_frame_bytes(1 << 20);
  peer.Send(Frame::kHello, WithUnknownField(hello));
  const std::optional<Frame> welcome = peer.Receive();
  ASSERT_TRUE(welcome && welcome->has_welcome());

  CallFrame call;
  call.set_call_id(7);
  call.set_method_id(peer.IdOf("Echo"));
  call.set_request(WithUnknownField(lab::Text()).SerializeAsString());
  peer.Send(Frame::kCall, WithUnknownField(call));
  const std::optional<Frame> reply = peer.Receive();
  ASSERT_TRUE(reply && reply->has_reply());
  EXPECT_EQ(reply->reply().call_id(), 7u);
  EXPECT_FALSE(reply->reply().has_status());
}

TEST(NewerPeer, AClientIgnoresAFieldOfABodyThatItDoesNotKnow) {
  loop::Loop loop;
  TextCall call;
  RawServer server(loop);
  call.Start(*server.client, &Lab_Stub::Echo, "x");
  ReplyFrame reply;
  reply.set_call_id(1);
  reply.set_response(WithUnknownField(lab::Text()).SerializeAsString());
  server.peer.Send(Frame::kReply, WithUnknownField(reply));
  ASSERT_TRUE(loop.RunUntil([&] { return call.over(); }));
  EXPECT_TRUE(call.controller.status().ok()) << call.controller.status();
}

// A frame is a Frame with one body, and nothing beside it.
std::string WithFieldBesideTheBody(const std::string& frame) {
  std::string grown = frame + std::string("\xc0\x3e\x01", 3);
  grown[0] = static_cast<char>(grown.size() - 1);
  return grown;
}

std::string Bytes(FrameKind kind, const google::protobuf::MessageLite& body) {
  std::string bytes;
  AppendFrame(kind, body, FrameSize(body), &bytes);
  EXPECT_LT(bytes.size(), 100u) << "its length takes more than one byte";
  return bytes;
}

TEST(NewerPeer, AServerTakesNoFieldBesideTheBody) {
  Lab lab;
  const auto peer = lab.NewPeer();
  CancelFrame cancel;
  cancel.set_call_id(1);
  peer->SendBytes(WithFieldBesideTheBody(Bytes(Frame::kCancel, cancel)));
  EXPECT_TRUE(absl::IsInvalidArgument(peer->AwaitGoodbye()));
}

TEST(NewerPeer, AClientTakesNoFieldBesideTheBody) {
  loop::Loop loop;
  RawServer server(loop);
  StreamEndFrame end;
  end.set_stream_id(1);
  server.peer.SendBytes(WithFieldBesideTheBody(Bytes(Frame::kStreamEnd, end)));
  ASSERT_TRUE(loop.RunUntil([&] { return !server.client->status().ok(); }));
  EXPECT_TRUE(absl::IsInvalidArgument(server.client->status()));
}

// How a client's stream of events ends whose server offers that method.
absl::Status EndOfWatch(const OfferedMethod& offered) {
  loop::Loop loop;
  auto [ours, theirs] = torvane::SocketPair();
  RawPeer server(loop, std::move(ours));
  WelcomeFrame welcome;
  welcome.set_protocol_version(kProtocolVersion);
  welcome.set_max_frame_bytes(1 << 20);
  OfferedService* service = welcome.add_services();
  service->set_full_name("lab.Lab");
  *service->add_methods() = offered;
  server.Send(Frame::kWelcome, welcome);
  const auto client = Client::Adopt(loop, std::move(theirs));
  EXPECT_TRUE(client.ok()) << client.status();
  std::optional<absl::Status> end;
  EventSubscriber<lab::Text> subscriber(
      **client, lab::Lab::descriptor()->FindMethodByName("Watch"),
      [](const lab::Text&) {},
      [&end](const absl::Status& status) { end = status; });
  EXPECT_TRUE(loop.RunUntil([&end] { return end.has_value(); }));
  return *end;
}

// What streams on the server in a way that this client does not know.
TEST(NewerPeer, AClientOpensNoStreamOfAKindThatItDoesNotKnow) {
  OfferedMethod watch;
  watch.set_name("Watch");
  watch.set_streaming(true);
  watch.set_stream_kind(static_cast<OfferedMethod::StreamKind>(1'000));
  EXPECT_EQ(EndOfWatch(watch),
            absl::UnimplementedError(
                "lab.Lab.Watch is a stream of a newer kind on the server, not "
                "an event stream"));
}

TEST(NewerPeer, AClientOpensNoStreamThatIsSomethingElseOnTheServer) {
  OfferedMethod watch;
  watch.set_name("Watch");
  EXPECT_EQ(EndOfWatch(watch), absl::UnimplementedError(
                                   "lab.Lab.Watch is no stream on the server"));
  watch.set_streaming(true);
  watch.set_stream_kind(OfferedMethod::STREAM_KIND_QUESTIONS);
  EXPECT_EQ(EndOfWatch(watch),
            absl::UnimplementedError("lab.Lab.Watch is a callback stream on "
                                     "the server, not an event stream"));
}

// So the client of one may know when its subscriptions count.
TEST(Order, AReplyMeansThatWhatWasSentBeforeItsCallIsHandled) {
  constexpr int kWindows = 100;
  Lab lab;
  const auto client = lab.NewClient();
  EventSubscriber<lab::Text> subscriber(
      *client, lab::Lab::descriptor()->FindMethodByName("Watch"),
      [](const lab::Text&) {});
  for (int window = 1; window <= kWindows; ++window) {
    subscriber.Subscribe(torvane::WindowId(window));
  }
  ASSERT_TRUE(CallText(*client, &Lab_Stub::Echo, "x").ok());
  for (int window = 1; window <= kWindows; ++window) {
    EXPECT_EQ(torvane::EventStream<lab::Text>::Publish(
                  torvane::WindowId(window), lab::Text()),
              1u);
  }
}

}  // namespace
}  // namespace rpc::transport
