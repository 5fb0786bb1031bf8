// A gRPC peer that is written by hand: opens a stream, and says nothing after
// that unless it is told to. It answers no ping, and takes no message, so that
// what the server writes waits for ever.
//
// Ownership: the test's. Sequence: any.
//
// Failure: that of the test.

#ifndef CORE_COMMON_RPC_GRPC_TESTING_SILENT_PEER_H_
#define CORE_COMMON_RPC_GRPC_TESTING_SILENT_PEER_H_

#include <string>

#include "core/common/rpc/loop/scoped_fd.h"

namespace rpc::grpc {

class SilentPeer {
 public:
  // Opens a stream of the method at `path`, "/rpc.BrowserWindow/GetTitle", at a
  // port of the loopback.
  SilentPeer(int port, const std::string& path);

  // Sends a message of up to 100 bytes on the stream.
  void Say(const std::string& message);

  // Blocks until the server has closed the connection.
  void AwaitEnd();

 private:
  void Send(const std::string& bytes);

  const loop::ScopedFd socket_;
};

}  // namespace rpc::grpc

#endif  // CORE_COMMON_RPC_GRPC_TESTING_SILENT_PEER_H_
