#include "core/common/rpc/transport/wire/shared_message.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "core/common/rpc/transport/wire/frame_codec.h"

namespace rpc::transport {
namespace {

using serving::OutgoingStream;
using Ids = std::vector<uint64_t>;

StreamMessage Message(const std::string& payload, int64_t call_id = 0) {
  StreamMessage message;
  message.set_payload(payload);
  message.set_call_id(call_id);
  return message;
}

Ids IdsOf(const StreamDataFrame& frame) {
  return {frame.stream_ids().begin(), frame.stream_ids().end()};
}

size_t WireSize(const StreamDataFrame& frame) {
  return SizeWithLength(FrameSize(frame));
}

// A message that is on its way to the streams 1 and 2.
class SharedMessageTest : public ::testing::Test {
 protected:
  SharedMessageTest() {
    shared_.Begin(message_, message_.ByteSizeLong());
    shared_.Add(first_);
    shared_.Add(second_);
  }

  StreamMessage message_ = Message("event", 5);
  OutgoingStream first_{.id = 1};
  OutgoingStream second_{.id = 2};
  OutgoingStream third_{.id = 3};
  SharedMessage shared_;
};

TEST_F(SharedMessageTest, IsAFrameThatListsItsStreams) {
  EXPECT_FALSE(shared_.empty());
  EXPECT_EQ(IdsOf(shared_.frame()), (Ids{1, 2}));
  EXPECT_EQ(shared_.frame().message().payload(), "event");
  EXPECT_EQ(shared_.frame().message().call_id(), 5);
  EXPECT_EQ(shared_.wire_size(), WireSize(shared_.frame()));
}

TEST_F(SharedMessageTest, CarriesTheSameMessageToAnotherStream) {
  EXPECT_TRUE(shared_.CanCarry(message_, third_));
  EXPECT_TRUE(shared_.CanCarry(Message("event", 5), third_));
  EXPECT_FALSE(shared_.CanCarry(Message("event", 6), third_));
  EXPECT_FALSE(shared_.CanCarry(Message("other", 5), third_));
  EXPECT_FALSE(shared_.CanCarry(Message("event"), third_));
}

TEST_F(SharedMessageTest, CarriesNoMessageTwiceToAStream) {
  EXPECT_FALSE(shared_.CanCarry(message_, first_));
  EXPECT_FALSE(shared_.CanCarry(message_, second_));
  // The next message may be the same.
  shared_.Clear();
  shared_.Begin(message_, message_.ByteSizeLong());
  shared_.Add(third_);
  EXPECT_TRUE(shared_.CanCarry(message_, first_));
}

TEST_F(SharedMessageTest, CarriesNothingOnceItIsEmpty) {
  shared_.Clear();
  EXPECT_TRUE(shared_.empty());
  EXPECT_EQ(shared_.wire_size(), 0u);
  EXPECT_FALSE(shared_.CanCarry(message_, third_));
}

TEST_F(SharedMessageTest, ForgetsTheStreamsOfTheMessageBefore) {
  shared_.Clear();
  const StreamMessage next = Message("next");
  shared_.Begin(next, next.ByteSizeLong());
  shared_.Add(third_);
  EXPECT_EQ(IdsOf(shared_.frame()), Ids{3});
  EXPECT_EQ(shared_.frame().message().payload(), "next");
  EXPECT_EQ(shared_.frame().message().call_id(), 0);
  EXPECT_EQ(shared_.wire_size(), WireSize(shared_.frame()));
}

TEST_F(SharedMessageTest, GivesBackTheMemoryOfALargeMessage) {
  shared_.Clear();
  const StreamMessage large = Message(std::string(kIdleCapacity + 1, 'x'));
  shared_.Begin(large, large.ByteSizeLong());
  shared_.Add(first_);
  shared_.Clear();
  EXPECT_LE(shared_.frame().message().payload().capacity(), kIdleCapacity);
  EXPECT_TRUE(shared_.empty());
}

TEST_F(SharedMessageTest, KnowsTheSizeOfItsFrameWithOneMoreStream) {
  // Ids of one, two and ten bytes.
  for (const uint64_t id : {uint64_t{127}, uint64_t{128}, ~uint64_t{0}}) {
    StreamDataFrame grown = shared_.frame();
    grown.add_stream_ids(id);
    EXPECT_EQ(shared_.FrameSizeWith(OutgoingStream{.id = id}),
              FrameSize(grown));
  }
}

TEST_F(SharedMessageTest, KnowsItsSizeWithAnyNumberOfStreams) {
  for (uint64_t id = 3; id < 20'000; ++id) {
    OutgoingStream stream{.id = id * id * id * id};
    shared_.Add(stream);
    // Not EXPECT_EQ for each.
    if (id % 64 < 3 && shared_.wire_size() != WireSize(shared_.frame())) {
      ADD_FAILURE() << "with " << id << " streams: " << shared_.wire_size()
                    << " instead of " << WireSize(shared_.frame());
    }
  }
}

TEST(StreamIdBytes, IsTheLengthOfAVarint) {
  EXPECT_EQ(StreamIdBytes(0), 1u);
  EXPECT_EQ(StreamIdBytes(127), 1u);
  EXPECT_EQ(StreamIdBytes(128), 2u);
  EXPECT_EQ(StreamIdBytes(16'383), 2u);
  EXPECT_EQ(StreamIdBytes(16'384), 3u);
  EXPECT_EQ(StreamIdBytes(uint64_t{1} << 32), 5u);
  EXPECT_EQ(StreamIdBytes(~uint64_t{0}), 10u);
}

// Where a length begins to take one byte more, of whichever part of the frame.
TEST(StreamDataFrameSize, IsTheSizeOfTheRealFrame) {
  constexpr size_t kBorders[] = {0, 1 << 7, 1 << 14, 1 << 21};
  // More than all that a frame holds besides the payload and few ids.
  constexpr size_t kAround = 40;
  const std::vector<Ids> lists = {
      {0}, {1, 128}, {~uint64_t{0}}, Ids(127, 1), Ids(128, 1)};
  for (const Ids& ids : lists) {
    StreamDataFrame frame;
    size_t id_bytes = 0;
    for (const uint64_t id : ids) {
      frame.add_stream_ids(id);
      id_bytes += StreamIdBytes(id);
    }
    for (const int64_t call_id : {int64_t{0}, int64_t{1}, int64_t{-1}}) {
      frame.mutable_message()->set_call_id(call_id);
      for (const size_t border : kBorders) {
        const size_t least =
            border - std::min(border, kAround + id_bytes + kMaxLengthBytes);
        for (size_t size = least; size <= border + kAround; ++size) {
          frame.mutable_message()->mutable_payload()->resize(size, 'x');
          ASSERT_EQ(
              StreamDataFrameSize(id_bytes, frame.message().ByteSizeLong()),
              FrameSize(frame))
              << "payload of " << size << " bytes, ids of " << id_bytes;
        }
      }
    }
  }
}

TEST(StreamDataFrameSize, CountsTheLengthOfALongListOfStreams) {
  for (const size_t count : {1, 127, 128, 16'383, 16'384, 100'000}) {
    StreamDataFrame frame;
    frame.mutable_message();
    for (size_t i = 0; i < count; ++i) {
      frame.add_stream_ids(7);
    }
    EXPECT_EQ(StreamDataFrameSize(count, 0), FrameSize(frame)) << count;
  }
}

}  // namespace
}  // namespace rpc::transport
