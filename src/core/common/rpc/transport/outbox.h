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
// Ownership: the connection's.
//
// Sequence: the loop's.

#ifndef CORE_COMMON_RPC_TRANSPORT_OUTBOX_H_
#define CORE_COMMON_RPC_TRANSPORT_OUTBOX_H_

#include <google/protobuf/message_lite.h>

#include <cstddef>
#include <deque>
#include <string>
#include <string_view>

#include "core/common/rpc/transport/frame_codec.h"

namespace rpc::transport {

class Outbox {
 public:
  // Bytes of a chunk: worth a system call of their own, and few enough for an
  // idle connection to keep. A frame of more than a quarter of this has a chunk
  // for itself, so no more than a quarter of what waits is allocated on top.
  static constexpr size_t kChunkBytes = 64 << 10;

  // As AppendFrame() in frame_codec.h.
  void Append(FrameKind kind,
              const google::protobuf::MessageLite& body,
              size_t frame_size);

  // Bytes that wait.
  size_t bytes() const { return bytes_; }

  // Bytes among them that the peer has asked for by what it sent, which is all
  // but stream data; of a chunk that is being written, all count.
  size_t reply_bytes() const { return reply_bytes_; }

  // What to write next; empty when nothing waits.
  std::string_view Front() const;

  // The first `size` bytes of Front() have been written.
  void Written(size_t size);

  // Forgets all frames of which nothing has been written.
  void DropUnbegun();

  // Forgets all that waits.
  void Clear();

 private:
  struct Chunk {
    std::string bytes;
    size_t reply_bytes = 0;
  };

  Chunk& ChunkFor(size_t size);

  // The last one may be empty.
  std::deque<Chunk> chunks_;
  // Bytes of the first chunk that have been written.
  size_t written_ = 0;
  size_t bytes_ = 0;
  size_t reply_bytes_ = 0;
};

}  // namespace rpc::transport

#endif  // CORE_COMMON_RPC_TRANSPORT_OUTBOX_H_
