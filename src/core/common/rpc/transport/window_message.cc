#include "core/common/rpc/transport/window_message.h"

#include <google/protobuf/message.h>

#include <memory>

#include "rpc/event_subscription.pb.h"

namespace rpc::transport {
namespace {

using Kind = WindowMessage::Kind;

WindowMessage ReadSubscription(const StreamMessage& message) {
  EventSubscription subscription;
  subscription.ParseFromString(message.payload());
  if (subscription.has_subscribe_to()) {
    return {Kind::kSubscribe, subscription.subscribe_to().SerializeAsString()};
  }
  if (subscription.has_unsubscribe_from()) {
    return {Kind::kUnsubscribe,
            subscription.unsubscribe_from().SerializeAsString()};
  }
  return {};
}

WindowMessage ReadCallback(const ServedMethod& method,
                           const StreamMessage& message) {
  const std::unique_ptr<google::protobuf::Message> frame(
      method.service->GetRequestPrototype(method.descriptor).New());
  frame->ParseFromString(message.payload());
  const google::protobuf::Reflection& fields = *frame->GetReflection();
  WindowMessage said;
  said.window =
      fields.GetMessage(*frame, method.browser_id).SerializeAsString();
  if (fields.HasField(*frame, method.subscribe)) {
    said.kind = fields.GetBool(*frame, method.subscribe) ? Kind::kSubscribe
                                                         : Kind::kUnsubscribe;
  } else if (fields.HasField(*frame, method.response)) {
    said.kind = Kind::kResponse;
  }
  return said;
}

}  // namespace

WindowMessage ReadWindowMessage(const ServedMethod& method,
                                const StreamMessage& message) {
  switch (method.kind) {
    case MethodKind::kEvents:
      return ReadSubscription(message);
    case MethodKind::kQuestions:
      return ReadCallback(method, message);
    case MethodKind::kUnary:
    case MethodKind::kOtherStream:
      break;
  }
  return {};
}

}  // namespace rpc::transport
