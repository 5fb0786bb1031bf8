#include "tools/rpcctl/fields.h"

#include <google/protobuf/reflection.h>

#include <algorithm>
#include <cstdint>
#include <limits>
#include <set>

#include "absl/strings/ascii.h"
#include "absl/strings/match.h"
#include "absl/strings/numbers.h"
#include "absl/strings/str_cat.h"
#include "absl/strings/str_join.h"
#include "absl/strings/str_replace.h"
#include "absl/strings/str_split.h"
#include "tools/cli/nearest_name.h"
#include "tools/cli/printable.h"

namespace rpcctl {
namespace {

using google::protobuf::Descriptor;
using google::protobuf::EnumDescriptor;
using google::protobuf::EnumValueDescriptor;
using google::protobuf::FieldDescriptor;
using google::protobuf::Message;
using google::protobuf::OneofDescriptor;
using google::protobuf::Reflection;

bool IsNameCharacter(char c) {
  return absl::ascii_isalnum(static_cast<unsigned char>(c)) || c == '_' ||
         c == '.';
}

absl::StatusOr<const FieldDescriptor*> FindField(const Descriptor& type,
                                                 const std::string& name) {
  std::vector<std::string> known;
  for (int i = 0; i < type.field_count(); ++i) {
    const FieldDescriptor* field = type.field(i);
    if (field->name() == name || field->json_name() == name)
      return field;
    known.push_back(field->name());
  }
  return absl::InvalidArgumentError(absl::StrCat(
      type.full_name(), " has no field ", name, ".",
      cli::DidYouMean(name, known),
      known.empty()
          ? ""
          : absl::StrCat(" It has ", absl::StrJoin(known, ", "), ".")));
}

// How many letters all values' names begin with, up to an underscore.
size_t CommonPrefix(const EnumDescriptor& type) {
  std::string common = type.value(0)->name();
  for (int i = 1; i < type.value_count(); ++i) {
    const std::string& name = type.value(i)->name();
    const auto differ =
        std::mismatch(common.begin(), common.end(), name.begin(), name.end());
    common.erase(differ.first, common.end());
  }
  return type.value_count() == 1 ? 0 : common.rfind('_') + 1;
}

// Null if there is none of that name.
const EnumValueDescriptor* FindValue(const EnumDescriptor& type,
                                     const std::string& name) {
  for (int i = 0; i < type.value_count(); ++i) {
    const EnumValueDescriptor* value = type.value(i);
    if (value->name() == name || ShortName(*value) == name)
      return value;
  }
  return nullptr;
}

std::vector<std::string> ShortNames(const EnumDescriptor& type) {
  std::vector<std::string> names;
  names.reserve(static_cast<size_t>(type.value_count()));
  for (int i = 0; i < type.value_count(); ++i)
    names.push_back(ShortName(*type.value(i)));
  return names;
}

// What is wrong with a field's value; empty if it was set.
using Fault = std::string;

Fault IsNot(const std::string& value, std::string_view what) {
  return absl::StrCat("'", value, "' is not ", what);
}

// Sets a field of one message, or adds to it if it is repeated.
class Setter {
 public:
  Setter(Message* message, const FieldDescriptor* field)
      : message_(*message),
        reflection_(*message->GetReflection()),
        field_(field) {}

  Fault Set(const std::string& text) {
    switch (field_->cpp_type()) {
      case FieldDescriptor::CPPTYPE_INT32:
        return SetInteger(text, &Reflection::SetInt32, &Reflection::AddInt32);
      case FieldDescriptor::CPPTYPE_INT64:
        return SetInteger(text, &Reflection::SetInt64, &Reflection::AddInt64);
      case FieldDescriptor::CPPTYPE_UINT32:
        return SetInteger(text, &Reflection::SetUInt32, &Reflection::AddUInt32);
      case FieldDescriptor::CPPTYPE_UINT64:
        return SetInteger(text, &Reflection::SetUInt64, &Reflection::AddUInt64);
      case FieldDescriptor::CPPTYPE_DOUBLE:
        return SetDouble(text);
      case FieldDescriptor::CPPTYPE_FLOAT:
        return SetFloat(text);
      case FieldDescriptor::CPPTYPE_BOOL:
        return SetBool(text);
      case FieldDescriptor::CPPTYPE_ENUM:
        return SetEnum(text);
      case FieldDescriptor::CPPTYPE_STRING:
        return SetText(text);
      case FieldDescriptor::CPPTYPE_MESSAGE:
        return SetMessage();
    }
    return "the field's type is not known";
  }

 private:
  template <typename Value, typename Stored>
  void Store(const Value& value,
             void (Reflection::*set)(Message*, const FieldDescriptor*, Stored)
                 const,
             void (Reflection::*add)(Message*, const FieldDescriptor*, Stored)
                 const) {
    (reflection_.*(field_->is_repeated() ? add : set))(&message_, field_,
                                                       value);
  }

  template <typename Integer>
  Fault SetInteger(
      const std::string& text,
      void (Reflection::*set)(Message*, const FieldDescriptor*, Integer) const,
      void (Reflection::*add)(Message*, const FieldDescriptor*, Integer)
          const) {
    Integer value;
    if (!absl::SimpleAtoi(text, &value)) {
      return IsNot(text,
                   absl::StrCat("a whole number from ",
                                std::numeric_limits<Integer>::min(), " to ",
                                std::numeric_limits<Integer>::max()));
    }
    Store(value, set, add);
    return "";
  }

  Fault SetDouble(const std::string& text) {
    double value;
    if (!absl::SimpleAtod(text, &value))
      return IsNot(text, "a number");
    Store(value, &Reflection::SetDouble, &Reflection::AddDouble);
    return "";
  }

  Fault SetFloat(const std::string& text) {
    float value;
    if (!absl::SimpleAtof(text, &value))
      return IsNot(text, "a number");
    Store(value, &Reflection::SetFloat, &Reflection::AddFloat);
    return "";
  }

  Fault SetBool(const std::string& text) {
    if (text != "true" && text != "false")
      return IsNot(text, "true or false");
    Store(text == "true", &Reflection::SetBool, &Reflection::AddBool);
    return "";
  }

  Fault SetEnum(const std::string& text) {
    const EnumDescriptor& type = *field_->enum_type();
    const EnumValueDescriptor* value = FindValue(type, text);
    if (value == nullptr) {
      const std::vector<std::string> names = ShortNames(type);
      const std::string advice = cli::DidYouMean(text, names);
      return absl::StrCat(
          IsNot(text, absl::StrCat("one of ", absl::StrJoin(names, ", "))),
          advice.empty() ? "" : ".", advice);
    }
    Store(value, &Reflection::SetEnum, &Reflection::AddEnum);
    return "";
  }

  Fault SetText(const std::string& text) {
    if (field_->type() == FieldDescriptor::TYPE_STRING && !cli::IsUtf8(text))
      return IsNot(text, "valid UTF-8");
    Store(text, &Reflection::SetString, &Reflection::AddString);
    return "";
  }

  Fault SetMessage() const {
    const Descriptor& type = *field_->message_type();
    if (field_->is_repeated() || type.field_count() == 0)
      return "it can be written in JSON only";
    return absl::StrCat("it is a message: set its fields, such as ",
                        field_->name(), ".", type.field(0)->name());
  }

  Message& message_;
  const Reflection& reflection_;
  const FieldDescriptor* const field_;
};

// The member of the same oneof that is set already; null if there is none.
const FieldDescriptor* FindRival(const Message& message,
                                 const FieldDescriptor& field) {
  const OneofDescriptor* oneof = field.real_containing_oneof();
  if (oneof == nullptr)
    return nullptr;
  const FieldDescriptor* set =
      message.GetReflection()->GetOneofFieldDescriptor(message, oneof);
  return set == &field ? nullptr : set;
}

absl::Status AtField(std::string_view path, std::string_view fault) {
  return absl::InvalidArgumentError(
      absl::StrCat(path, ": ", fault, absl::EndsWith(fault, "?") ? "" : "."));
}

// Sets one field. `taken` has the fields that are set already.
absl::Status SetField(const std::string& path,
                      const std::string& value,
                      Message* message,
                      std::set<std::string>& taken) {
  const std::vector<std::string> names = absl::StrSplit(path, '.');
  std::string walked;
  for (size_t i = 0;; ++i) {
    const auto found = FindField(*message->GetDescriptor(), names[i]);
    if (!found.ok())
      return found.status();
    const FieldDescriptor* field = *found;
    absl::StrAppend(&walked, i == 0 ? "" : ".", field->name());
    if (const FieldDescriptor* rival = FindRival(*message, *field)) {
      return AtField(walked, absl::StrCat("it excludes ", rival->name(),
                                          ", which is set, too"));
    }
    if (i + 1 == names.size()) {
      if (!field->is_repeated() && !taken.insert(walked).second)
        return AtField(walked, "it is set twice");
      const Fault fault = Setter(message, field).Set(value);
      return fault.empty() ? absl::OkStatus() : AtField(walked, fault);
    }
    if (field->cpp_type() != FieldDescriptor::CPPTYPE_MESSAGE)
      return AtField(walked, "it has no fields");
    if (field->is_repeated())
      return AtField(walked, "it can be written in JSON only");
    message = message->GetReflection()->MutableMessage(message, field);
  }
}

}  // namespace

bool IsFieldWord(std::string_view word) {
  const auto end = std::find_if_not(word.begin(), word.end(), IsNameCharacter);
  return end != word.begin() && end != word.end() && *end == '=' &&
         !absl::ascii_isdigit(static_cast<unsigned char>(word.front()));
}

absl::Status SetFields(const std::vector<std::string>& words,
                       Message* message) {
  std::set<std::string> taken;
  for (const std::string& word : words) {
    if (!IsFieldWord(word)) {
      return absl::InvalidArgumentError(
          absl::StrCat("'", word, "' is no FIELD=VALUE."));
    }
    const size_t equals = word.find('=');
    if (absl::Status status = SetField(word.substr(0, equals),
                                       word.substr(equals + 1), message, taken);
        !status.ok()) {
      return status;
    }
  }
  return absl::OkStatus();
}

std::string ShortName(const EnumValueDescriptor& value) {
  return absl::StrReplaceAll(
      absl::AsciiStrToLower(value.name().substr(CommonPrefix(*value.type()))),
      {{"_", "-"}});
}

}  // namespace rpcctl
