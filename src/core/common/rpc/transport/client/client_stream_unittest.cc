// What a client sends for its streams, frame by frame.

#include "core/common/rpc/transport/client/client_stream.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "core/common/rpc/transport/testing/lab.h"

namespace rpc::transport {
namespace {

using ::testing::ElementsAre;

constexpr uint64_t kWatch = 1;

class ClientStreamTest : public ::testing::Test {
 protected:
  ClientStreamTest() {
    Receive(Frame::kHello);
    Open();
  }

  void Open() {
    stream_.emplace(
        *server_.client, kWatch, [](const StreamMessage&) {},
        [this](const absl::Status& end) { ends_.push_back(end); });
  }
  Frame Receive(Frame::BodyCase kind) {
    const std::optional<Frame> frame = server_.peer.Receive();
    EXPECT_TRUE(frame.has_value());
    EXPECT_EQ(frame.value_or(Frame()).body_case(), kind);
    return frame.value_or(Frame());
  }
  // The client has sent nothing since.
  void ExpectNoMoreFrames() {
    call_.Start(*server_.client, &lab::Lab_Stub::Echo, "x");
    Receive(Frame::kCall);
  }
  static StreamMessage Message(const std::string& payload) {
    StreamMessage message;
    message.set_payload(payload);
    return message;
  }

  loop::Loop loop_;
  TextCall call_;
  RawServer server_{loop_};
  std::vector<absl::Status> ends_;
  std::optional<ClientStream> stream_;
};

TEST_F(ClientStreamTest, SendsMessagesAndErrorsInTheirOrder) {
  EXPECT_TRUE(stream_->Send(Message("a")));
  EXPECT_TRUE(stream_->SendError(Message("b")));
  EXPECT_EQ(Receive(Frame::kStreamOpen).stream_open().method_id(), kWatch);
  EXPECT_EQ(Receive(Frame::kStreamData).stream_data().message().payload(), "a");
  const Frame error = Receive(Frame::kStreamError);
  EXPECT_EQ(error.stream_error().message().payload(), "b");
  EXPECT_EQ(error.stream_error().stream_id(), 1u);
}

TEST_F(ClientStreamTest, EndsOnceAndSendsNothingAfterwards) {
  stream_->End();
  stream_->End();
  EXPECT_FALSE(stream_->Send(Message("a")));
  EXPECT_FALSE(stream_->SendError(Message("b")));
  stream_.reset();
  Receive(Frame::kStreamOpen);
  EXPECT_EQ(Receive(Frame::kStreamEnd).stream_end().stream_id(), 1u);
  ExpectNoMoreFrames();
}

TEST_F(ClientStreamTest, AnswersTheEndOfTheServerWithItsOwn) {
  Receive(Frame::kStreamOpen);
  StreamEndFrame end;
  end.set_stream_id(1);
  server_.peer.Send(Frame::kStreamEnd, end);
  Receive(Frame::kStreamEnd);
  EXPECT_THAT(ends_, ElementsAre(absl::OkStatus()));
  stream_.reset();
  ExpectNoMoreFrames();
}

TEST_F(ClientStreamTest, OfALostClientEndsWithTheReasonOfTheLoss) {
  server_.peer.Send(Frame::kGoodbye, GoodbyeFrame());
  ASSERT_TRUE(loop_.RunUntil([this] { return !ends_.empty(); }));
  Open();
  ASSERT_TRUE(loop_.RunUntil([this] { return ends_.size() == 2; }));
  EXPECT_EQ(ends_[0], absl::UnavailableError("the server said goodbye"));
  EXPECT_EQ(ends_[1], ends_[0]);
}

// Whoever opens a stream anew whenever it ends lets others have their turns.
TEST_F(ClientStreamTest, OpenedAsTheClientIsLostEndsOnALaterTurn) {
  bool others_had_a_turn = false;
  std::optional<ClientStream> stream;
  const ClientStream::EndCallback open_anew = [&](const absl::Status& end) {
    ends_.push_back(end);
    if (ends_.size() == 2) {
      EXPECT_TRUE(others_had_a_turn);
      return;
    }
    loop_.Post([&] { others_had_a_turn = true; });
    stream.emplace(
        *server_.client, kWatch, [](const StreamMessage&) {}, open_anew);
  };
  stream_.reset();
  stream.emplace(
      *server_.client, kWatch, [](const StreamMessage&) {}, open_anew);
  server_.peer.Send(Frame::kGoodbye, GoodbyeFrame());
  ASSERT_TRUE(loop_.RunUntil([this] { return ends_.size() == 2; }));
  EXPECT_EQ(ends_[1], absl::UnavailableError("the server said goodbye"));
}

// Its own end is told on a later turn, which finds it gone.
TEST_F(ClientStreamTest, OfNoMethodEndsOnceThoughItsClientGoesMeanwhile) {
  std::vector<absl::Status> ends;
  ClientStream refused(
      *server_.client, absl::NotFoundError("no such method"),
      [](const StreamMessage&) {},
      [&](const absl::Status& end) { ends.push_back(end); });
  server_.client.reset();
  loop_.RunReady();
  EXPECT_THAT(ends,
              ElementsAre(absl::CancelledError("the client was destroyed")));
}

}  // namespace
}  // namespace rpc::transport
