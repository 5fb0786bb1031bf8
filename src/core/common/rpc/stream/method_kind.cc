#include "core/common/rpc/stream/method_kind.h"

#include <google/protobuf/descriptor.pb.h>

namespace torvane {
namespace {

using google::protobuf::Descriptor;
using google::protobuf::FieldDescriptor;
using google::protobuf::MethodDescriptor;
using google::protobuf::OneofDescriptor;

constexpr char kEventRequest[] = "rpc.EventSubscription";

// CallbackStream reads these fields. Reading a deprecated one gives a compiler
// warning in generated code.
bool IsUsable(const FieldDescriptor* field) {
  return field && !field->options().deprecated();
}

bool NamesBrowser(const FieldDescriptor* field) {
  return IsUsable(field) && !field->is_repeated() &&
         !field->real_containing_oneof() &&
         field->type() == FieldDescriptor::TYPE_MESSAGE &&
         field->message_type()->full_name() == "BrowserId";
}

bool IsCallbackMessage(const Descriptor& message) {
  if (!NamesBrowser(message.FindFieldByName("browser_id")))
    return false;
  const OneofDescriptor* body = message.FindOneofByName("body");
  const FieldDescriptor* subscribe = message.FindFieldByName("subscribe");
  const FieldDescriptor* response = message.FindFieldByName("response");
  return body && IsUsable(subscribe) && IsUsable(response) &&
         subscribe->containing_oneof() == body &&
         subscribe->type() == FieldDescriptor::TYPE_BOOL &&
         subscribe->number() == 2 && response->containing_oneof() == body &&
         response->number() == 4;
}

}  // namespace

std::optional<MethodKind> KindOf(const MethodDescriptor& method) {
  if (!method.client_streaming() && !method.server_streaming())
    return MethodKind::kUnary;
  if (!method.client_streaming() || !method.server_streaming())
    return std::nullopt;
  if (method.input_type()->full_name() == kEventRequest)
    return MethodKind::kEventStream;
  if (method.input_type() == method.output_type() &&
      IsCallbackMessage(*method.input_type())) {
    return MethodKind::kCallbackStream;
  }
  return std::nullopt;
}

}  // namespace torvane
