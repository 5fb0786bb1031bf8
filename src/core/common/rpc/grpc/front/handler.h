// What becomes of the messages of one gRPC call, by the kind of its method:
//
//                   a message                          half-close
//   unary           calls the method                   without a message: fails
//   events          goes to the stream                 nothing: events go on
//   questions       goes to the stream, or declines    ends the stream
//   other streams   goes to the stream                 ends the stream
//   reflection      is answered here                   ends the call
//
// Ownership: the call's (rpc.h), which outlives it.
//
// Sequence: the front's.
//
// Failure: Rpc::Fail(), which may destroy nothing before the operation returns.

#ifndef CORE_COMMON_RPC_GRPC_FRONT_HANDLER_H_
#define CORE_COMMON_RPC_GRPC_FRONT_HANDLER_H_

#include <cstddef>
#include <memory>
#include <string>

#include "core/common/rpc/grpc/backend.h"
#include "rpc/transport/stream_message.pb.h"

namespace rpc::grpc {

class ReflectionAnswers;
class Rpc;

class Handler {
 public:
  virtual ~Handler() = default;

  // Called once, first: opens the stream, if there is one.
  virtual void Begin() {}

  // What the client does. OnMessage() asks for the next one itself, by
  // Rpc::ReadNext().
  virtual void OnMessage(std::string message) = 0;
  virtual void OnHalfClose() = 0;

  // The call is over for the client: the backend is to let go of it.
  virtual void GiveUp() = 0;

  // What a message of the backend's stream is to the client.
  virtual std::string ToClient(const transport::StreamMessage& message) {
    return message.payload();
  }
};

std::unique_ptr<Handler> MakeUnaryHandler(Rpc& rpc,
                                          const BackendMethod& method);
std::unique_ptr<Handler> MakeEventHandler(Rpc& rpc,
                                          const BackendMethod& method,
                                          size_t max_messages);
std::unique_ptr<Handler> MakeQuestionHandler(Rpc& rpc,
                                             const BackendMethod& method);
std::unique_ptr<Handler> MakeOtherStreamHandler(Rpc& rpc,
                                                const BackendMethod& method);
std::unique_ptr<Handler> MakeReflectionHandler(
    Rpc& rpc,
    std::shared_ptr<const ReflectionAnswers> answers);

}  // namespace rpc::grpc

#endif  // CORE_COMMON_RPC_GRPC_FRONT_HANDLER_H_
