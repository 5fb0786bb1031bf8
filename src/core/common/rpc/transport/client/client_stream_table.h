// The streams that a client has open on its connection, by id: sends their
// frames, and hands each frame of the server to the stream that it names.
//
// Ids are never reused. A frame with an unknown id is for a stream that is
// over, and is ignored.
//
// Ownership: shared between the ClientCore and tasks posted to the sequence.
// `methods` belongs to the core and is used only while that is connected. The
// observers are not owned: each calls EndAndDetach() before it is destroyed.
//
// Sequence: the client's. Observers are called when a frame arrives or the
// connection closes, never within Open(), the Send operations or End(). Each
// may detach any stream and destroy the client.
//
// Failure: Open() fails by OnEnd(), on a later turn. Sending returns false.

#ifndef CORE_COMMON_RPC_TRANSPORT_CLIENT_CLIENT_STREAM_TABLE_H_
#define CORE_COMMON_RPC_TRANSPORT_CLIENT_CLIENT_STREAM_TABLE_H_

#include <google/protobuf/descriptor.h>

#include <cstdint>
#include <map>
#include <memory>

#include "absl/status/status.h"
#include "absl/status/statusor.h"
#include "core/common/rpc/loop/sequence.h"
#include "core/common/rpc/transport/client/received_message.h"

namespace rpc::transport {

class Connection;
class RemoteMethods;
class StreamDataFrame;
class StreamEndFrame;

class ClientStreamTable final
    : public std::enable_shared_from_this<ClientStreamTable> {
 public:
  class Observer {
   public:
    virtual void OnData(const ReceivedMessage& message) = 0;

    // The stream is over. Called last, and only once.
    virtual void OnEnd(const absl::Status& status) = 0;

   protected:
    ~Observer() = default;
  };

  ClientStreamTable(loop::Sequence& sequence,
                    std::shared_ptr<Connection> connection,
                    RemoteMethods& methods);
  ClientStreamTable(const ClientStreamTable&) = delete;
  ClientStreamTable& operator=(const ClientStreamTable&) = delete;
  ~ClientStreamTable();

  // Opens a stream and returns its id. If that fails, OnEnd() says why; a
  // status in place of the method is a reason.
  using Method = absl::StatusOr<const google::protobuf::MethodDescriptor*>;
  uint64_t Open(const Method& method, Observer* observer);

  // The same for a method that the server has given this id.
  uint64_t OpenById(const absl::StatusOr<uint64_t>& method_id,
                    Observer* observer);

  // Sends one message. False when it is dropped: this side has ended the
  // stream, it is over, or too much waits to be written.
  bool SendData(uint64_t id, const StreamMessage& message);

  // Tells the server that a question will not be answered. False when the
  // stream is over, or when too much waits to be written. In the second case
  // the connection is closed: a question that is neither answered nor declined
  // would stay pending for ever.
  bool SendError(uint64_t id, const StreamMessage& message);

  // Tells the server that this side sends nothing more. The stream is over, and
  // OnEnd() comes, when the server ends it too.
  void End(uint64_t id);

  // The same, but the observer is not called any more.
  void EndAndDetach(uint64_t id);

  void OnDataFrame(const StreamDataFrame& frame);
  void OnEndFrame(const StreamEndFrame& frame);

  // The connection is closed or about to be: finishes all streams with `why`,
  // and on a later turn any that is opened meanwhile or afterwards.
  void FinishAll(const absl::Status& why);

 private:
  struct Stream {
    // Null once detached.
    Observer* observer;
    // False once this side has ended the stream, or when the server was never
    // asked to open it.
    bool can_send = true;
  };
  using Streams = std::map<uint64_t, Stream>;

  absl::StatusOr<uint64_t> IdOf(const Method& method);
  absl::Status AppendOpen(uint64_t id,
                          const absl::StatusOr<uint64_t>& method_id);
  void AppendEnd(Streams::iterator stream);
  // Removes the stream and calls its observer's OnEnd().
  void Finish(uint64_t id, const absl::Status& status);
  bool CanSend(uint64_t id) const;

  loop::Sequence& sequence_;
  const std::shared_ptr<Connection> connection_;
  RemoteMethods& methods_;
  Streams streams_;
  uint64_t last_id_ = 0;
  // What FinishAll() was given; OK before.
  absl::Status closed_;
};

}  // namespace rpc::transport

#endif  // CORE_COMMON_RPC_TRANSPORT_CLIENT_CLIENT_STREAM_TABLE_H_
