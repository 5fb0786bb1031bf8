// The streams that a client has opened on its connection.
//
// Ids are never used twice, so what still arrives for a stream that is over is
// told by its id being unknown, and ignored.
//
// Ownership: shared between the client's core and turns of the loop to come.
// `methods` belongs to the core and is used only while that is connected.
// Points to the observers, which see to it that they are abandoned before they
// go.
//
// Sequence: the loop's. Observers are called from turns of the loop, never from
// within an operation that they use; each of them may abandon any stream, and
// destroy the client.

#ifndef CORE_COMMON_RPC_TRANSPORT_CLIENT_CLIENT_STREAMS_H_
#define CORE_COMMON_RPC_TRANSPORT_CLIENT_CLIENT_STREAMS_H_

#include <google/protobuf/descriptor.h>

#include <cstdint>
#include <map>
#include <memory>

#include "absl/status/status.h"
#include "core/common/rpc/loop/sequence.h"
#include "core/common/rpc/transport/client/received_message.h"
#include "core/common/rpc/transport/client/remote_methods.h"
#include "core/common/rpc/transport/wire/connection.h"
#include "rpc/transport/frame.pb.h"

namespace rpc::transport {

class ClientStreams final : public std::enable_shared_from_this<ClientStreams> {
 public:
  // Who is told what arrives on a stream.
  class Observer {
   public:
    virtual void OnData(const ReceivedMessage& message) = 0;

    // The stream is over: the last call.
    virtual void OnEnd(const absl::Status& status) = 0;

   protected:
    ~Observer() = default;
  };

  ClientStreams(loop::Sequence& sequence,
                std::shared_ptr<Connection> connection,
                RemoteMethods& methods);
  ClientStreams(const ClientStreams&) = delete;
  ClientStreams& operator=(const ClientStreams&) = delete;
  ~ClientStreams();

  // Opens a stream. Where that fails the observer's OnEnd() says why.
  uint64_t Open(const google::protobuf::MethodDescriptor* method,
                Observer* observer);

  // Sends one message. False when it is dropped: the stream is over, or too
  // much waits to be written.
  bool SendData(uint64_t id, const StreamMessage& message);

  // Says that a question will not be answered. False when the stream is over,
  // or too much waits to be written: then the connection is closed, since a
  // question that is neither answered nor refused would wait for ever.
  bool SendError(uint64_t id, const StreamMessage& message);

  // Sends nothing more. OnEnd() comes when the server has agreed.
  void End(uint64_t id);

  // Ends the stream without telling the observer.
  void Abandon(uint64_t id);

  // Frames of the server.
  void OnData(const StreamDataFrame& frame);
  void OnEnd(const StreamEndFrame& frame);

  // The connection is closed.
  void CloseAll(const absl::Status& why);

 private:
  struct Stream {
    // Null when abandoned.
    Observer* observer;
    // Our end frame is appended.
    bool ended = false;
  };
  using Streams = std::map<uint64_t, Stream>;

  absl::Status AppendOpen(uint64_t id,
                          const google::protobuf::MethodDescriptor* method);
  void AppendEnd(Streams::iterator stream);
  void Finish(uint64_t id, const absl::Status& status);
  bool CanSend(uint64_t id) const;

  loop::Sequence& sequence_;
  const std::shared_ptr<Connection> connection_;
  RemoteMethods& methods_;
  Streams streams_;
  uint64_t last_id_ = 0;
  // Why no stream can be opened any more.
  absl::Status closed_;
};

}  // namespace rpc::transport

#endif  // CORE_COMMON_RPC_TRANSPORT_CLIENT_CLIENT_STREAMS_H_
