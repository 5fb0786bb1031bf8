// A stream as its transport knows it when it sends on it.

#ifndef CORE_COMMON_RPC_SERVING_OUTGOING_STREAM_H_
#define CORE_COMMON_RPC_SERVING_OUTGOING_STREAM_H_

#include <cstdint>

namespace rpc::serving {

struct OutgoingStream {
  uint64_t id = 0;
  // The transport's own: which message, of those that it sends once for many
  // streams, went to this one last.
  uint64_t last_shared_message = 0;
};

}  // namespace rpc::serving

#endif  // CORE_COMMON_RPC_SERVING_OUTGOING_STREAM_H_
