// One open stream of a client, for messages of any type. EventSubscriber and
// CallbackAnswerer are built on it and give the messages their type.
//
// Ownership: the user's. Destroying it ends the stream; the end callback is
// then not called.
//
// Sequence: that of the client. The callbacks run when a frame arrives or the
// connection closes, never within an operation of the stream; each may destroy
// the stream and the client.
//
// Failure: the end callback runs once and says why the stream is over: OK when
// both sides have ended it, UNIMPLEMENTED when the server has no such stream,
// CANCELLED when the client was destroyed, UNAVAILABLE when the server has
// gone. After that, and after End(), sending returns false.

#ifndef CORE_COMMON_RPC_TRANSPORT_CLIENT_CLIENT_STREAM_H_
#define CORE_COMMON_RPC_TRANSPORT_CLIENT_CLIENT_STREAM_H_

#include <google/protobuf/descriptor.h>

#include <cstdint>
#include <functional>
#include <memory>

#include "absl/status/status.h"
#include "absl/status/statusor.h"
#include "core/common/rpc/transport/client.h"
#include "core/common/rpc/transport/client/client_stream_table.h"
#include "rpc/transport/stream_message.pb.h"

namespace rpc::transport {

class ClientStream final : private ClientStreamTable::Observer {
 public:
  // May also be a function that takes a StreamMessage.
  using DataCallback = std::function<void(const ReceivedMessage&)>;
  using EndCallback = std::function<void(const absl::Status&)>;

  using Method = absl::StatusOr<const google::protobuf::MethodDescriptor*>;

  // Opens a stream on `method`, which must stream. A status in its place, such
  // as method_check.h returns, ends the stream soon. `on_end` may be null.
  ClientStream(Client& client,
               const Method& method,
               DataCallback on_data,
               EndCallback on_end);
  // The same for a method that the server has given this id, see
  // RemoteMethods::FindByName().
  ClientStream(Client& client,
               uint64_t method_id,
               DataCallback on_data,
               EndCallback on_end);
  ClientStream(const ClientStream&) = delete;
  ClientStream& operator=(const ClientStream&) = delete;
  ~ClientStream();

  // Send() sends a message, SendError() says that the question named in the
  // message will not be answered. False when it is dropped: the stream is over,
  // or too much waits to be written. SendError() then closes the connection,
  // since the question would stay pending for ever.
  bool Send(const StreamMessage& message);
  bool SendError(const StreamMessage& message);

  // Tells the server that nothing more will be sent. What the server sends
  // until it ends the stream too still arrives; then the end callback runs.
  void End();

 private:
  // ClientStreamTable::Observer:
  void OnData(const ReceivedMessage& message) override;
  void OnEnd(const absl::Status& status) override;

  const std::shared_ptr<ClientCore> core_;
  // Shared, since the callback may destroy the stream while it runs.
  const std::shared_ptr<const DataCallback> on_data_;
  EndCallback on_end_;
  const uint64_t id_;
};

}  // namespace rpc::transport

#endif  // CORE_COMMON_RPC_TRANSPORT_CLIENT_CLIENT_STREAM_H_
