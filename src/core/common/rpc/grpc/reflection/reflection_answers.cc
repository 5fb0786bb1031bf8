#include "core/common/rpc/grpc/reflection/reflection_answers.h"

#include <set>
#include <utility>

#include "absl/status/status.h"
#include "absl/strings/str_cat.h"
#include "base/logging.h"
#include "core/common/rpc/grpc/contract/derived_contract.h"
#include "grpc/reflection/v1/reflection.pb.h"
#include "grpc/reflection/v1alpha/reflection.pb.h"

namespace rpc::grpc {
namespace {

using google::protobuf::Descriptor;
using google::protobuf::DescriptorPool;
using google::protobuf::FieldDescriptor;
using google::protobuf::FileDescriptor;
using google::protobuf::FileDescriptorProto;
using google::protobuf::FileDescriptorSet;
using ::grpc::reflection::v1::ErrorResponse;
using ::grpc::reflection::v1::ExtensionNumberResponse;
using ::grpc::reflection::v1::FileDescriptorResponse;
using ::grpc::reflection::v1::ServerReflectionRequest;
using ::grpc::reflection::v1::ServerReflectionResponse;

const FileDescriptor* ReflectionFiles(bool alpha) {
  return alpha ? ::grpc::reflection::v1alpha::ServerReflectionRequest::
                     descriptor()
                         ->file()
               : ServerReflectionRequest::descriptor()->file();
}

// A pool whose mistakes go to the log, as lines of warning.
class LoggedErrors final : public DescriptorPool::ErrorCollector {
  void AddError(const std::string& file,
                const std::string& element,
                const google::protobuf::Message*,
                ErrorLocation,
                const std::string& text) override {
    LOG(WARNING) << "Reflection leaves out " << file << ": " << element << ": "
                 << text;
  }
};

void AddWithImports(const FileDescriptor& file,
                    std::set<const FileDescriptor*>& added,
                    FileDescriptorResponse& response) {
  if (!added.insert(&file).second) {
    return;
  }
  FileDescriptorProto proto;
  file.CopyTo(&proto);
  proto.SerializeToString(response.add_file_descriptor_proto());
  for (int i = 0; i < file.dependency_count(); ++i) {
    AddWithImports(*file.dependency(i), added, response);
  }
}

void AnswerFile(const FileDescriptor* file,
                const std::string& what,
                ServerReflectionResponse& response) {
  if (file == nullptr) {
    ErrorResponse& error = *response.mutable_error_response();
    error.set_error_code(static_cast<int>(absl::StatusCode::kNotFound));
    error.set_error_message(absl::StrCat("there is no ", what));
    return;
  }
  std::set<const FileDescriptor*> added;
  AddWithImports(*file, added, *response.mutable_file_descriptor_response());
}

const FileDescriptor* FileOfExtension(const DescriptorPool& pool,
                                      const std::string& type,
                                      int number) {
  const Descriptor* const message = pool.FindMessageTypeByName(type);
  const FieldDescriptor* const extension =
      message == nullptr ? nullptr
                         : pool.FindExtensionByNumber(message, number);
  return extension == nullptr ? nullptr : extension->file();
}

void AnswerExtensions(const DescriptorPool& pool,
                      const std::string& type,
                      ServerReflectionResponse& response) {
  const Descriptor* const message = pool.FindMessageTypeByName(type);
  if (message == nullptr) {
    AnswerFile(nullptr, absl::StrCat("message ", type), response);
    return;
  }
  std::vector<const FieldDescriptor*> extensions;
  pool.FindAllExtensions(message, &extensions);
  ExtensionNumberResponse& answer =
      *response.mutable_all_extension_numbers_response();
  answer.set_base_type_name(type);
  for (const FieldDescriptor* extension : extensions) {
    answer.add_extension_number(extension->number());
  }
}

}  // namespace

ReflectionAnswers::ReflectionAnswers(const Offer& offer)
    : services_(offer.services) {
  AddFiles(offer.files);
  for (const bool alpha : {false, true}) {
    const FileDescriptor& file = *ReflectionFiles(alpha);
    services_.push_back(file.service(0)->full_name());
    AddFile(file);
  }
}

ReflectionAnswers::~ReflectionAnswers() = default;

void ReflectionAnswers::AddFiles(const FileDescriptorSet& files) {
  LoggedErrors errors;
  DescriptorPool originals;
  std::vector<const FileDescriptor*> built;
  for (const FileDescriptorProto& file : files.file()) {
    if (const FileDescriptor* const original =
            originals.BuildFileCollectingErrors(file, &errors)) {
      built.push_back(original);
    }
  }
  const absl::Status derived = BuildDerivedContract(built, pool_);
  if (!derived.ok()) {
    LOG(WARNING) << "Reflection leaves files out: " << derived;
  }
}

void ReflectionAnswers::AddFile(const FileDescriptor& file) {
  FileDescriptorProto proto;
  file.CopyTo(&proto);
  LoggedErrors errors;
  pool_.BuildFileCollectingErrors(proto, &errors);
}

absl::StatusOr<std::string> ReflectionAnswers::Answer(
    std::string_view request_bytes) const {
  ServerReflectionRequest request;
  if (!request.ParseFromArray(request_bytes.data(),
                              static_cast<int>(request_bytes.size()))) {
    return absl::InvalidArgumentError("the reflection request does not parse");
  }
  ServerReflectionResponse response;
  response.set_valid_host(request.host());
  *response.mutable_original_request() = request;
  switch (request.message_request_case()) {
    case ServerReflectionRequest::kFileByFilename:
      AnswerFile(pool_.FindFileByName(request.file_by_filename()),
                 absl::StrCat("file ", request.file_by_filename()), response);
      break;
    case ServerReflectionRequest::kFileContainingSymbol:
      AnswerFile(
          pool_.FindFileContainingSymbol(request.file_containing_symbol()),
          absl::StrCat("symbol ", request.file_containing_symbol()), response);
      break;
    case ServerReflectionRequest::kFileContainingExtension: {
      const auto& extension = request.file_containing_extension();
      AnswerFile(FileOfExtension(pool_, extension.containing_type(),
                                 extension.extension_number()),
                 absl::StrCat("extension ", extension.extension_number(),
                              " of ", extension.containing_type()),
                 response);
      break;
    }
    case ServerReflectionRequest::kAllExtensionNumbersOfType:
      AnswerExtensions(pool_, request.all_extension_numbers_of_type(),
                       response);
      break;
    case ServerReflectionRequest::kListServices:
      response.mutable_list_services_response();
      for (const std::string& service : services_) {
        response.mutable_list_services_response()->add_service()->set_name(
            service);
      }
      break;
    case ServerReflectionRequest::MESSAGE_REQUEST_NOT_SET: {
      ErrorResponse& error = *response.mutable_error_response();
      error.set_error_code(
          static_cast<int>(absl::StatusCode::kInvalidArgument));
      error.set_error_message("the request asks for nothing");
      break;
    }
  }
  return response.SerializeAsString();
}

}  // namespace rpc::grpc
