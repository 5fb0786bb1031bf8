// One message on its way to one or many streams of a connection. It travels
// once: a stream_data frame that lists the streams. For as long as the same
// message is sent on other streams, only the list grows. A large payload is
// shared with other connections (shared_payload.h): the frame is then written
// as a head and, last in it, the payload.
//
// Ownership: the outbox's.
//
// Sequence: the loop's.

#ifndef CORE_COMMON_RPC_TRANSPORT_WIRE_SHARED_MESSAGE_H_
#define CORE_COMMON_RPC_TRANSPORT_WIRE_SHARED_MESSAGE_H_

#include <cstddef>
#include <cstdint>
#include <string>

#include "core/common/rpc/serving/outgoing_stream.h"
#include "core/common/rpc/transport/wire/shared_payload.h"
#include "rpc/transport/frame.pb.h"

namespace rpc::transport {

// The bytes that a frame takes, as FrameSize() counts them, that carries a
// message of `message_bytes` to streams whose ids take `id_bytes` in all.
size_t StreamDataFrameSize(size_t id_bytes, size_t message_bytes);

// The bytes that the id of a stream takes in the list of streams.
size_t StreamIdBytes(uint64_t id);

class SharedMessage {
 public:
  bool empty() const { return frame_.stream_ids().empty(); }

  // Begins anew with `message`, for no stream yet.
  void Begin(const StreamMessage& message, size_t message_bytes);

  // Adds the stream to those that the message goes to.
  void Add(serving::OutgoingStream& stream);

  // Whether Add() would carry `message` to `stream`, and for the first time.
  bool CanCarry(const StreamMessage& message,
                const serving::OutgoingStream& stream) const;

  // The bytes that the frame takes with its length; none when it is empty().
  size_t wire_size() const { return wire_size_; }

  // What the frame alone would take with this stream added.
  size_t FrameSizeWith(const serving::OutgoingStream& stream) const;

  // The payload if it is large, else null.
  const SharedPayload& large_payload() const { return large_payload_; }

  // The frame of a message whose payload is not large.
  const StreamDataFrame& frame() const { return frame_; }

  // Appends what stands before a large payload on the wire: the frame with its
  // length, up to the payload's bytes.
  void AppendHead(std::string* bytes) const;

  // Forgets the message and its streams: empty() holds.
  void Clear();

 private:
  const std::string& payload() const;

  // Without the payload if that is large.
  StreamDataFrame frame_;
  SharedPayload large_payload_;
  size_t message_bytes_ = 0;
  size_t id_bytes_ = 0;
  size_t wire_size_ = 0;
  // Counts the messages, so that a stream can tell whether it has this one.
  uint64_t number_ = 0;
};

}  // namespace rpc::transport

#endif  // CORE_COMMON_RPC_TRANSPORT_WIRE_SHARED_MESSAGE_H_
