// One client's connection to the browser-window service, over whatever
// transport. What a client can see must be the same over all of them.
//
// Sequence: everything runs on one thread, inside RunUntil().

#ifndef CORE_COMMON_RPC_CONFORMANCE_LINK_H_
#define CORE_COMMON_RPC_CONFORMANCE_LINK_H_

#include <google/protobuf/message.h>

#include <functional>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "rpc/transport/stream_message.pb.h"

namespace rpc::conformance {

// An open stream as its client sees it.
class ClientStream {
 public:
  virtual ~ClientStream() = default;

  virtual void Send(const transport::StreamMessage& frame) = 0;
  virtual void SendError(const transport::StreamMessage& frame) = 0;
  virtual void End() = 0;

  // What the service has sent so far, and whether the stream is over.
  std::vector<transport::StreamMessage> received;
  bool over = false;
};

// A unary call, and once it is over, its end.
struct UnaryCall {
  bool over = false;
  // Empty on success.
  std::string failure;
  std::unique_ptr<google::protobuf::Message> response;
};

class Link {
 public:
  virtual ~Link() = default;

  // Methods are named by their indices.
  virtual std::shared_ptr<UnaryCall> Call(
      int method,
      const google::protobuf::Message& request) = 0;
  virtual std::shared_ptr<ClientStream> Open(int method) = 0;

  // Lets things happen until `condition` holds.
  virtual void RunUntil(const std::function<bool()>& condition) = 0;

  // The connection breaks without a word. Nothing is used afterwards.
  virtual void Break() = 0;
};

// A service with a way to reach it. Links must go before it.
class Host {
 public:
  virtual ~Host() = default;
  virtual std::unique_ptr<Link> Connect() = 0;
};

std::unique_ptr<Host> InProcessHost();
std::unique_ptr<Host> SocketPairHost();
// A socket pair in between of which each byte is handed on by itself.
std::unique_ptr<Host> ByteByByteHost();
// Another process behind a socket file.
std::unique_ptr<Host> ProcessHost();

}  // namespace rpc::conformance

#endif  // CORE_COMMON_RPC_CONFORMANCE_LINK_H_
