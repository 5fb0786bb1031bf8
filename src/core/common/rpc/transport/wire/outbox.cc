#include "core/common/rpc/transport/wire/outbox.h"

#include <algorithm>
#include <bit>
#include <utility>

namespace rpc::transport {
namespace {

// What a chunk has room for at first.
constexpr size_t kFirstBytes = 1 << 10;

// What a chunk may have room for that is kept for the next frames.
constexpr size_t kKeptBytes = 2 << 10;

constexpr size_t kLargeFrameBytes = Outbox::kChunkBytes / 4;

// Makes room for `size` more bytes. Memory doubles up to the size of a chunk;
// what is larger gets what it needs.
void Reserve(size_t size, std::string* bytes) {
  const size_t needed = bytes->size() + size;
  if (needed > bytes->capacity()) {
    bytes->reserve(size > kLargeFrameBytes
                       ? needed
                       : std::bit_ceil(std::max(needed, kFirstBytes)));
  }
}

}  // namespace

void Outbox::Append(FrameKind kind,
                    const google::protobuf::MessageLite& body,
                    size_t frame_size) {
  AppendHeldMessage();
  AppendToChunk(kind, body, frame_size);
}

void Outbox::AppendMessage(serving::OutgoingStream& stream,
                           const StreamMessage& message,
                           size_t message_bytes) {
  AppendHeldMessage();
  held_.Begin(message, message_bytes);
  held_.Add(stream);
}

bool Outbox::JoinMessage(serving::OutgoingStream& stream,
                         const StreamMessage& message,
                         size_t max_frame_bytes,
                         size_t max_bytes) {
  if (!held_.CanCarry(message, stream)) {
    return false;
  }
  const size_t frame_size = held_.FrameSizeWith(stream);
  if (frame_size > max_frame_bytes ||
      bytes_ + SizeWithLength(frame_size) > max_bytes) {
    return false;
  }
  held_.Add(stream);
  return true;
}

void Outbox::AppendHeldMessage() {
  if (held_.empty()) {
    return;
  }
  if (held_.large_payload()) {
    AppendHeldLargeMessage();
  } else {
    const StreamDataFrame& frame = held_.frame();
    AppendToChunk(Frame::kStreamData, frame, FrameSize(frame));
  }
  held_.Clear();
}

void Outbox::AppendHeldLargeMessage() {
  Chunk& chunk = EmptyChunk();
  held_.AppendHead(&chunk.bytes);
  chunk.payload = held_.large_payload();
  bytes_ += chunk.size();
}

void Outbox::AppendToChunk(FrameKind kind,
                           const google::protobuf::MessageLite& body,
                           size_t frame_size) {
  Chunk& chunk = ChunkFor(frame_size + kMaxLengthBytes);
  Reserve(frame_size + kMaxLengthBytes, &chunk.bytes);
  const size_t before = chunk.bytes.size();
  AppendFrame(kind, body, frame_size, &chunk.bytes);
  const size_t added = chunk.bytes.size() - before;
  bytes_ += added;
  if (kind != Frame::kStreamData) {
    chunk.reply_bytes += added;
    reply_bytes_ += added;
  }
}

// The chunk that a frame of `size` bytes goes to. A large one has a chunk for
// itself.
Outbox::Chunk& Outbox::ChunkFor(size_t size) {
  if (!chunks_.empty() && size <= kLargeFrameBytes &&
      chunks_.back().payload == nullptr &&
      chunks_.back().bytes.size() + size <= kChunkBytes) {
    return chunks_.back();
  }
  return EmptyChunk();
}

Outbox::Chunk& Outbox::EmptyChunk() {
  return !chunks_.empty() && chunks_.back().bytes.empty()
             ? chunks_.back()
             : chunks_.emplace_back();
}

std::string_view Outbox::Front() {
  AppendHeldMessage();
  if (bytes_ == 0) {
    return {};
  }
  const Chunk& chunk = chunks_.front();
  const size_t head = chunk.bytes.size();
  return written_ < head
             ? std::string_view(chunk.bytes).substr(written_)
             : std::string_view(*chunk.payload).substr(written_ - head);
}

void Outbox::Written(size_t size) {
  written_ += size;
  bytes_ -= size;
  Chunk& chunk = chunks_.front();
  if (written_ < chunk.size()) {
    return;
  }
  written_ = 0;
  reply_bytes_ -= std::exchange(chunk.reply_bytes, 0);
  if (chunks_.size() > 1 || chunk.payload ||
      chunk.bytes.capacity() > kKeptBytes) {
    chunks_.pop_front();
  } else {
    chunk.bytes.clear();
  }
}

void Outbox::DropUnbegun() {
  held_.Clear();
  if (bytes_ == 0) {
    return;
  }
  Chunk& first = chunks_.front();
  size_t begun = 0;
  while (begun < written_) {
    begun += FirstFrameBytes(std::string_view(first.bytes).substr(begun));
  }
  if (!first.payload) {
    first.bytes.resize(begun);
  }
  chunks_.resize(1);
  reply_bytes_ = chunks_.front().reply_bytes;
  bytes_ = begun - written_;
  if (bytes_ == 0) {
    Clear();
  }
}

void Outbox::Clear() {
  held_.Clear();
  chunks_.clear();
  written_ = 0;
  bytes_ = 0;
  reply_bytes_ = 0;
}

}  // namespace rpc::transport
