// Cuts any bytes into frames, in one piece, byte by byte and in between: how
// the bytes arrive must not change what is found in them.

#include "core/common/rpc/transport/wire/frame_codec.h"

#include <google/protobuf/io/coded_stream.h>

#include <algorithm>
#include <memory>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "core/common/rpc/testing/fuzzer.h"

namespace rpc::transport {
namespace {

using google::protobuf::io::CodedInputStream;

// Small, so that frames that are too long occur often.
constexpr size_t kMaxFrameBytes = 512;

struct Findings {
  std::vector<std::pair<FrameKind, std::string>> frames;
  // Why there are no more; OK when only bytes are missing.
  absl::Status error;

  bool operator==(const Findings&) const = default;
};

void TakeFrames(FrameBuffer& buffer, Findings* findings) {
  FrameView frame;
  absl::Status error;
  FrameBuffer::Result result;
  while ((result = buffer.Next(&frame, &error)) == FrameBuffer::kFrame) {
    findings->frames.emplace_back(frame.kind, frame.body);
  }
  if (result == FrameBuffer::kBroken) {
    ASSERT_FALSE(error.ok());
    findings->error = error;
    EXPECT_EQ(buffer.Next(&frame, &error), FrameBuffer::kBroken);
    EXPECT_EQ(error, findings->error);
  }
}

// `piece` says how many bytes arrive next, at least one.
template <typename Piece>
Findings Read(std::string_view bytes, Piece piece) {
  Findings findings;
  FrameBuffer buffer(kMaxFrameBytes);
  while (!bytes.empty() && findings.error.ok()) {
    const auto space = buffer.Space();
    EXPECT_FALSE(space.empty());
    EXPECT_LE(space.size(), FrameBuffer::kReadBytes);
    const size_t size = std::min({piece(), bytes.size(), space.size()});
    std::copy_n(bytes.begin(), size, space.begin());
    buffer.Commit(size);
    bytes.remove_prefix(size);
    TakeFrames(buffer, &findings);
    buffer.Trim();
  }
  return findings;
}

std::unique_ptr<google::protobuf::MessageLite> NewBody(FrameKind kind) {
  Frame frame;
  const auto* field = Frame::descriptor()->FindFieldByNumber(kind);
  return std::unique_ptr<google::protobuf::MessageLite>(
      frame.GetReflection()->MutableMessage(&frame, field)->New());
}

// Protobuf's own reader of frames, which takes more than one body, says the
// same of what has exactly one.
void CheckAgainstProtobuf(std::string_view bytes, const Findings& findings) {
  CodedInputStream input(reinterpret_cast<const uint8_t*>(bytes.data()),
                         static_cast<int>(bytes.size()));
  for (const auto& [kind, body] : findings.frames) {
    uint32_t length = 0;
    ASSERT_TRUE(input.ReadVarint32(&length));
    ASSERT_LE(length, kMaxFrameBytes);
    std::string envelope;
    ASSERT_TRUE(input.ReadString(&envelope, static_cast<int>(length)));
    Frame frame;
    const bool parses = frame.ParseFromString(envelope);
    const auto message = NewBody(kind);
    ASSERT_EQ(ParseBody(body, message.get()).ok(), parses);
    if (parses) {
      ASSERT_EQ(frame.body_case(), kind);
    }
  }
}

// What has been read can be written, and is read as the same again.
void CheckWriting(const Findings& findings) {
  for (const auto& [kind, body] : findings.frames) {
    const auto message = NewBody(kind);
    if (!ParseBody(body, message.get()).ok()) {
      continue;
    }
    std::string bytes;
    const size_t size = FrameSize(*message);
    AppendFrame(kind, *message, size, &bytes);
    FrameBuffer buffer(size);
    std::copy(bytes.begin(), bytes.end(), buffer.Space().begin());
    buffer.Commit(bytes.size());
    FrameView frame;
    absl::Status error;
    ASSERT_EQ(buffer.Next(&frame, &error), FrameBuffer::kFrame);
    ASSERT_EQ(frame.kind, kind);
    ASSERT_EQ(frame.body, message->SerializeAsString());
    ASSERT_EQ(buffer.Next(&frame, &error), FrameBuffer::kIncomplete);
  }
}

}  // namespace
}  // namespace rpc::transport

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  using rpc::transport::Findings;
  const std::string_view bytes(reinterpret_cast<const char*>(data), size);
  const Findings whole = rpc::transport::Read(bytes, [size] { return size; });
  EXPECT_EQ(whole, rpc::transport::Read(bytes, [] { return size_t{1}; }));
  // Pieces as long as the input itself says.
  size_t at = 0;
  EXPECT_EQ(whole, rpc::transport::Read(bytes, [&] {
              return size_t{1} + bytes[at++ % size] % 16u;
            }));
  rpc::transport::CheckAgainstProtobuf(bytes, whole);
  rpc::transport::CheckWriting(whole);
  return 0;
}
