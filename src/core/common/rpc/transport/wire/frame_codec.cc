#include "core/common/rpc/transport/wire/frame_codec.h"

#include <google/protobuf/io/coded_stream.h>

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <string>
#include <utility>

#include "absl/strings/str_cat.h"

namespace rpc::transport {
namespace {

using google::protobuf::io::CodedOutputStream;

// All body kinds are length-delimited and have tags of one byte.
constexpr uint32_t kLengthDelimited = 2;
constexpr uint32_t kWireTypeBits = 3;
constexpr uint32_t kWireTypeMask = 7;
constexpr size_t kTagBytes = 1;

constexpr uint32_t kLastKind = Frame::kGoodbye;

// A varint of no more than 32 bits: a length, or the tag of a field.
struct Varint {
  uint32_t value = 0;
  size_t bytes = 0;
};

// Reads the varint at the start of `input`.
FrameBuffer::Result ReadVarint(std::string_view input, Varint* varint) {
  uint64_t value = 0;
  for (size_t i = 0; i < kMaxLengthBytes; ++i) {
    if (i == input.size()) {
      return FrameBuffer::kIncomplete;
    }
    const auto byte = static_cast<uint8_t>(input[i]);
    value |= uint64_t{byte & 0x7fu} << (7 * i);
    if (byte < 0x80 && value <= UINT32_MAX) {
      *varint = {static_cast<uint32_t>(value), i + 1};
      return FrameBuffer::kFrame;
    }
  }
  return FrameBuffer::kBroken;
}

absl::Status Broken(const std::string& why) {
  return absl::InvalidArgumentError(why);
}

// Takes the envelope off a frame.
absl::Status OpenEnvelope(std::string_view bytes, FrameView* frame) {
  if (bytes.empty()) {
    return Broken("a frame is empty");
  }
  Varint tag;
  if (ReadVarint(bytes, &tag) != FrameBuffer::kFrame) {
    return Broken("a frame does not begin with the tag of a body");
  }
  bytes.remove_prefix(tag.bytes);
  const uint32_t kind = tag.value >> kWireTypeBits;
  if ((tag.value & kWireTypeMask) != kLengthDelimited) {
    return Broken(absl::StrCat("a frame begins with field ", kind,
                               " of wire type ", tag.value & kWireTypeMask,
                               ", which is no body"));
  }
  Varint size;
  if (ReadVarint(bytes, &size) != FrameBuffer::kFrame) {
    return Broken("the length of a frame's body is no 32-bit varint");
  }
  bytes.remove_prefix(size.bytes);
  if (size.value > bytes.size()) {
    return Broken(absl::StrCat("a frame's body of ", size.value,
                               " bytes is cut off after ", bytes.size()));
  }
  if (size.value < bytes.size()) {
    return Broken(absl::StrCat("a frame holds ", bytes.size() - size.value,
                               " bytes beside its body: version 1 allows no "
                               "second body and no other field there"));
  }
  if (kind == 0 || kind > kLastKind) {
    return Broken(absl::StrCat("a frame's body is of the unknown kind ", kind));
  }
  frame->kind = static_cast<FrameKind>(kind);
  frame->body = bytes;
  return absl::OkStatus();
}

// A buffer of kReadBytes that nobody uses. Connections take it to read and give
// it back when they have handled what they have read, so those of a loop use
// the same memory one after the other. Where one is handled within the other (a
// handler that runs the loop), or keeps half a frame, another is allocated.
thread_local std::unique_ptr<char[]> spare_buffer;

std::unique_ptr<char[]> TakeBuffer(size_t capacity) {
  if (capacity == 0) {
    return nullptr;
  }
  if (capacity == FrameBuffer::kReadBytes && spare_buffer != nullptr) {
    return std::move(spare_buffer);
  }
  return std::make_unique_for_overwrite<char[]>(capacity);
}

void GiveBackBuffer(std::unique_ptr<char[]> buffer, size_t capacity) {
  if (capacity == FrameBuffer::kReadBytes) {
    spare_buffer = std::move(buffer);
  }
}

}  // namespace

size_t FrameSize(const google::protobuf::MessageLite& body) {
  const size_t size = body.ByteSizeLong();
  return kTagBytes +
         CodedOutputStream::VarintSize32(static_cast<uint32_t>(size)) + size;
}

size_t SizeWithLength(size_t frame_size) {
  return CodedOutputStream::VarintSize32(static_cast<uint32_t>(frame_size)) +
         frame_size;
}

void AppendFrame(FrameKind kind,
                 const google::protobuf::MessageLite& body,
                 size_t frame_size,
                 std::string* out) {
  const auto length = static_cast<uint32_t>(frame_size);
  const size_t start = out->size();
  out->resize(start + SizeWithLength(frame_size));
  auto* to = reinterpret_cast<uint8_t*>(out->data()) + start;
  to = CodedOutputStream::WriteVarint32ToArray(length, to);
  *to++ = static_cast<uint8_t>((kind << kWireTypeBits) | kLengthDelimited);
  to = CodedOutputStream::WriteVarint32ToArray(
      static_cast<uint32_t>(body.GetCachedSize()), to);
  body.SerializeWithCachedSizesToArray(to);
}

size_t FirstFrameBytes(std::string_view frames) {
  Varint length;
  ReadVarint(frames, &length);
  return length.bytes + length.value;
}

absl::Status ParseBody(std::string_view bytes,
                       google::protobuf::MessageLite* body) {
  if (body->ParseFromArray(bytes.data(), static_cast<int>(bytes.size()))) {
    return absl::OkStatus();
  }
  return absl::InvalidArgumentError(
      absl::StrCat("a frame does not parse as a ", body->GetTypeName()));
}

FrameBuffer::FrameBuffer(size_t max_frame_bytes, const char* limit_name)
    : max_frame_bytes_(max_frame_bytes), limit_name_(limit_name) {}

std::span<char> FrameBuffer::Space() {
  const size_t pending = end_ - begin_;
  if (capacity_ < kReadBytes) {
    Reallocate(kReadBytes);
  } else if (pending == capacity_) {
    Reallocate(std::min(2 * capacity_, max_frame_bytes_ + kMaxLengthBytes));
  } else if (begin_ > 0) {
    std::memmove(data_.get(), data_.get() + begin_, pending);
    begin_ = 0;
    end_ = pending;
  }
  return {data_.get() + end_, capacity_ - end_};
}

// A frame that fills a good part of the buffer stays where it is: its rest
// needs the space soon.
void FrameBuffer::Trim() {
  const size_t pending = end_ - begin_;
  if (pending <= capacity_ / 4 && pending < capacity_) {
    Reallocate(pending);
  }
}

void FrameBuffer::Reallocate(size_t capacity) {
  auto data = TakeBuffer(capacity);
  const size_t pending = end_ - begin_;
  if (pending > 0) {
    std::memcpy(data.get(), data_.get() + begin_, pending);
  }
  GiveBackBuffer(std::exchange(data_, std::move(data)), capacity_);
  capacity_ = capacity;
  begin_ = 0;
  end_ = pending;
}

bool FrameBuffer::HasFrame() const {
  Varint length;
  return ReadVarint(pending(), &length) == kFrame &&
         pending().size() - length.bytes >= length.value;
}

FrameBuffer::Result FrameBuffer::Next(FrameView* frame, absl::Status* error) {
  const std::string_view input = pending();
  Varint length;
  const Result result = ReadVarint(input, &length);
  if (result == kBroken) {
    *error = absl::InvalidArgumentError("a frame's length is no 32-bit varint");
  }
  if (result != kFrame) {
    return result;
  }
  if (length.value > max_frame_bytes_) {
    *error = absl::ResourceExhaustedError(
        absl::StrCat("a frame of ", length.value, " bytes exceeds ",
                     limit_name_, ", ", max_frame_bytes_));
    return kBroken;
  }
  if (input.size() - length.bytes < length.value) {
    return kIncomplete;
  }
  *error = OpenEnvelope(input.substr(length.bytes, length.value), frame);
  if (!error->ok()) {
    return kBroken;
  }
  begin_ += length.bytes + length.value;
  return kFrame;
}

}  // namespace rpc::transport
