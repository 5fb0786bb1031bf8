#include "core/common/rpc/transport/client/owed_answer.h"

#include <utility>

namespace rpc::transport {

OwedAnswer::OwedAnswer(std::weak_ptr<ClientStream> stream,
                       const google::protobuf::MessageLite& refusal,
                       int64_t call_id)
    : stream_(std::move(stream)) {
  refusal_.set_call_id(call_id);
  refusal.SerializeToString(refusal_.mutable_payload());
}

OwedAnswer::~OwedAnswer() {
  Decline();
}

absl::Status OwedAnswer::Answer(const google::protobuf::MessageLite& answer) {
  if (settled_) {
    return absl::FailedPreconditionError("the question is settled already");
  }
  StreamMessage message;
  message.set_call_id(refusal_.call_id());
  answer.SerializeToString(message.mutable_payload());
  const auto stream = stream_.lock();
  if (!stream || !stream->Send(message)) {
    return absl::UnavailableError("the answer cannot be sent");
  }
  settled_ = true;
  return absl::OkStatus();
}

void OwedAnswer::Decline() {
  const auto stream = stream_.lock();
  if (stream && !std::exchange(settled_, true)) {
    stream->SendError(refusal_);
  }
}

}  // namespace rpc::transport
