// Numbers of more than 32 bits are taken for what they are, not for their lower
// half.

#include <gtest/gtest.h>

#include <chrono>
#include <cstdint>
#include <limits>
#include <memory>
#include <optional>
#include <utility>

#include "absl/strings/str_cat.h"
#include "core/common/rpc/testing/socket_pair.h"
#include "core/common/rpc/transport/testing/lab.h"

namespace rpc::transport {
namespace {

constexpr uint64_t kTwoTo32 = uint64_t{1} << 32;

HelloFrame Hello() {
  HelloFrame hello;
  hello.set_protocol_version(kProtocolVersion);
  hello.set_max_frame_bytes(1 << 20);
  return hello;
}

class WideNumbers : public ::testing::Test {
 protected:
  ReplyFrame Call(uint64_t method_id, uint64_t timeout_ms = 0) {
    CallFrame call;
    call.set_call_id(kTwoTo32 + 7);
    call.set_method_id(method_id);
    call.set_timeout_ms(timeout_ms);
    peer->Send(Frame::kCall, call);
    const std::optional<Frame> frame = peer->Receive();
    return frame && frame->has_reply() ? frame->reply() : ReplyFrame();
  }

  Lab lab;
  std::unique_ptr<RawPeer> peer = lab.NewPeer();
};

TEST_F(WideNumbers, AMethodIdIsNotCutInACall) {
  const uint64_t id = kTwoTo32 + peer->IdOf("Echo");
  const ReplyFrame reply = Call(id);
  EXPECT_EQ(reply.call_id(), kTwoTo32 + 7);
  EXPECT_EQ(reply.status().code(), 12);
  EXPECT_EQ(reply.status().text(), absl::StrCat("no method has the id ", id));
}

TEST_F(WideNumbers, AMethodIdIsNotCutWhereAStreamIsOpened) {
  const uint64_t id = kTwoTo32 + peer->IdOf("Watch");
  StreamOpenFrame open;
  open.set_stream_id(1);
  open.set_method_id(id);
  peer->Send(Frame::kStreamOpen, open);
  const std::optional<Frame> frame = peer->Receive();
  ASSERT_TRUE(frame && frame->has_stream_end());
  EXPECT_EQ(frame->stream_end().status().code(), 12);
  EXPECT_EQ(frame->stream_end().status().text(),
            absl::StrCat("no method has the id ", id));
}

// Cut to 32 bits it would be a millisecond.
TEST_F(WideNumbers, ATimeoutIsNotCutAndMayBeAsLongAsANumberCanSay) {
  serving::CallContext::Deadline deadline;
  lab.service.on_echo = [&](serving::CallContext* context) {
    deadline = context->deadline();
  };
  for (const uint64_t timeout :
       {kTwoTo32 + 1, std::numeric_limits<uint64_t>::max()}) {
    deadline.reset();
    EXPECT_FALSE(Call(peer->IdOf("Echo"), timeout).has_status());
    ASSERT_TRUE(deadline);
    EXPECT_GT(*deadline,
              std::chrono::steady_clock::now() + std::chrono::hours(24 * 40));
  }
}

TEST_F(WideNumbers, AVersionIsNotCut) {
  RawPeer other(lab.loop, lab.Connect());
  HelloFrame hello = Hello();
  hello.set_protocol_version(kTwoTo32 + kProtocolVersion);
  other.Send(Frame::kHello, hello);
  EXPECT_EQ(other.AwaitGoodbye(),
            absl::FailedPreconditionError(
                "the client speaks protocol version 4294967297, this server "
                "version 1"));
}

// Cut to 32 bits it would be nothing. Beyond the server's own limit it counts
// as that.
TEST_F(WideNumbers, ALongestFrameIsNotCut) {
  RawPeer other(lab.loop, lab.Connect());
  HelloFrame hello = Hello();
  hello.set_max_frame_bytes(kTwoTo32);
  other.Send(Frame::kHello, hello);
  const std::optional<Frame> frame = other.Receive();
  ASSERT_TRUE(frame && frame->has_welcome());
}

// A server that says so of itself.
TEST(WideNumbersOfAServer, ALongestFrameAndAMethodIdAreNotCut) {
  loop::Loop loop;
  auto [ours, theirs] = torvane::SocketPair();
  RawPeer server(loop, std::move(ours));
  WelcomeFrame welcome;
  welcome.set_protocol_version(kProtocolVersion);
  welcome.set_max_frame_bytes(kTwoTo32);
  OfferedService* service = welcome.add_services();
  service->set_full_name("lab.Lab");
  OfferedMethod* echo = service->add_methods();
  echo->set_name("Echo");
  echo->set_id(kTwoTo32 + 3);
  server.Send(Frame::kWelcome, welcome);
  TextCall call;
  auto client = Client::Adopt(loop, std::move(theirs));
  ASSERT_TRUE(client.ok()) << client.status();
  call.Start(**client, &lab::Lab_Stub::Echo, "x");
  const std::optional<Frame> hello = server.Receive();
  ASSERT_TRUE(hello && hello->has_hello());
  const std::optional<Frame> frame = server.Receive();
  ASSERT_TRUE(frame && frame->has_call());
  EXPECT_EQ(frame->call().method_id(), kTwoTo32 + 3);
}

}  // namespace
}  // namespace rpc::transport
