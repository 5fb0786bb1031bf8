// What one side of a connection says, as bytes: how conversations are recorded,
// kept, changed by a fuzzer and played again.

#ifndef CORE_COMMON_RPC_TRANSPORT_FUZZING_CONVERSATION_H_
#define CORE_COMMON_RPC_TRANSPORT_FUZZING_CONVERSATION_H_

#include <string>
#include <string_view>
#include <vector>

#include "core/common/rpc/loop/asio.h"
#include "core/common/rpc/transport/wire/frame_codec.h"

namespace rpc::transport {

// One frame as sent, with its parsed kind and body; or bytes that are no frame
// (kind BODY_NOT_SET).
struct Utterance {
  std::string bytes;
  FrameKind kind = Frame::BODY_NOT_SET;
  std::string body;
};

// Cuts at the ends of frames. From the first byte on that begins no complete
// frame all is one utterance.
std::vector<Utterance> Cut(std::string_view bytes);

// The bytes of a frame with this body, whatever it is.
std::string WireFrame(FrameKind kind, std::string_view body);

// Neither waits. WriteSome() stops where the socket takes no more and returns
// what is left; ReadAll() returns what has arrived.
std::string_view WriteSome(asio::local::stream_protocol::socket& socket,
                           std::string_view bytes);
std::string ReadAll(asio::local::stream_protocol::socket& socket);

}  // namespace rpc::transport

#endif  // CORE_COMMON_RPC_TRANSPORT_FUZZING_CONVERSATION_H_
