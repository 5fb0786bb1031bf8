// The frames that wait to be written to one peer.
//
// They lie in chunks of whole frames. So nothing that waits is ever moved,
// memory is given back as it is written, and the frames of which the peer has
// seen nothing yet can be dropped when more important ones are to leave:
//
//     first chunk               second chunk
//   +-------+-------+-------+ +---------+-----
//   | frame | frame | frame | | frame   | ...
//   +-------+-------+-------+ +---------+-----
//    written ---> | <--- bytes() ------------->
//
// The payload of a large message lies beside its chunk, shared with the other
// connections that it waits for; each counts it as its own.
//
// A message for many streams is held back at the end for as long as it may find
// one more (shared_message.h). Any other frame, and writing, ends that.
//
// Ownership: the connection's.
//
// Sequence: the loop's.

#ifndef CORE_COMMON_RPC_TRANSPORT_WIRE_OUTBOX_H_
#define CORE_COMMON_RPC_TRANSPORT_WIRE_OUTBOX_H_

#include <google/protobuf/message_lite.h>

#include <cstddef>
#include <deque>
#include <string>
#include <string_view>

#include "core/common/rpc/serving/outgoing_stream.h"
#include "core/common/rpc/transport/wire/frame_codec.h"
#include "core/common/rpc/transport/wire/shared_message.h"

namespace rpc::transport {

class Outbox {
 public:
  // Bytes of a chunk: worth a system call of their own. A frame of more than a
  // quarter of this has a chunk for itself, so no more than a quarter of what
  // waits is allocated on top. Of what has been written, no more than a small
  // chunk is kept.
  static constexpr size_t kChunkBytes = 64 << 10;

  // As AppendFrame() in frame_codec.h.
  void Append(FrameKind kind,
              const google::protobuf::MessageLite& body,
              size_t frame_size);

  // Appends `message` for `stream`, in a frame of its own. `message_bytes` is
  // the message's ByteSizeLong().
  void AppendMessage(serving::OutgoingStream& stream,
                     const StreamMessage& message,
                     size_t message_bytes);

  // Lets the last frame carry `message` to `stream` as well. False, and nothing
  // is changed, unless that is the frame of the same message, takes no more
  // than `max_frame_bytes` with the stream, and all that waits `max_bytes`.
  bool JoinMessage(serving::OutgoingStream& stream,
                   const StreamMessage& message,
                   size_t max_frame_bytes,
                   size_t max_bytes);

  // Bytes that wait.
  size_t bytes() const { return bytes_ + held_.wire_size(); }

  // Waiting bytes except stream data: what the peer has asked for by what it
  // sent. A partly written chunk counts whole.
  size_t reply_bytes() const { return reply_bytes_; }

  // What to write next; empty when nothing waits.
  std::string_view Front();

  // The first `size` bytes of Front() have been written.
  void Written(size_t size);

  // Forgets all frames of which nothing has been written.
  void DropUnbegun();

  void Clear();

 private:
  // Whole frames; or one, whose last part is shared.
  struct Chunk {
    size_t size() const {
      return bytes.size() + (payload ? payload->size() : 0);
    }

    std::string bytes;
    SharedPayload payload;
    size_t reply_bytes = 0;
  };

  void AppendToChunk(FrameKind kind,
                     const google::protobuf::MessageLite& body,
                     size_t frame_size);
  void AppendHeldMessage();
  void AppendHeldLargeMessage();
  Chunk& ChunkFor(size_t size);
  Chunk& EmptyChunk();

  // The last one may be empty.
  std::deque<Chunk> chunks_;
  // Bytes of the first chunk that have been written.
  size_t written_ = 0;
  // Bytes in the chunks that have not been written.
  size_t bytes_ = 0;
  size_t reply_bytes_ = 0;
  // The message that is held back behind the chunks; empty when there is none.
  SharedMessage held_;
};

}  // namespace rpc::transport

#endif  // CORE_COMMON_RPC_TRANSPORT_WIRE_OUTBOX_H_
