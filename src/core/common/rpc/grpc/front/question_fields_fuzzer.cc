// Takes the two fields out of any bytes, and holds what is read against what
// protobuf reads.

#include "core/common/rpc/grpc/front/question_fields.h"

#include <google/protobuf/unknown_field_set.h>

#include <cstdint>
#include <optional>
#include <string>

#include "core/common/rpc/testing/fuzzer.h"

namespace rpc::grpc {
namespace {

using google::protobuf::UnknownField;
using google::protobuf::UnknownFieldSet;

bool IsAdded(const UnknownField& field) {
  return field.type() == UnknownField::TYPE_VARINT &&
         (field.number() == kCallIdField || field.number() == kDeclinedField);
}

// What protobuf finds, and what is left when the two fields are gone.
struct Reference {
  explicit Reference(const UnknownFieldSet& fields) {
    for (int i = 0; i < fields.field_count(); ++i) {
      const UnknownField& field = fields.field(i);
      if (!IsAdded(field)) {
        rest.AddField(field);
      } else if (field.number() == kCallIdField) {
        call_id = static_cast<int64_t>(field.varint());
      } else {
        declined = field.varint() != 0;
      }
      if (field.type() == UnknownField::TYPE_LENGTH_DELIMITED &&
          field.number() == kWindowField) {
        window = field.length_delimited();
      }
    }
  }

  std::optional<int64_t> call_id;
  bool declined = false;
  std::string window;
  UnknownFieldSet rest;
};

std::string Canonical(const UnknownFieldSet& fields) {
  std::string bytes;
  fields.SerializeToString(&bytes);
  return bytes;
}

void Fuzz(const std::string& input) {
  UnknownFieldSet fields;
  const bool parses = fields.ParseFromString(input);
  std::string message = input;
  const QuestionFields said = TakeQuestionFields(message);
  if (!parses) {
    return;  // Whoever gets it refuses it.
  }
  const Reference reference(fields);
  EXPECT_EQ(said.call_id, reference.call_id);
  EXPECT_EQ(said.declined, reference.declined);
  EXPECT_EQ(said.window, reference.window);
  EXPECT_EQ(WindowOf(input), reference.window);
  UnknownFieldSet rest;
  ASSERT_TRUE(rest.ParseFromString(message));
  EXPECT_EQ(Canonical(rest), Canonical(reference.rest));

  // Nothing is found twice, and what is appended is found.
  std::string again = message;
  EXPECT_FALSE(TakeQuestionFields(again).call_id);
  EXPECT_EQ(again, message);
  AppendCallId(-7, again);
  EXPECT_EQ(TakeQuestionFields(again).call_id, -7);
  EXPECT_EQ(again, message);
}

}  // namespace
}  // namespace rpc::grpc

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  rpc::grpc::Fuzz(std::string(reinterpret_cast<const char*>(data), size));
  return 0;
}
