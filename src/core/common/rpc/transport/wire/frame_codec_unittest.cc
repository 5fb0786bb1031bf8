#include "core/common/rpc/transport/wire/frame_codec.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "rpc/transport/frame.pb.h"

namespace rpc::transport {
namespace {

constexpr size_t kMaxFrameBytes = 1'000'000;

std::string CallBytes(uint64_t id, const std::string& request) {
  CallFrame call;
  call.set_call_id(id);
  call.set_request(request);
  std::string bytes;
  AppendFrame(Frame::kCall, call, FrameSize(call), &bytes);
  return bytes;
}

// Puts bytes into a buffer, as many at a time as it has space for.
class Reader {
 public:
  explicit Reader(size_t max_frame_bytes = kMaxFrameBytes)
      : buffer_(max_frame_bytes) {}

  // Returns the ids of the calls that have become complete.
  std::vector<uint64_t> Feed(std::string_view bytes) {
    std::vector<uint64_t> ids;
    while (!bytes.empty()) {
      const auto space = buffer_.Space();
      largest_space_ = std::max(largest_space_, space.size());
      const size_t size = std::min(space.size(), bytes.size());
      std::memcpy(space.data(), bytes.data(), size);
      buffer_.Commit(size);
      bytes.remove_prefix(size);
      TakeFrames(&ids);
    }
    return ids;
  }

  const absl::Status& error() const { return error_; }
  size_t largest_space() const { return largest_space_; }

 private:
  void TakeFrames(std::vector<uint64_t>* ids) {
    FrameView frame;
    FrameBuffer::Result result;
    while ((result = buffer_.Next(&frame, &error_)) == FrameBuffer::kFrame) {
      CallFrame call;
      EXPECT_EQ(frame.kind, Frame::kCall);
      EXPECT_TRUE(ParseBody(frame.body, &call).ok());
      ids->push_back(call.call_id());
    }
    EXPECT_EQ(result == FrameBuffer::kBroken, !error_.ok());
  }

  FrameBuffer buffer_;
  absl::Status error_;
  size_t largest_space_ = 0;
};

TEST(FrameCodec, WhatFollowsTheLengthIsASerialisedFrame) {
  const std::string bytes = CallBytes(7, "hello");
  ASSERT_EQ(static_cast<size_t>(bytes[0]), bytes.size() - 1);
  Frame frame;
  ASSERT_TRUE(frame.ParseFromString(bytes.substr(1)));
  EXPECT_EQ(frame.call().call_id(), 7u);
  EXPECT_EQ(frame.call().request(), "hello");

  EXPECT_EQ(frame.SerializeAsString(), bytes.substr(1));
}

TEST(FrameCodec, FramesMayArriveByteByByte) {
  const std::string bytes = CallBytes(1, std::string(300, 'x')) +
                            CallBytes(2, "") + CallBytes(3, "y");
  Reader reader;
  std::vector<uint64_t> ids;
  for (const char byte : bytes) {
    for (const uint64_t id : reader.Feed({&byte, 1})) {
      ids.push_back(id);
    }
  }
  EXPECT_EQ(ids, (std::vector<uint64_t>{1, 2, 3}));
}

TEST(FrameCodec, ManyFramesMayArriveAtOnceWithTheStartOfTheNext) {
  const std::string third = CallBytes(3, "abc");
  Reader reader;
  EXPECT_EQ(
      reader.Feed(CallBytes(1, "a") + CallBytes(2, "b") + third.substr(0, 4)),
      (std::vector<uint64_t>{1, 2}));
  EXPECT_EQ(reader.Feed(third.substr(4)), std::vector<uint64_t>{3});
}

TEST(FrameCodec, AFrameMayBeLongerThanTheBufferWasAtFirst) {
  Reader reader;
  EXPECT_EQ(reader.Feed(CallBytes(1, std::string(500'000, 'x'))),
            std::vector<uint64_t>{1});
  EXPECT_EQ(reader.Feed(CallBytes(2, "small again")), std::vector<uint64_t>{2});
}

TEST(FrameCodec, AFrameMayBeAsLongAsTheLimitAndNoLonger) {
  const size_t overhead = CallBytes(1, std::string(100'000, 'x')).size() -
                          100'000 - 3;  // the length takes three bytes
  const std::string longest =
      CallBytes(1, std::string(200'000 - overhead, 'x'));
  const std::string too_long =
      CallBytes(1, std::string(200'001 - overhead, 'x'));

  Reader reader(200'000);
  EXPECT_EQ(reader.Feed(longest), std::vector<uint64_t>{1});
  EXPECT_TRUE(reader.Feed(too_long).empty());
  EXPECT_EQ(reader.error(),
            absl::ResourceExhaustedError("a frame of 200001 bytes exceeds "
                                         "max_frame_bytes, 200000"));
}

TEST(FrameCodec, AnAnnouncedLengthAloneTakesNoMemory) {
  Reader reader(100 << 20);
  EXPECT_TRUE(reader.Feed(std::string("\x80\x80\x80\x30", 4)).empty());
  EXPECT_TRUE(reader.Feed(std::string(1000, 'x')).empty());
  EXPECT_TRUE(reader.error().ok());
  EXPECT_LE(reader.largest_space(), 64u << 10);
}

TEST(FrameCodec, ALengthMayTakeAsManyBytesAs32BitsDo) {
  const std::string bytes = CallBytes(7, "x");
  const std::string length = {static_cast<char>(bytes[0] | '\x80'), '\x80',
                              '\x80', '\x80', '\0'};
  Reader reader;
  EXPECT_EQ(reader.Feed(length + bytes.substr(1)), std::vector<uint64_t>{7});
  Reader longest(UINT32_MAX);
  EXPECT_TRUE(longest.Feed("\xff\xff\xff\xff\x0f").empty());
  EXPECT_TRUE(longest.error().ok()) << longest.error();
}

TEST(FrameCodec, ALengthOfMoreThan32BitsIsBroken) {
  for (const std::string& length :
       {std::string("\xff\xff\xff\xff\x10"), std::string(5, '\x80'),
        std::string(10, '\xff')}) {
    Reader reader(UINT32_MAX);
    EXPECT_TRUE(reader.Feed(length).empty());
    EXPECT_EQ(reader.error(), absl::InvalidArgumentError(
                                  "a frame's length is no 32-bit varint"));
  }
}

TEST(FrameCodec, AFrameHoldsOneBodyExactly) {
  const std::string body = CallBytes(1, "x").substr(1);
  const std::string unknown("\xa0\x01\x05", 3);  // field 20, a number
  const std::pair<std::string, std::string> cases[] = {
      {"", "a frame is empty"},
      {"\x9a", "a frame does not begin with the tag of a body"},
      {std::string("\x18\x05", 2),
       "a frame begins with field 3 of wire type 0, which is no body"},
      {unknown + body,
       "a frame begins with field 20 of wire type 0, which is no body"},
      {"\x1a", "the length of a frame's body is no 32-bit varint"},
      {"\x1a\x85", "the length of a frame's body is no 32-bit varint"},
      {body.substr(0, 3), "a frame's body of 5 bytes is cut off after 1"},
      {body + body,
       "a frame holds 7 bytes beside its body: version 1 allows no second "
       "body and no other field there"},
      {body + unknown,
       "a frame holds 3 bytes beside its body: version 1 allows no second "
       "body and no other field there"},
      {body + "x",
       "a frame holds 1 bytes beside its body: version 1 allows no second "
       "body and no other field there"},
  };
  for (const auto& [frame, text] : cases) {
    Reader reader;
    EXPECT_TRUE(reader.Feed(static_cast<char>(frame.size()) + frame).empty());
    EXPECT_EQ(reader.error(), absl::InvalidArgumentError(text));
  }
}

// 2^32 more than the tag, and the length, of a body.
TEST(FrameCodec, NumbersOfMoreThan32BitsInAnEnvelopeAreNotCut) {
  const std::string tag("\x9a\x80\x80\x80\x10", 5);
  const std::string length("\x80\x80\x80\x80\x10", 5);
  const std::pair<std::string, std::string> cases[] = {
      {tag + std::string(1, '\0'),
       "a frame does not begin with the tag of a body"},
      {"\x1a" + length, "the length of a frame's body is no 32-bit varint"},
  };
  for (const auto& [frame, text] : cases) {
    Reader reader;
    EXPECT_TRUE(reader.Feed(static_cast<char>(frame.size()) + frame).empty());
    EXPECT_EQ(reader.error(), absl::InvalidArgumentError(text));
  }
}

TEST(FrameCodec, AnUnknownKindOfBodyIsBroken) {
  Reader reader;
  EXPECT_TRUE(reader.Feed(std::string("\x03\x8a\x01\x00", 4)).empty());
  EXPECT_EQ(reader.error(), absl::InvalidArgumentError(
                                "a frame's body is of the unknown kind 17"));
}

TEST(FrameCodec, AfterABrokenFrameNothingIsTaken) {
  Reader reader;
  EXPECT_TRUE(reader.Feed(std::string(1, '\0') + CallBytes(1, "x")).empty());
  EXPECT_TRUE(reader.Feed(CallBytes(2, "y")).empty());
  EXPECT_FALSE(reader.error().ok());
}

TEST(FrameCodec, ABodyThatDoesNotParseIsNamed) {
  CallFrame call;
  EXPECT_EQ(ParseBody("\xff\xff", &call),
            absl::InvalidArgumentError("a frame does not parse as a "
                                       "rpc.transport.CallFrame"));
}

}  // namespace
}  // namespace rpc::transport
