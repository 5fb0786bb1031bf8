#include "core/common/rpc/transport/dynamic_streams.h"

#include <string>

#include "absl/strings/str_cat.h"
#include "core/common/rpc/stream/method_kind.h"
#include "core/common/rpc/transport/client/method_check.h"

namespace rpc::transport {
namespace {

using google::protobuf::Descriptor;
using google::protobuf::FieldDescriptor;
using google::protobuf::Message;
using google::protobuf::MessageFactory;
using google::protobuf::MethodDescriptor;
using torvane::MethodKind;

constexpr char kEventKey[] = "subscribe_to";
constexpr char kQuestionKey[] = "browser_id";

std::unique_ptr<Message> New(MessageFactory& factory, const Descriptor* type) {
  return std::unique_ptr<Message>(factory.GetPrototype(type)->New());
}

Message& MutableField(Message& message, const char* name) {
  return *message.GetReflection()->MutableMessage(
      &message, message.GetDescriptor()->FindFieldByName(name));
}

StreamMessage Serialized(const Message& message) {
  StreamMessage serialized;
  message.SerializePartialToString(serialized.mutable_payload());
  return serialized;
}

// Nothing is known of a method's types but what its descriptor says, and that
// may be anybody's.
ClientStream::Method CheckKey(const ClientStream::Method& method) {
  if (method.ok() && KeyTypeOf(**method) == nullptr) {
    return absl::InvalidArgumentError(absl::StrCat(
        (*method)->full_name(), " has no key that one could subscribe to"));
  }
  return method;
}

}  // namespace

const Descriptor* KeyTypeOf(const MethodDescriptor& method) {
  const auto kind = torvane::KindOf(method);
  if (kind != MethodKind::kEventStream && kind != MethodKind::kCallbackStream) {
    return nullptr;
  }
  const FieldDescriptor* key = method.input_type()->FindFieldByName(
      kind == MethodKind::kEventStream ? kEventKey : kQuestionKey);
  return key == nullptr || key->is_repeated() ? nullptr : key->message_type();
}

DynamicEventSubscriber::DynamicEventSubscriber(Client& client,
                                               const MethodDescriptor* method,
                                               MessageFactory& factory,
                                               EventCallback on_event,
                                               ClientStream::EndCallback on_end)
    : request_type_(method->input_type()),
      has_key_(KeyTypeOf(*method) != nullptr),
      factory_(factory),
      stream_(
          client,
          CheckKey(CheckEventMethod(method, *method->output_type())),
          [type = method->output_type(),
           &factory,
           on_event = std::move(on_event)](const StreamMessage& message) {
            const std::unique_ptr<Message> event = New(factory, type);
            if (event->ParseFromString(message.payload())) {
              on_event(*event);
            }
          },
          std::move(on_end)) {}

bool DynamicEventSubscriber::Subscribe(const Message& key) {
  if (!has_key_) {
    return false;
  }
  const std::unique_ptr<Message> request = New(factory_, request_type_);
  MutableField(*request, kEventKey).CopyFrom(key);
  return stream_.Send(Serialized(*request));
}

absl::Status DynamicCallbackAnswerer::Reply::Answer(Message& answer) const {
  const FieldDescriptor* response =
      answer.GetDescriptor()->FindFieldByName("response");
  // An answer without a response would end the process that asked.
  if (!answer.GetReflection()->HasField(answer, response)) {
    return absl::InvalidArgumentError("the answer has no response");
  }
  const FieldDescriptor* key =
      refusal_->GetDescriptor()->FindFieldByName(kQuestionKey);
  MutableField(answer, kQuestionKey)
      .CopyFrom(refusal_->GetReflection()->GetMessage(*refusal_, key));
  return owed_->Answer(answer);
}

DynamicCallbackAnswerer::DynamicCallbackAnswerer(
    Client& client,
    const MethodDescriptor* method,
    MessageFactory& factory,
    QuestionCallback on_question,
    ClientStream::EndCallback on_end)
    : type_(method->output_type()),
      has_key_(KeyTypeOf(*method) != nullptr),
      factory_(factory),
      stream_(std::make_shared<ClientStream>(
          client,
          CheckKey(CheckCallbackMethod(method, *method->output_type())),
          [this,
           on_question = std::move(on_question)](const StreamMessage& message) {
            OnMessage(message, on_question);
          },
          std::move(on_end))) {}

std::unique_ptr<Message> DynamicCallbackAnswerer::NewMessage() const {
  return New(factory_, type_);
}

void DynamicCallbackAnswerer::OnMessage(const StreamMessage& message,
                                        const QuestionCallback& on_question) {
  const std::unique_ptr<Message> question = NewMessage();
  const bool parsed = question->ParseFromString(message.payload());
  const bool readable =
      parsed && question->GetReflection()->HasOneof(
                    *question, type_->FindOneofByName("body"));
  const std::shared_ptr<Message> refusal = NewMessage();
  const FieldDescriptor* key = type_->FindFieldByName(kQuestionKey);
  MutableField(*refusal, kQuestionKey)
      .CopyFrom(question->GetReflection()->GetMessage(*question, key));
  // Declines when it is destroyed, so also right here.
  auto owed =
      std::make_shared<OwedAnswer>(stream_, *refusal, message.call_id());
  if (readable) {
    on_question(*question, Reply(refusal, std::move(owed)));
  }
}

bool DynamicCallbackAnswerer::Subscribe(const Message& key) {
  if (!has_key_) {
    return false;
  }
  const std::unique_ptr<Message> subscription = NewMessage();
  MutableField(*subscription, kQuestionKey).CopyFrom(key);
  subscription->GetReflection()->SetBool(
      subscription.get(), type_->FindFieldByName("subscribe"), true);
  return stream_->Send(Serialized(*subscription));
}

}  // namespace rpc::transport
