#include "core/common/rpc/grpc/front/question_fields.h"

#include <google/protobuf/io/coded_stream.h>
#include <google/protobuf/wire_format_lite.h>

#include <algorithm>

namespace rpc::grpc {
namespace {

using google::protobuf::internal::WireFormatLite;
using google::protobuf::io::CodedInputStream;
using google::protobuf::io::CodedOutputStream;

constexpr uint32_t kCallIdTag =
    WireFormatLite::MakeTag(kCallIdField, WireFormatLite::WIRETYPE_VARINT);

// One field at the top of a message.
struct Field {
  uint32_t tag = 0;
  // With its tag.
  std::string_view bytes;
  // Of a varint.
  uint64_t number = 0;
  // Of a field with a length.
  std::string_view content;

  bool Is(int field_number, WireFormatLite::WireType type) const {
    return tag == WireFormatLite::MakeTag(field_number, type);
  }
};

// Goes through the fields at the top of a message.
class FieldReader {
 public:
  explicit FieldReader(std::string_view message)
      : message_(message),
        input_(reinterpret_cast<const uint8_t*>(message.data()),
               static_cast<int>(message.size())) {}

  // False at the end, and where the message is broken.
  bool Next(Field& field) {
    const int begin = input_.CurrentPosition();
    field = Field();
    field.tag = input_.ReadTag();
    if (field.tag == 0) {
      is_whole_ = input_.ConsumedEntireMessage();
      return false;
    }
    if (!ReadValue(field)) {
      return false;
    }
    field.bytes = message_.substr(begin, input_.CurrentPosition() - begin);
    return true;
  }

  // Whether the end of the message was reached. Valid when Next() has said
  // false.
  bool is_whole() const { return is_whole_; }

 private:
  bool ReadValue(Field& field) {
    switch (WireFormatLite::GetTagWireType(field.tag)) {
      case WireFormatLite::WIRETYPE_VARINT:
        return input_.ReadVarint64(&field.number);
      case WireFormatLite::WIRETYPE_LENGTH_DELIMITED: {
        uint32_t length = 0;
        if (!input_.ReadVarint32(&length)) {
          return false;
        }
        const size_t begin = static_cast<size_t>(input_.CurrentPosition());
        if (length > message_.size() - begin) {
          return false;
        }
        field.content = message_.substr(begin, length);
        return input_.Skip(static_cast<int>(length));
      }
      default:
        return WireFormatLite::SkipField(&input_, field.tag);
    }
  }

  const std::string_view message_;
  CodedInputStream input_;
  bool is_whole_ = false;
};

}  // namespace

void AppendCallId(int64_t call_id, std::string& message) {
  uint8_t field[11];
  uint8_t* end = CodedOutputStream::WriteTagToArray(kCallIdTag, field);
  end = CodedOutputStream::WriteVarint64ToArray(static_cast<uint64_t>(call_id),
                                                end);
  message.append(field, end);
}

QuestionFields TakeQuestionFields(std::string& message) {
  QuestionFields said;
  std::string rest;
  rest.reserve(message.size());
  FieldReader reader(message);
  Field field;
  while (reader.Next(field)) {
    if (field.Is(kCallIdField, WireFormatLite::WIRETYPE_VARINT)) {
      said.call_id = static_cast<int64_t>(field.number);
      continue;
    }
    if (field.Is(kDeclinedField, WireFormatLite::WIRETYPE_VARINT)) {
      said.declined = field.number != 0;
      continue;
    }
    rest.append(field.bytes);
    if (field.Is(kWindowField, WireFormatLite::WIRETYPE_LENGTH_DELIMITED)) {
      said.window = field.content;
    } else if (field.Is(kSubscribeField, WireFormatLite::WIRETYPE_VARINT)) {
      said.subscribe = field.number != 0;
      said.has_response = false;
    } else if (field.Is(kResponseField,
                        WireFormatLite::WIRETYPE_LENGTH_DELIMITED)) {
      said.has_response = true;
      said.subscribe.reset();
    }
  }
  if (!reader.is_whole()) {
    return {};
  }
  message = std::move(rest);
  return said;
}

std::string WindowOf(std::string_view message) {
  std::string_view window;
  FieldReader reader(message);
  Field field;
  while (reader.Next(field)) {
    if (field.Is(kWindowField, WireFormatLite::WIRETYPE_LENGTH_DELIMITED)) {
      window = field.content;
    }
  }
  return std::string(reader.is_whole() ? window : std::string_view());
}

}  // namespace rpc::grpc
