#include "core/common/rpc/transport/outbox.h"

#include <algorithm>
#include <bit>

namespace rpc::transport {
namespace {

// What a chunk has room for at first.
constexpr size_t kFirstBytes = 1 << 10;

constexpr size_t kLargeFrameBytes = Outbox::kChunkBytes / 4;

}  // namespace

void Outbox::Append(FrameKind kind,
                    const google::protobuf::MessageLite& body,
                    size_t frame_size) {
  std::string& chunk = ChunkFor(frame_size + kMaxLengthBytes);
  const size_t before = chunk.size();
  AppendFrame(kind, body, frame_size, &chunk);
  bytes_ += chunk.size() - before;
}

// A chunk with room for `size` bytes. Memory doubles up to the size of a chunk;
// what is larger gets what it needs.
std::string& Outbox::ChunkFor(size_t size) {
  const bool is_large = size > kLargeFrameBytes;
  if (chunks_.empty() ||
      (!chunks_.back().empty() &&
       (is_large || chunks_.back().size() + size > kChunkBytes))) {
    chunks_.emplace_back();
  }
  std::string& chunk = chunks_.back();
  const size_t needed = chunk.size() + size;
  if (needed > chunk.capacity()) {
    chunk.reserve(is_large ? needed
                           : std::bit_ceil(std::max(needed, kFirstBytes)));
  }
  return chunk;
}

std::string_view Outbox::Front() const {
  if (bytes_ == 0) {
    return {};
  }
  return std::string_view(chunks_.front()).substr(written_);
}

void Outbox::Written(size_t size) {
  written_ += size;
  bytes_ -= size;
  if (written_ < chunks_.front().size()) {
    return;
  }
  written_ = 0;
  // The last one is kept for the next frames.
  if (chunks_.size() > 1 || chunks_.front().capacity() > kChunkBytes) {
    chunks_.pop_front();
  } else {
    chunks_.front().clear();
  }
}

void Outbox::DropUnbegun() {
  if (bytes_ == 0) {
    return;
  }
  std::string& first = chunks_.front();
  size_t begun = 0;
  while (begun < written_) {
    begun += FirstFrameBytes(std::string_view(first).substr(begun));
  }
  first.resize(begun);
  chunks_.resize(1);
  bytes_ = begun - written_;
  if (bytes_ == 0) {
    Clear();
  }
}

void Outbox::Clear() {
  chunks_.clear();
  written_ = 0;
  bytes_ = 0;
}

}  // namespace rpc::transport
