#include "core/common/rpc/transport/wire/outbox.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <limits>
#include <map>
#include <string>
#include <string_view>
#include <vector>

#include "rpc/transport/frame.pb.h"

namespace rpc::transport {
namespace {

class OutboxTest : public ::testing::Test {
 protected:
  // A goodbye whose text is `text`.
  void Append(const std::string& text) {
    GoodbyeFrame goodbye;
    goodbye.mutable_status()->set_text(text);
    const size_t size = FrameSize(goodbye);
    outbox.Append(Frame::kGoodbye, goodbye, size);
  }

  // Has up to `size` bytes written.
  void Write(size_t size) {
    while (size > 0 && outbox.bytes() > 0) {
      const std::string_view front = outbox.Front().substr(0, size);
      written += front;
      size -= front.size();
      outbox.Written(front.size());
    }
  }

  // The texts of all frames that have been written whole.
  std::vector<std::string> Texts() const {
    FrameBuffer buffer(1 << 20);
    std::vector<std::string> texts;
    std::string_view rest = written;
    while (!rest.empty()) {
      const auto space = buffer.Space();
      const size_t size = std::min(rest.size(), space.size());
      std::copy_n(rest.data(), size, space.data());
      buffer.Commit(size);
      rest.remove_prefix(size);
      FrameView frame;
      absl::Status status;
      while (buffer.Next(&frame, &status) == FrameBuffer::kFrame) {
        GoodbyeFrame goodbye;
        EXPECT_TRUE(ParseBody(frame.body, &goodbye).ok());
        texts.push_back(goodbye.status().text());
      }
      EXPECT_TRUE(status.ok()) << status;
    }
    return texts;
  }

  Outbox outbox;
  std::string written;
};

using TextList = std::vector<std::string>;

TEST_F(OutboxTest, IsEmptyAtFirst) {
  EXPECT_EQ(outbox.bytes(), 0u);
  EXPECT_TRUE(outbox.Front().empty());
  outbox.DropUnbegun();
  EXPECT_EQ(outbox.bytes(), 0u);
}

TEST_F(OutboxTest, GivesOutFramesOfAnySizeInTheirOrder) {
  TextList texts;
  for (const size_t size :
       {0, 1, 200, 5'000, 16'000, 17'000, 60'000, 3, 70'000, 300'000, 7}) {
    texts.emplace_back(size, 'x');
    Append(texts.back());
  }
  const size_t bytes = outbox.bytes();
  Write(bytes);
  EXPECT_EQ(written.size(), bytes);
  EXPECT_EQ(outbox.bytes(), 0u);
  EXPECT_EQ(Texts(), texts);
}

TEST_F(OutboxTest, FramesMayComeAndGoInAnyRhythm) {
  TextList texts;
  for (int i = 0; i < 3'000; ++i) {
    texts.emplace_back(static_cast<size_t>(i) % 700, 'x');
    Append(texts.back());
    Write(static_cast<size_t>(i) * 37 % 800);
  }
  Write(outbox.bytes());
  EXPECT_EQ(Texts(), texts);
}

TEST_F(OutboxTest, SmallFramesShareOneWrite) {
  for (int i = 0; i < 1'000; ++i) {
    Append("small");
  }
  EXPECT_EQ(outbox.Front().size(), outbox.bytes());
}

TEST_F(OutboxTest, DropsFramesThatHaveNotBegun) {
  Append("first");
  Append("second");
  Append(std::string(100'000, 'x'));
  Append("last");
  outbox.DropUnbegun();
  EXPECT_EQ(outbox.bytes(), 0u);
  Append("goodbye");
  Write(outbox.bytes());
  EXPECT_EQ(Texts(), TextList{"goodbye"});
}

TEST_F(OutboxTest, KeepsTheFrameThatHasBegun) {
  Append("first");
  const size_t first = outbox.bytes();
  Append("second");
  Append("third");
  Append(std::string(100'000, 'x'));
  Write(first + 1);
  outbox.DropUnbegun();
  Append("goodbye");
  Write(outbox.bytes());
  EXPECT_EQ(Texts(), (TextList{"first", "second", "goodbye"}));
}

TEST_F(OutboxTest, KeepsNothingWhereAFrameHasJustBeenWritten) {
  Append("first");
  Write(outbox.bytes() / 2);
  const size_t rest = outbox.bytes();
  Append("second");
  Write(rest);
  outbox.DropUnbegun();
  EXPECT_EQ(outbox.bytes(), 0u);
  Append("goodbye");
  Write(outbox.bytes());
  EXPECT_EQ(Texts(), (TextList{"first", "goodbye"}));
}

TEST_F(OutboxTest, KeepsTheRestOfALargeFrame) {
  Append(std::string(300'000, 'x'));
  Append("second");
  Write(100'000);
  outbox.DropUnbegun();
  Append("goodbye");
  Write(outbox.bytes());
  EXPECT_EQ(Texts(), (TextList{std::string(300'000, 'x'), "goodbye"}));
}

TEST_F(OutboxTest, CountsRepliesAndNotStreamData) {
  GoodbyeFrame body;
  outbox.Append(Frame::kStreamData, body, FrameSize(body));
  EXPECT_GT(outbox.bytes(), 0u);
  EXPECT_EQ(outbox.reply_bytes(), 0u);
  const size_t data = outbox.bytes();
  outbox.Append(Frame::kReply, body, FrameSize(body));
  EXPECT_EQ(outbox.reply_bytes(), outbox.bytes() - data);
  Write(outbox.bytes());
  EXPECT_EQ(outbox.reply_bytes(), 0u);
}

TEST_F(OutboxTest, CountsRepliesOfAChunkUntilItIsWritten) {
  Append(std::string(300'000, 'x'));
  const size_t first = outbox.bytes();
  Append("second");
  EXPECT_EQ(outbox.reply_bytes(), outbox.bytes());
  Write(first - 1);
  EXPECT_EQ(outbox.reply_bytes(), first + outbox.bytes() - 1);
  Write(1);
  EXPECT_EQ(outbox.reply_bytes(), outbox.bytes());
  outbox.DropUnbegun();
  EXPECT_EQ(outbox.reply_bytes(), 0u);
}

// Messages on streams, which are shown as "payload: ids"; another frame, a
// reply, as "reply".
class OutboxMessagesTest : public ::testing::Test {
 protected:
  using Frames = std::vector<std::string>;
  static constexpr size_t kMaxFrameBytes = 1 << 20;

  // Whether the message is a frame of its own.
  bool Send(uint64_t id,
            const std::string& payload,
            int64_t call_id = 0,
            size_t max_frame_bytes = kMaxFrameBytes) {
    StreamMessage message;
    message.set_payload(payload);
    message.set_call_id(call_id);
    serving::OutgoingStream& stream = streams_[id];
    stream.id = id;
    const bool joins =
        outbox_.JoinMessage(stream, message, max_frame_bytes, max_bytes_);
    if (!joins) {
      outbox_.AppendMessage(stream, message, message.ByteSizeLong());
    }
    ExpectBytesAreThoseWritten();
    return !joins;
  }
  void Reply() {
    const ReplyFrame reply;
    outbox_.Append(Frame::kReply, reply, FrameSize(reply));
    ExpectBytesAreThoseWritten();
  }

  // bytes() is what would be written now.
  void ExpectBytesAreThoseWritten() const {
    Outbox copy = outbox_;
    EXPECT_EQ(outbox_.bytes(), Drain(copy).size());
    EXPECT_EQ(copy.bytes(), 0u);
  }
  static std::string Drain(Outbox& outbox) {
    std::string bytes;
    while (!outbox.Front().empty()) {
      const std::string_view front = outbox.Front();
      bytes += front;
      outbox.Written(front.size());
    }
    return bytes;
  }

  // Writes all that waits.
  Frames Write() {
    Frames frames;
    const std::string written = Drain(outbox_);
    std::string_view rest = written;
    while (!rest.empty()) {
      const size_t size = FirstFrameBytes(rest);
      FrameBuffer buffer(kMaxFrameBytes);
      Put(rest.substr(0, size), buffer);
      rest.remove_prefix(size);
      FrameView frame;
      absl::Status error;
      EXPECT_EQ(buffer.Next(&frame, &error), FrameBuffer::kFrame) << error;
      frames.push_back(Show(frame));
    }
    return frames;
  }

  Outbox outbox_;
  size_t max_bytes_ = std::numeric_limits<size_t>::max();

 private:
  static void Put(std::string_view bytes, FrameBuffer& buffer) {
    FrameView frame;
    absl::Status error;
    while (!bytes.empty()) {
      const auto space = buffer.Space();
      const size_t size = std::min(bytes.size(), space.size());
      std::copy_n(bytes.data(), size, space.data());
      buffer.Commit(size);
      bytes.remove_prefix(size);
      if (!bytes.empty()) {
        EXPECT_EQ(buffer.Next(&frame, &error), FrameBuffer::kIncomplete);
      }
    }
  }
  static std::string Show(const FrameView& frame) {
    if (frame.kind != Frame::kStreamData) {
      return "reply";
    }
    StreamDataFrame data;
    EXPECT_TRUE(ParseBody(frame.body, &data).ok());
    std::string shown = data.message().payload() + ":";
    for (const uint64_t id : data.stream_ids()) {
      shown += " " + std::to_string(id);
    }
    return shown;
  }

  std::map<uint64_t, serving::OutgoingStream> streams_;
};

TEST_F(OutboxMessagesTest, OneMessageForManyStreamsIsOneFrame) {
  EXPECT_TRUE(Send(3, "event"));
  EXPECT_FALSE(Send(1, "event"));
  EXPECT_FALSE(Send(200, "event"));
  EXPECT_EQ(Write(), Frames{"event: 3 1 200"});
}

TEST_F(OutboxMessagesTest, OneLargeMessageForManyStreamsIsOneFrame) {
  const std::string large(kLargePayloadBytes + 1, 'x');
  EXPECT_TRUE(Send(3, large, 300));
  EXPECT_FALSE(Send(1, large, 300));
  EXPECT_FALSE(Send(2'000'000'000'000, large, 300));
  EXPECT_TRUE(Send(4, large, 301));
  EXPECT_TRUE(Send(5, large + "y", 301));
  Reply();
  EXPECT_EQ(Write(), (Frames{large + ": 3 1 2000000000000", large + ": 4",
                             large + "y: 5", "reply"}));
  // What is small afterwards has nothing of it.
  EXPECT_TRUE(Send(3, "event"));
  EXPECT_EQ(Write(), Frames{"event: 3"});
}

TEST_F(OutboxMessagesTest, ALargeMessageThatHasBegunIsKeptWhole) {
  const std::string large(kLargePayloadBytes + 1, 'x');
  for (const size_t begun : {size_t{1}, size_t{5}, large.size()}) {
    Send(1, large);
    const size_t bytes = outbox_.bytes();
    Send(2, "other");
    std::string written;
    while (written.size() < begun) {
      const std::string_view piece =
          outbox_.Front().substr(0, begun - written.size());
      written += piece;
      outbox_.Written(piece.size());
    }
    outbox_.DropUnbegun();
    EXPECT_EQ(written.size() + outbox_.bytes(), bytes);
    written += Drain(outbox_);
    EXPECT_EQ(written.size(), bytes);
  }
  Send(1, large);
  outbox_.DropUnbegun();
  EXPECT_EQ(outbox_.bytes(), 0u);
  EXPECT_EQ(Write(), Frames());
}

TEST_F(OutboxMessagesTest, AnotherPayloadOrCallIdIsAnotherFrame) {
  EXPECT_TRUE(Send(1, "event"));
  EXPECT_TRUE(Send(2, "other"));
  EXPECT_TRUE(Send(3, "event"));
  EXPECT_TRUE(Send(4, "event", 1));
  EXPECT_FALSE(Send(5, "event", 1));
  EXPECT_EQ(Write(),
            (Frames{"event: 1", "other: 2", "event: 3", "event: 4 5"}));
}

TEST_F(OutboxMessagesTest, AnyOtherFrameEndsTheSharing) {
  EXPECT_TRUE(Send(1, "event"));
  Reply();
  EXPECT_TRUE(Send(2, "event"));
  EXPECT_FALSE(Send(3, "event"));
  EXPECT_EQ(Write(), (Frames{"event: 1", "reply", "event: 2 3"}));
}

TEST_F(OutboxMessagesTest, WritingEndsTheSharing) {
  EXPECT_TRUE(Send(1, "event"));
  EXPECT_FALSE(outbox_.Front().empty());
  EXPECT_TRUE(Send(2, "event"));
  EXPECT_EQ(Write(), (Frames{"event: 1", "event: 2"}));
  EXPECT_TRUE(Send(3, "event"));
  EXPECT_EQ(Write(), Frames{"event: 3"});
}

TEST_F(OutboxMessagesTest, NoFrameNamesAStreamTwice) {
  EXPECT_TRUE(Send(1, "event"));
  EXPECT_FALSE(Send(2, "event"));
  EXPECT_TRUE(Send(2, "event"));
  EXPECT_FALSE(Send(1, "event"));
  EXPECT_TRUE(Send(1, "event"));
  EXPECT_EQ(Write(), (Frames{"event: 1 2", "event: 2 1", "event: 1"}));
}

TEST_F(OutboxMessagesTest, AFrameIsFilledToTheLimitToTheByte) {
  const std::string payload(100, 'x');
  StreamDataFrame full;
  full.mutable_message()->set_payload(payload);
  for (const uint64_t id : {1, 2, 3}) {
    full.add_stream_ids(id);
  }
  const size_t limit = FrameSize(full);
  for (const uint64_t id : {1, 2, 3, 4, 5}) {
    EXPECT_EQ(Send(id, payload, 0, limit), id == 1 || id == 4);
  }
  EXPECT_EQ(Write(), (Frames{payload + ": 1 2 3", payload + ": 4 5"}));
  // One byte less, and the third stream does not fit.
  for (const uint64_t id : {1, 2, 3}) {
    EXPECT_EQ(Send(id, payload, 0, limit - 1), id != 2);
  }
  EXPECT_EQ(Write(), (Frames{payload + ": 1 2", payload + ": 3"}));
  // Nor does an id of two bytes.
  for (const uint64_t id : {1, 2, 128}) {
    EXPECT_EQ(Send(id, payload, 0, limit), id != 2);
  }
}

TEST_F(OutboxMessagesTest, AFrameGrowsUntilTheOutboxIsFullToTheByte) {
  Reply();
  Send(1, "event");
  // A list of one stream more takes one byte more.
  max_bytes_ = outbox_.bytes() + 1;
  EXPECT_FALSE(Send(2, "event"));
  EXPECT_TRUE(Send(3, "event"));
  EXPECT_EQ(Write(), (Frames{"reply", "event: 1 2", "event: 3"}));
}

// Borders of the lengths before the list, the message and the frame.
TEST_F(OutboxMessagesTest, CountsWhatWaitsToTheByteAtAnySize) {
  for (const size_t size : {0, 1, 100, 110, 113, 116, 119, 122, 125, 127, 128,
                            130, 16'370, 16'380, 16'384, 70'000}) {
    const std::string payload(size, 'x');
    for (uint64_t id = 1; id <= 20; ++id) {
      Send(id, payload);
    }
    Reply();
  }
  for (uint64_t id = 1; id <= 300; ++id) {
    Send(id, "");
  }
}

TEST_F(OutboxMessagesTest, CountsAPartlyWrittenFrameAndTheMessageBehindIt) {
  Reply();
  Send(1, "event");
  const size_t before = outbox_.bytes();
  outbox_.Front();
  outbox_.Written(3);
  EXPECT_EQ(outbox_.bytes(), before - 3);
  Send(2, "event");
  EXPECT_GT(outbox_.bytes(), before - 3);
}

TEST_F(OutboxMessagesTest, StreamDataIsNoReply) {
  Send(1, "event");
  EXPECT_EQ(outbox_.reply_bytes(), 0u);
  Reply();
  const size_t reply_bytes = outbox_.reply_bytes();
  EXPECT_GT(reply_bytes, 0u);
  EXPECT_LT(reply_bytes, outbox_.bytes());
  Send(1, "event");
  outbox_.Front();
  EXPECT_EQ(outbox_.reply_bytes(), reply_bytes);
}

TEST_F(OutboxMessagesTest, AMessageThatIsHeldBackIsDroppedAsUnbegun) {
  Send(1, "event");
  outbox_.DropUnbegun();
  EXPECT_EQ(outbox_.bytes(), 0u);
  EXPECT_EQ(Write(), Frames());
  // Nothing is added to what was dropped.
  EXPECT_TRUE(Send(2, "event"));
  EXPECT_EQ(Write(), Frames{"event: 2"});
}

TEST_F(OutboxMessagesTest, AMessageBehindAFrameThatHasBegunIsDropped) {
  Reply();
  outbox_.Front();
  outbox_.Written(1);
  Send(1, "event");
  const size_t rest = outbox_.bytes();
  outbox_.DropUnbegun();
  EXPECT_GT(outbox_.bytes(), 0u);
  EXPECT_LT(outbox_.bytes(), rest);
  ExpectBytesAreThoseWritten();
}

TEST_F(OutboxMessagesTest, ClearDropsAMessageThatIsHeldBack) {
  Send(1, "event");
  outbox_.Clear();
  EXPECT_EQ(outbox_.bytes(), 0u);
  EXPECT_EQ(Write(), Frames());
  EXPECT_TRUE(Send(1, "event"));
  EXPECT_FALSE(Send(2, "event"));
  EXPECT_EQ(Write(), Frames{"event: 1 2"});
}

}  // namespace
}  // namespace rpc::transport
