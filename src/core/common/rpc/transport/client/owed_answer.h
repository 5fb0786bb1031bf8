// The answer that a client owes to a question of the server. The asker waits
// for it, so an OwedAnswer that is destroyed without an answer declines: it
// tells the server that there will be none.
//
// Ownership: shared by the reply handles of callback_answerer.h. May outlive
// its stream; then it does nothing.
//
// Sequence: that of the client.
//
// Failure: Answer() says why the answer was not sent; declining cannot fail.

#ifndef CORE_COMMON_RPC_TRANSPORT_CLIENT_OWED_ANSWER_H_
#define CORE_COMMON_RPC_TRANSPORT_CLIENT_OWED_ANSWER_H_

#include <google/protobuf/message_lite.h>

#include <cstdint>
#include <memory>

#include "absl/status/status.h"
#include "core/common/rpc/transport/client/client_stream.h"
#include "rpc/transport/stream_message.pb.h"

namespace rpc::transport {

class OwedAnswer final {
 public:
  // Declining sends `refusal`, a message of the method's type with nothing but
  // the question's browser_id, and `call_id`, that of the question.
  OwedAnswer(std::weak_ptr<ClientStream> stream,
             const google::protobuf::MessageLite& refusal,
             int64_t call_id);
  OwedAnswer(const OwedAnswer&) = delete;
  OwedAnswer& operator=(const OwedAnswer&) = delete;
  ~OwedAnswer();

  // Sends the answer. FAILED_PRECONDITION when the question has been answered
  // or declined already, UNAVAILABLE when the answer cannot be sent.
  absl::Status Answer(const google::protobuf::MessageLite& answer);

  // Tells the server that there will be no answer. Does nothing when the
  // question has been answered or declined already.
  void Decline();

 private:
  const std::weak_ptr<ClientStream> stream_;
  StreamMessage refusal_;
  // Answered or declined.
  bool settled_ = false;
};

}  // namespace rpc::transport

#endif  // CORE_COMMON_RPC_TRANSPORT_CLIENT_OWED_ANSWER_H_
