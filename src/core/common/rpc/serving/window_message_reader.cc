#include "core/common/rpc/serving/window_message_reader.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>

#include "core/common/rpc/stream/method_kind.h"
#include "rpc/event_subscription.pb.h"

namespace rpc::serving {
namespace {

using google::protobuf::FieldDescriptor;
using Kind = WindowMessage::Kind;

// A message of more than this is not kept for the next one.
constexpr size_t kMaxKeptBytes = 64 << 10;

constexpr int kVarint = 0;
constexpr int kLengthDelimited = 2;

// The byte that a field begins with, as protobuf writes it. No byte at all, -1,
// where it takes two.
int TagByte(const FieldDescriptor* field, int wire_type) {
  constexpr int kMaxNumber = 15;
  return field->number() > kMaxNumber ? -1 : field->number() << 3 | wire_type;
}

int FirstByte(std::string_view bytes) {
  return bytes.empty() ? -1 : static_cast<uint8_t>(bytes[0]);
}

// Takes a field with a length of one byte off the front of `bytes`.
bool TakeField(int tag, std::string_view* bytes, std::string_view* value) {
  constexpr int kLongestLength = 0x7f;
  if (FirstByte(*bytes) != tag || bytes->size() < 2) {
    return false;
  }
  const int length = FirstByte(bytes->substr(1));
  if (length > kLongestLength ||
      static_cast<size_t>(length) > bytes->size() - 2) {
    return false;
  }
  *value = bytes->substr(2, static_cast<size_t>(length));
  bytes->remove_prefix(2 + static_cast<size_t>(length));
  return true;
}

// Whether these are the very bytes that a BrowserId serialises to: nothing, or
// its value as the shortest varint, and no unknown field. Negative values,
// which nobody uses, are left to a parse.
bool IsSerialisedId(std::string_view bytes) {
  constexpr char kValueTag = 0x08;
  constexpr size_t kMaxBytes = 10;
  const auto goes_on = [](char byte) { return (byte & 0x80) != 0; };
  return bytes.empty() ||
         (bytes[0] == kValueTag && bytes.size() > 1 &&
          bytes.size() <= kMaxBytes &&
          std::all_of(bytes.begin() + 1, bytes.end() - 1, goes_on) &&
          !goes_on(bytes.back()) && bytes.back() != 0);
}

bool HasUnknownFields(const google::protobuf::Message& message) {
  return !message.GetReflection()->GetUnknownFields(message).empty();
}

}  // namespace

WindowMessageReader::WindowMessageReader(
    const torvane::Service& service,
    const google::protobuf::MethodDescriptor& method) {
  const auto kind = torvane::KindOf(method);
  if (!kind) {
    return;
  }
  scratch_.reset(service.GetRequestPrototype(&method).New());
  if (kind == torvane::MethodKind::kCallbackStream) {
    browser_id_ = method.input_type()->FindFieldByName("browser_id");
    subscribe_ = method.input_type()->FindFieldByName("subscribe");
    response_ = method.input_type()->FindFieldByName("response");
  }
}

WindowMessageReader::~WindowMessageReader() = default;

WindowMessage WindowMessageReader::ReadFromClient(
    const transport::StreamMessage& message) {
  if (!scratch_) {
    return {};
  }
  WindowMessage said;
  if (browser_id_ != nullptr && ReadPlain(message.payload(), &said)) {
    return said;
  }
  scratch_->ParseFromString(message.payload());
  said = browser_id_ != nullptr ? ReadCallback() : ReadSubscription();
  if (message.payload().size() > kMaxKeptBytes) {
    scratch_.reset(scratch_->New());
  }
  return said;
}

// A callback message that holds browser_id and then subscribe or response, each
// once and with one byte for its tag and its length, and nothing else.
bool WindowMessageReader::ReadPlain(std::string_view payload,
                                    WindowMessage* said) const {
  std::string_view window;
  if (!TakeField(TagByte(browser_id_, kLengthDelimited), &payload, &window) ||
      !IsSerialisedId(window)) {
    return false;
  }
  said->window = window;
  std::string_view response;
  if (TakeField(TagByte(response_, kLengthDelimited), &payload, &response)) {
    said->kind = Kind::kResponse;
    return payload.empty();
  }
  if (payload.size() != 2 ||
      FirstByte(payload) != TagByte(subscribe_, kVarint) ||
      (payload[1] != 0 && payload[1] != 1)) {
    return false;
  }
  said->kind = payload[1] == 1 ? Kind::kSubscribe : Kind::kUnsubscribe;
  return true;
}

WindowMessage WindowMessageReader::ReadSubscription() const {
  const auto& subscription = static_cast<const EventSubscription&>(*scratch_);
  if (subscription.has_subscribe_to()) {
    return SaidOf(Kind::kSubscribe, subscription.subscribe_to());
  }
  if (subscription.has_unsubscribe_from()) {
    return SaidOf(Kind::kUnsubscribe, subscription.unsubscribe_from());
  }
  return {};
}

WindowMessage WindowMessageReader::SaidOf(
    WindowMessage::Kind kind,
    const google::protobuf::Message& window) const {
  WindowMessage said;
  said.kind = kind;
  said.window = window.SerializeAsString();
  said.has_unknown_fields =
      said.subscribes_or_unsubscribes() &&
      (HasUnknownFields(*scratch_) || HasUnknownFields(window));
  return said;
}

WindowMessage WindowMessageReader::ReadCallback() const {
  const google::protobuf::Reflection& fields = *scratch_->GetReflection();
  Kind kind = Kind::kOther;
  if (fields.HasField(*scratch_, subscribe_)) {
    kind = fields.GetBool(*scratch_, subscribe_) ? Kind::kSubscribe
                                                 : Kind::kUnsubscribe;
  } else if (fields.HasField(*scratch_, response_)) {
    kind = Kind::kResponse;
  }
  return SaidOf(kind, fields.GetMessage(*scratch_, browser_id_));
}

std::string WindowMessageReader::UnsubscriptionFrom(
    const std::string& window) const {
  if (browser_id_ == nullptr) {
    EventSubscription subscription;
    subscription.mutable_unsubscribe_from()->ParseFromString(window);
    return subscription.SerializeAsString();
  }
  const std::unique_ptr<google::protobuf::Message> message(scratch_->New());
  const google::protobuf::Reflection& fields = *message->GetReflection();
  fields.MutableMessage(message.get(), browser_id_)->ParseFromString(window);
  fields.SetBool(message.get(), subscribe_, false);
  return message->SerializeAsString();
}

std::string WindowMessageReader::WindowOfQuestion(
    const transport::StreamMessage& question) {
  std::string_view payload = question.payload();
  std::string_view window;
  if (TakeField(TagByte(browser_id_, kLengthDelimited), &payload, &window)) {
    return std::string(window);
  }
  scratch_->ParseFromString(question.payload());
  return ReadCallback().window;
}

}  // namespace rpc::serving
