#include "core/common/rpc/serving/window_message_reader.h"

#include <google/protobuf/io/coded_stream.h>
#include <google/protobuf/wire_format_lite.h>

#include <cstddef>
#include <string_view>

#include "core/common/rpc/stream/method_kind.h"
#include "rpc/event_subscription.pb.h"

namespace rpc::serving {
namespace {

using google::protobuf::FieldDescriptor;
using google::protobuf::Message;
using google::protobuf::internal::WireFormatLite;
using google::protobuf::io::CodedInputStream;
using Kind = WindowMessage::Kind;

// A message of more than this is not kept for the next one.
constexpr size_t kMaxKeptBytes = 64 << 10;

uint32_t TagOf(const FieldDescriptor* field, WireFormatLite::WireType type) {
  return WireFormatLite::MakeTag(field->number(), type);
}

uint32_t LengthDelimitedTagOf(const FieldDescriptor* field) {
  return TagOf(field, WireFormatLite::WIRETYPE_LENGTH_DELIMITED);
}

CodedInputStream InputOf(const std::string& bytes) {
  return CodedInputStream(reinterpret_cast<const uint8_t*>(bytes.data()),
                          static_cast<int>(bytes.size()));
}

// Reads a length and that many bytes, which point into `bytes`.
bool ReadBytes(const std::string& bytes,
               CodedInputStream& input,
               std::string_view* value) {
  uint32_t size = 0;
  if (!input.ReadVarint32(&size)) {
    return false;
  }
  const auto start = static_cast<size_t>(input.CurrentPosition());
  if (size > bytes.size() - start) {
    return false;
  }
  *value = std::string_view(bytes).substr(start, size);
  return input.Skip(static_cast<int>(size));
}

// Whether these are the very bytes that a BrowserId serialises to: nothing, or
// its value as the shortest varint, and no unknown field.
bool IsSerialisedId(std::string_view bytes) {
  constexpr char kValueTag = 0x08;
  constexpr size_t kMaxVarintBytes = 10;
  if (bytes.empty()) {
    return true;
  }
  if (bytes[0] != kValueTag || bytes.size() < 2 ||
      bytes.size() > 1 + kMaxVarintBytes) {
    return false;
  }
  const std::string_view varint = bytes.substr(1);
  for (const char byte : varint.substr(0, varint.size() - 1)) {
    if ((static_cast<uint8_t>(byte) & 0x80) == 0) {
      return false;
    }
  }
  const auto last = static_cast<uint8_t>(varint.back());
  return last > 0 && last < 0x80 &&
         (varint.size() < kMaxVarintBytes || last == 1);
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
// once, and nothing else.
bool WindowMessageReader::ReadPlain(const std::string& payload,
                                    WindowMessage* said) const {
  CodedInputStream input = InputOf(payload);
  std::string_view window;
  if (input.ReadTag() != LengthDelimitedTagOf(browser_id_) ||
      !ReadBytes(payload, input, &window) || !IsSerialisedId(window)) {
    return false;
  }
  const uint32_t tag = input.ReadTag();
  if (tag == LengthDelimitedTagOf(response_)) {
    std::string_view response;
    if (!ReadBytes(payload, input, &response)) {
      return false;
    }
    said->kind = Kind::kResponse;
  } else if (tag == TagOf(subscribe_, WireFormatLite::WIRETYPE_VARINT)) {
    uint32_t subscribe = 0;
    if (!input.ReadVarint32(&subscribe) || subscribe > 1) {
      return false;
    }
    said->kind = subscribe == 1 ? Kind::kSubscribe : Kind::kUnsubscribe;
  } else {
    return false;
  }
  said->window = window;
  return static_cast<size_t>(input.CurrentPosition()) == payload.size();
}

WindowMessage WindowMessageReader::ReadSubscription() const {
  const auto& subscription = static_cast<const EventSubscription&>(*scratch_);
  if (subscription.has_subscribe_to()) {
    return {Kind::kSubscribe, subscription.subscribe_to().SerializeAsString()};
  }
  if (subscription.has_unsubscribe_from()) {
    return {Kind::kUnsubscribe,
            subscription.unsubscribe_from().SerializeAsString()};
  }
  return {};
}

WindowMessage WindowMessageReader::ReadCallback() const {
  const google::protobuf::Reflection& fields = *scratch_->GetReflection();
  WindowMessage said;
  said.window = fields.GetMessage(*scratch_, browser_id_).SerializeAsString();
  if (fields.HasField(*scratch_, subscribe_)) {
    said.kind = fields.GetBool(*scratch_, subscribe_) ? Kind::kSubscribe
                                                      : Kind::kUnsubscribe;
  } else if (fields.HasField(*scratch_, response_)) {
    said.kind = Kind::kResponse;
  }
  return said;
}

std::string WindowMessageReader::WindowOfQuestion(
    const transport::StreamMessage& question) const {
  CodedInputStream input = InputOf(question.payload());
  while (const uint32_t tag = input.ReadTag()) {
    std::string_view window;
    if (tag == LengthDelimitedTagOf(browser_id_) &&
        ReadBytes(question.payload(), input, &window)) {
      return std::string(window);
    }
    if (!WireFormatLite::SkipField(&input, tag)) {
      break;
    }
  }
  return {};
}

}  // namespace rpc::serving
