#include "core/common/rpc/transport/wire/outbox.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <string>
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

}  // namespace
}  // namespace rpc::transport
