// One stream of a client, without regard to what its messages are: what
// EventSubscriber and CallbackAnswerer are made of.
//
// Ownership: the user's. Destroying it ends the stream and tells nobody.
//
// Sequence: the loop of the client. The callbacks run on turns of the loop,
// never within an operation of the stream; each may destroy the stream, and the
// client.
//
// Failure: the end callback says, once, why the stream is over: OK where it was
// ended as it should, UNIMPLEMENTED where the server has no such stream,
// CANCELLED where the client was destroyed, UNAVAILABLE where the server has
// gone. After that, and after End(), sending returns false.

#ifndef CORE_COMMON_RPC_TRANSPORT_CLIENT_CLIENT_STREAM_H_
#define CORE_COMMON_RPC_TRANSPORT_CLIENT_CLIENT_STREAM_H_

#include <google/protobuf/descriptor.h>

#include <cstdint>
#include <functional>
#include <memory>

#include "absl/status/status.h"
#include "core/common/rpc/transport/client.h"
#include "core/common/rpc/transport/client/client_streams.h"
#include "rpc/transport/stream_message.pb.h"

namespace rpc::transport {

class ClientStream final : private ClientStreams::Observer {
 public:
  // A function of the StreamMessage does, too.
  using DataCallback = std::function<void(const ReceivedMessage&)>;
  using EndCallback = std::function<void(const absl::Status&)>;

  // Opens a stream on `method`. `on_end` may be null.
  ClientStream(Client& client,
               const google::protobuf::MethodDescriptor* method,
               DataCallback on_data,
               EndCallback on_end);
  ClientStream(const ClientStream&) = delete;
  ClientStream& operator=(const ClientStream&) = delete;
  ~ClientStream();

  // Sends a message, or one that says that a question will not be answered.
  // False when it is dropped: the stream is over, or too much waits to be
  // written, which for the second closes the connection.
  bool Send(const StreamMessage& message);
  bool SendError(const StreamMessage& message);

  // Says that nothing more will be sent. The end callback comes when the server
  // has agreed; what it has sent before still arrives.
  void End();

 private:
  // ClientStreams::Observer:
  void OnData(const ReceivedMessage& message) override;
  void OnEnd(const absl::Status& status) override;

  const std::shared_ptr<ClientCore> core_;
  // Shared with its own calls, in which it may be given up.
  const std::shared_ptr<const DataCallback> on_data_;
  EndCallback on_end_;
  const uint64_t id_;
};

}  // namespace rpc::transport

#endif  // CORE_COMMON_RPC_TRANSPORT_CLIENT_CLIENT_STREAM_H_
