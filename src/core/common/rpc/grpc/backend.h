// What stands behind a gRPC front (front.h): it finds methods by their names
// and carries calls and streams as bytes. There are two: one that calls
// services in the same process (services/), and one that passes everything on
// to another process (tools/rpc_gateway).
//
//   Backend         one for each front
//   BackendClient   one for each gRPC peer, so that whatever is counted and
//                   limited for a client is so for a gRPC peer
//   BackendSink     the front's side of that: takes what comes back
//
// Calls and streams have ids, which the front chooses and never uses twice for
// one client. Each call ends with one OnReply() or OnFailure(), each stream
// with one OnEnd(), unless the front has cancelled it: what still comes for an
// id that it no longer knows it ignores.
//
// Ownership: the backend is the program's and outlives its front. A client
// belongs to the front; destroying it gives up all of its calls and streams.
// The sink outlives the client.
//
// Sequence: the front's loop, for all of this. A backend may call the sink
// within the operation that brings it about.
//
// Failure: by statuses, which the gRPC peer gets as they are.

#ifndef CORE_COMMON_RPC_GRPC_BACKEND_H_
#define CORE_COMMON_RPC_GRPC_BACKEND_H_

#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <string_view>

#include "absl/status/status.h"
#include "absl/status/statusor.h"
#include "rpc/transport/stream_message.pb.h"

namespace rpc::grpc {

struct BackendMethod {
  enum class Kind {
    kUnary,
    // The client subscribes, the server sends events.
    kEvents,
    // The client subscribes, the server asks, and the client answers.
    kQuestions,
    // A stream of a kind that only its service knows.
    kOtherStream,
  };

  // The backend's own numbers for it: which method, and in which state of its
  // own it was found, if that may change.
  uint64_t id = 0;
  uint64_t epoch = 0;
  Kind kind = Kind::kUnary;
};

class BackendSink {
 public:
  virtual void OnReply(uint64_t call_id, std::string_view response) = 0;
  // `status` is not OK.
  virtual void OnFailure(uint64_t call_id, const absl::Status& status) = 0;

  // A message of a stream. Not OK when it is dropped, and the stream has to end
  // with this status. Does not call the backend back.
  virtual absl::Status OnMessage(uint64_t stream_id,
                                 const transport::StreamMessage& message) = 0;
  virtual void OnEnd(uint64_t stream_id, const absl::Status& status) = 0;

  // Bytes that wait to be written to the peer, over all its calls and streams.
  virtual size_t queued_bytes() const = 0;

 protected:
  ~BackendSink() = default;
};

class BackendClient {
 public:
  using FoundCallback =
      std::function<void(const absl::StatusOr<BackendMethod>&)>;

  virtual ~BackendClient() = default;

  // Looks a method up: "rpc.BrowserWindow", "GetTitle". Calls back once, at
  // once or when the backend is ready, unless it is destroyed before.
  virtual void Find(std::string_view service,
                    std::string_view method,
                    FoundCallback on_found) = 0;

  // Calls a unary method. Without a timeout it may take for ever.
  virtual void Call(uint64_t id,
                    const BackendMethod& method,
                    std::chrono::milliseconds timeout,
                    const std::string& request) = 0;
  virtual void Cancel(uint64_t id) = 0;

  virtual void Open(uint64_t id, const BackendMethod& method) = 0;
  // Send() sends a message, Decline() says that the question of this call_id
  // will not be answered. Not OK when it cannot be taken; then the front ends
  // the stream with this status. May change `message`.
  virtual absl::Status Send(uint64_t id, transport::StreamMessage& message) = 0;
  virtual absl::Status Decline(uint64_t id,
                               transport::StreamMessage& message) = 0;
  // The client sends nothing more. The backend then ends the stream, too.
  virtual void End(uint64_t id) = 0;
};

class Backend {
 public:
  // A gRPC peer that has nothing under way yet. `name` is what gRPC calls it:
  // "ipv4:127.0.0.1:40312".
  virtual std::unique_ptr<BackendClient> Connect(const std::string& name,
                                                 BackendSink& sink) = 0;

 protected:
  ~Backend() = default;
};

}  // namespace rpc::grpc

#endif  // CORE_COMMON_RPC_GRPC_BACKEND_H_
