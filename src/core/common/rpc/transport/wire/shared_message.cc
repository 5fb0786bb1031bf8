#include "core/common/rpc/transport/wire/shared_message.h"

#include <google/protobuf/io/coded_stream.h>

#include "core/common/rpc/transport/wire/frame_codec.h"

namespace rpc::transport {
namespace {

using google::protobuf::io::CodedOutputStream;

// A field whose tag takes one byte and whose value has a length.
size_t FieldSize(size_t value_bytes) {
  return 1 +
         CodedOutputStream::VarintSize32(static_cast<uint32_t>(value_bytes)) +
         value_bytes;
}

}  // namespace

size_t StreamDataFrameSize(size_t id_bytes, size_t message_bytes) {
  return FieldSize(FieldSize(id_bytes) + FieldSize(message_bytes));
}

size_t StreamIdBytes(uint64_t id) {
  return CodedOutputStream::VarintSize64(id);
}

void SharedMessage::Begin(const StreamMessage& message, size_t message_bytes) {
  ++number_;
  *frame_.mutable_message() = message;
  message_bytes_ = message_bytes;
  id_bytes_ = 0;
}

void SharedMessage::Add(serving::OutgoingStream& stream) {
  stream.last_shared_message = number_;
  frame_.add_stream_ids(stream.id);
  id_bytes_ += StreamIdBytes(stream.id);
  frame_size_ = StreamDataFrameSize(id_bytes_, message_bytes_);
}

bool SharedMessage::CanCarry(const StreamMessage& message,
                             const serving::OutgoingStream& stream,
                             size_t max_frame_bytes) const {
  return !empty() && stream.last_shared_message != number_ &&
         frame_.message().call_id() == message.call_id() &&
         frame_.message().payload() == message.payload() &&
         FrameSizeWith(stream) <= max_frame_bytes;
}

size_t SharedMessage::FrameSizeWith(
    const serving::OutgoingStream& stream) const {
  return StreamDataFrameSize(id_bytes_ + StreamIdBytes(stream.id),
                             message_bytes_);
}

void SharedMessage::Clear() {
  frame_.clear_stream_ids();
  FreeIfLarge(frame_, frame_.message().payload().capacity());
  frame_size_ = 0;
}

}  // namespace rpc::transport
