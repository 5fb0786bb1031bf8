#include "core/common/rpc/grpc/contract/derived_contract.h"

#include <algorithm>

#include "absl/strings/str_cat.h"
#include "core/common/rpc/grpc/front/question_fields.h"
#include "core/common/rpc/stream/method_kind.h"

namespace rpc::grpc {
namespace {

using google::protobuf::Descriptor;
using google::protobuf::DescriptorPool;
using google::protobuf::DescriptorProto;
using google::protobuf::FieldDescriptorProto;
using google::protobuf::FileDescriptor;
using google::protobuf::FileDescriptorProto;

absl::Status CheckFree(const Descriptor& message, const AddedField& field) {
  if (message.FindFieldByName(field.name) == nullptr &&
      message.FindFieldByNumber(field.number) == nullptr &&
      !message.IsReservedNumber(field.number) &&
      !message.IsReservedName(field.name)) {
    return absl::OkStatus();
  }
  return absl::InvalidArgumentError(absl::StrCat(
      message.full_name(), " has a field ", field.name, " or one of number ",
      field.number, " already: gRPC clients need both for the questions"));
}

void Add(const AddedField& added, DescriptorProto& message) {
  FieldDescriptorProto& field = *message.add_field();
  field.set_name(added.name);
  field.set_number(added.number);
  field.set_label(FieldDescriptorProto::LABEL_OPTIONAL);
  field.set_type(added.type);
}

class Builder {
 public:
  Builder(const std::vector<const FileDescriptor*>& files, DescriptorPool& pool)
      : files_(files), question_types_(QuestionTypes(files)), pool_(pool) {}

  absl::Status Build(const FileDescriptor& file) {
    if (pool_.FindFileByName(file.name()) != nullptr) {
      return absl::OkStatus();
    }
    for (int i = 0; i < file.dependency_count(); ++i) {
      absl::Status status = Build(*file.dependency(i));
      if (!status.ok()) {
        return status;
      }
    }
    FileDescriptorProto proto;
    file.CopyTo(&proto);
    if (std::ranges::find(files_, &file) != files_.end()) {
      absl::Status status = Derive(file, proto);
      if (!status.ok()) {
        return status;
      }
    }
    return pool_.BuildFile(proto) != nullptr
               ? absl::OkStatus()
               : absl::InternalError(
                     absl::StrCat("cannot build ", file.name()));
  }

 private:
  absl::Status Derive(const FileDescriptor& file,
                      FileDescriptorProto& proto) const {
    if (proto.has_options()) {
      proto.mutable_options()->clear_cc_generic_services();
    }
    if (proto.options().ByteSizeLong() == 0) {
      proto.clear_options();
    }
    for (int i = 0; i < file.message_type_count(); ++i) {
      absl::Status status =
          Derive(*file.message_type(i), *proto.mutable_message_type(i));
      if (!status.ok()) {
        return status;
      }
    }
    return absl::OkStatus();
  }

  // Also the messages within it.
  absl::Status Derive(const Descriptor& message, DescriptorProto& proto) const {
    if (question_types_.contains(message.full_name())) {
      for (const AddedField& field : AddedFields()) {
        absl::Status status = CheckFree(message, field);
        if (!status.ok()) {
          return status;
        }
        Add(field, proto);
      }
    }
    for (int i = 0; i < message.nested_type_count(); ++i) {
      absl::Status status =
          Derive(*message.nested_type(i), *proto.mutable_nested_type(i));
      if (!status.ok()) {
        return status;
      }
    }
    return absl::OkStatus();
  }

  const std::vector<const FileDescriptor*>& files_;
  const std::set<std::string> question_types_;
  DescriptorPool& pool_;
};

}  // namespace

const std::vector<AddedField>& AddedFields() {
  static const auto* const fields = new std::vector<AddedField>{
      {"declined",
       kDeclinedField,
       FieldDescriptorProto::TYPE_BOOL,
       {"From the client, in place of a response: there will be no answer to",
        "the question."}},
      {"call_id",
       kCallIdField,
       FieldDescriptorProto::TYPE_INT64,
       {"Which question this is. An answer repeats it; it may leave it out",
        "while no other question about the same window waits."}},
  };
  return *fields;
}

std::set<std::string> QuestionTypes(
    const std::vector<const FileDescriptor*>& files) {
  std::set<std::string> types;
  for (const FileDescriptor* file : files) {
    for (int s = 0; s < file->service_count(); ++s) {
      for (int m = 0; m < file->service(s)->method_count(); ++m) {
        const auto& method = *file->service(s)->method(m);
        if (torvane::KindOf(method) == torvane::MethodKind::kCallbackStream) {
          types.insert(method.output_type()->full_name());
        }
      }
    }
  }
  return types;
}

absl::Status BuildDerivedContract(
    const std::vector<const FileDescriptor*>& files,
    DescriptorPool& pool) {
  Builder builder(files, pool);
  for (const FileDescriptor* file : files) {
    absl::Status status = builder.Build(*file);
    if (!status.ok()) {
      return status;
    }
  }
  return absl::OkStatus();
}

}  // namespace rpc::grpc
