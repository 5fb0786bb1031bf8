// Frames to bytes and back.
//
//      +----------------+-----------+----------------+------------------+
//      | length, varint | body kind | length, varint | body             |
//      +----------------+-----------+----------------+------------------+
//                       |<-------------- length bytes ----------------->|
//
// What follows the first length is a serialised rpc::transport::Frame. Its
// envelope, one tag and one length, is taken apart by hand here, so that the
// body can be parsed into a message that is used again and again:
//
//   FrameBuffer buffer(max_frame_bytes);
//   n = read(fd, buffer.Space());
//   buffer.Commit(n);
//   while (buffer.Next(&frame, &error) == FrameBuffer::kFrame) { ... }
//   buffer.Trim();
//
// Ownership: a FrameView points into its buffer and is valid until the next
// call of Space() or Trim().
//
// Sequence: no object here may be used from two threads at once.
//
// Failure: once a buffer has found its input broken, it yields nothing more.

#ifndef CORE_COMMON_RPC_TRANSPORT_WIRE_FRAME_CODEC_H_
#define CORE_COMMON_RPC_TRANSPORT_WIRE_FRAME_CODEC_H_

#include <google/protobuf/message_lite.h>

#include <cstddef>
#include <cstdint>
#include <memory>
#include <span>
#include <string>
#include <string_view>

#include "absl/status/status.h"
#include "rpc/transport/frame.pb.h"

namespace rpc::transport {

// Bytes of the length before a frame, at most: it has 32 bits, seven of them in
// each byte.
inline constexpr size_t kMaxLengthBytes = 5;

// The version of docs/wire-protocol.md that this code speaks.
inline constexpr uint32_t kProtocolVersion = 1;

using FrameKind = Frame::BodyCase;

struct FrameView {
  FrameKind kind = Frame::BODY_NOT_SET;
  std::string_view body;
};

// The bytes that a frame with this body takes after its length.
size_t FrameSize(const google::protobuf::MessageLite& body);

// The bytes that such a frame takes with its length.
size_t SizeWithLength(size_t frame_size);

// Appends a frame to `out`. FrameSize(body) must have been called since `body`
// was changed last, and `frame_size` be its result.
void AppendFrame(FrameKind kind,
                 const google::protobuf::MessageLite& body,
                 size_t frame_size,
                 std::string* out);

// The bytes that the first of `frames` takes, its length included. `frames`
// begins with a whole frame.
size_t FirstFrameBytes(std::string_view frames);

// Reads the body of a frame.
absl::Status ParseBody(std::string_view bytes,
                       google::protobuf::MessageLite* body);

// Bytes that a frame which is used again and again may hold when nothing is
// under way: enough for what services usually say.
inline constexpr size_t kIdleCapacity = 1 << 10;

// Gives back the memory of a frame that has been dealt with, and took `bytes`,
// if that is more than an idle connection should keep.
template <typename Body>
void FreeIfLarge(Body& frame, size_t bytes) {
  if (bytes > kIdleCapacity) {
    frame = Body();
  }
}

// Cuts a stream of bytes into frames. Its memory grows with the bytes that have
// arrived, never with a length that has only been announced. Without bytes it
// has none.
class FrameBuffer {
 public:
  // Bytes that there is space for at first: what one read of a busy connection
  // may bring.
  static constexpr size_t kReadBytes = 64 << 10;

  enum Result { kFrame, kIncomplete, kBroken };

  // `limit_name` is what texts call `max_frame_bytes`; it has to live as long.
  explicit FrameBuffer(size_t max_frame_bytes,
                       const char* limit_name = "max_frame_bytes");

  // Where to put the next bytes; never empty. All complete frames must have
  // been taken.
  std::span<char> Space();

  // The first `size` bytes of Space() have been filled.
  void Commit(size_t size) { end_ += size; }

  // Takes the next frame, or says what is wrong with it: RESOURCE_EXHAUSTED
  // when it is too long, else INVALID_ARGUMENT.
  Result Next(FrameView* frame, absl::Status* error);

  // Whether all bytes have been taken, and whether a whole frame waits.
  bool empty() const { return begin_ == end_; }
  bool HasFrame() const;

  // Gives back memory that the bytes that wait do not need, while it may take
  // long until more come.
  void Trim();

 private:
  std::string_view pending() const {
    return {data_.get() + begin_, end_ - begin_};
  }
  void Reallocate(size_t capacity);

  const size_t max_frame_bytes_;
  const char* const limit_name_;
  std::unique_ptr<char[]> data_;
  size_t capacity_ = 0;
  // What has arrived and not been taken: data_[begin_, end_).
  size_t begin_ = 0;
  size_t end_ = 0;
};

}  // namespace rpc::transport

#endif  // CORE_COMMON_RPC_TRANSPORT_WIRE_FRAME_CODEC_H_
