// A question that a client owes an answer. Somebody at the other end waits for
// it, so a question that is forgotten, this object destroyed, is refused.
//
// Ownership: shared by the reply handles of callback_answerer.h. Outlives its
// stream harmlessly.
//
// Sequence: the loop of the client.

#ifndef CORE_COMMON_RPC_TRANSPORT_PENDING_ANSWER_H_
#define CORE_COMMON_RPC_TRANSPORT_PENDING_ANSWER_H_

#include <google/protobuf/message_lite.h>

#include <cstdint>
#include <memory>

#include "absl/status/status.h"
#include "core/common/rpc/transport/client_stream.h"
#include "rpc/transport/stream_message.pb.h"

namespace rpc::transport {

class PendingAnswer final {
 public:
  // `refusal` is what a refusal carries, and names the window that the question
  // was about; `call_id` is the question's.
  PendingAnswer(std::weak_ptr<ClientStream> stream,
                const google::protobuf::MessageLite& refusal,
                int64_t call_id);
  PendingAnswer(const PendingAnswer&) = delete;
  PendingAnswer& operator=(const PendingAnswer&) = delete;
  ~PendingAnswer();

  // Sends the answer. FAILED_PRECONDITION when the question is settled already,
  // UNAVAILABLE when the answer cannot be sent.
  absl::Status Answer(const google::protobuf::MessageLite& answer);

  // Says that there will be no answer. Nothing happens when the question is
  // settled already.
  void Refuse();

 private:
  const std::weak_ptr<ClientStream> stream_;
  StreamMessage refusal_;
  bool settled_ = false;
};

}  // namespace rpc::transport

#endif  // CORE_COMMON_RPC_TRANSPORT_PENDING_ANSWER_H_
