#include "core/common/rpc/transport/wire/shared_message.h"

#include <google/protobuf/io/coded_stream.h>
#include <google/protobuf/io/zero_copy_stream_impl_lite.h>

#include <utility>

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

// The tag and the length of a field that has a length.
void BeginField(int number, size_t value_bytes, CodedOutputStream& output) {
  constexpr uint32_t kLengthDelimited = 2;
  output.WriteTag(static_cast<uint32_t>(number) << 3 | kLengthDelimited);
  output.WriteVarint32(static_cast<uint32_t>(value_bytes));
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
  if (message.payload().size() > kLargePayloadBytes) {
    large_payload_ = SharePayload(message.payload());
    frame_.mutable_message()->set_call_id(message.call_id());
  } else {
    *frame_.mutable_message() = message;
  }
  message_bytes_ = message_bytes;
  id_bytes_ = 0;
}

void SharedMessage::Add(serving::OutgoingStream& stream) {
  stream.last_shared_message = number_;
  frame_.add_stream_ids(stream.id);
  id_bytes_ += StreamIdBytes(stream.id);
  wire_size_ = SizeWithLength(StreamDataFrameSize(id_bytes_, message_bytes_));
}

bool SharedMessage::CanCarry(const StreamMessage& message,
                             const serving::OutgoingStream& stream) const {
  return !empty() && stream.last_shared_message != number_ &&
         frame_.message().call_id() == message.call_id() &&
         payload() == message.payload();
}

size_t SharedMessage::FrameSizeWith(
    const serving::OutgoingStream& stream) const {
  return StreamDataFrameSize(id_bytes_ + StreamIdBytes(stream.id),
                             message_bytes_);
}

const std::string& SharedMessage::payload() const {
  return large_payload_ ? *large_payload_ : frame_.message().payload();
}

void SharedMessage::AppendHead(std::string* bytes) const {
  google::protobuf::io::StringOutputStream stream(bytes);
  CodedOutputStream output(&stream);
  output.WriteVarint32(
      static_cast<uint32_t>(StreamDataFrameSize(id_bytes_, message_bytes_)));
  BeginField(Frame::kStreamData,
             FieldSize(id_bytes_) + FieldSize(message_bytes_), output);
  BeginField(StreamDataFrame::kStreamIdsFieldNumber, id_bytes_, output);
  for (const uint64_t id : frame_.stream_ids()) {
    output.WriteVarint64(id);
  }
  BeginField(StreamDataFrame::kMessageFieldNumber, message_bytes_, output);
  if (const int64_t call_id = frame_.message().call_id(); call_id != 0) {
    output.WriteTag(StreamMessage::kCallIdFieldNumber << 3);
    output.WriteVarint64(static_cast<uint64_t>(call_id));
  }
  BeginField(StreamMessage::kPayloadFieldNumber, large_payload_->size(),
             output);
}

void SharedMessage::Clear() {
  frame_.clear_stream_ids();
  if (std::exchange(large_payload_, nullptr)) {
    frame_.clear_message();
  }
  FreeIfLarge(frame_, frame_.message().payload().capacity());
  wire_size_ = 0;
}

}  // namespace rpc::transport
