// What a message on a stream says about a window, as far as the transport needs
// to know it for its limits and reports:
//
//   events     rpc.EventSubscription: subscribe_to, unsubscribe_from
//   questions  the callback message: subscribe, response, and browser_id

#ifndef CORE_COMMON_RPC_TRANSPORT_WINDOW_MESSAGE_H_
#define CORE_COMMON_RPC_TRANSPORT_WINDOW_MESSAGE_H_

#include <string>

#include "core/common/rpc/transport/served_methods.h"
#include "rpc/transport/stream_message.pb.h"

namespace rpc::transport {

struct WindowMessage {
  enum class Kind { kOther, kSubscribe, kUnsubscribe, kResponse };

  Kind kind = Kind::kOther;
  // The window's BrowserId, serialised: two are the same for the streams'
  // registries when all their bytes are.
  std::string window;
};

// Reads `message`, which belongs to a stream of `method`, in the way in which
// the stream does: what does not parse counts as far as it parsed.
WindowMessage ReadWindowMessage(const ServedMethod& method,
                                const StreamMessage& message);

}  // namespace rpc::transport

#endif  // CORE_COMMON_RPC_TRANSPORT_WINDOW_MESSAGE_H_
