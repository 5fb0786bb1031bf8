// The answer that a client owes to a question. Somebody at the other end waits
// for it, so destroying this without one declines: the server is told that
// there will be none.
//
// Ownership: shared by the reply handles of callback_answerer.h. Outlives its
// stream harmlessly.
//
// Sequence: the loop of the client.

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
  // `nameplate` names the window that the question was about, and nothing else;
  // `call_id` is the question's. That is what declining sends.
  OwedAnswer(std::weak_ptr<ClientStream> stream,
             const google::protobuf::MessageLite& nameplate,
             int64_t call_id);
  OwedAnswer(const OwedAnswer&) = delete;
  OwedAnswer& operator=(const OwedAnswer&) = delete;
  ~OwedAnswer();

  // Sends the answer. FAILED_PRECONDITION when the question is settled already,
  // UNAVAILABLE when the answer cannot be sent.
  absl::Status Answer(const google::protobuf::MessageLite& answer);

  // Says that there will be no answer. Nothing happens when the question is
  // settled already.
  void Decline();

 private:
  const std::weak_ptr<ClientStream> stream_;
  StreamMessage error_;
  bool settled_ = false;
};

}  // namespace rpc::transport

#endif  // CORE_COMMON_RPC_TRANSPORT_CLIENT_OWED_ANSWER_H_
