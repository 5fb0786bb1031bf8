#include "core/common/rpc/reflection/reflection_service.h"

#include <google/protobuf/descriptor.pb.h>

#include <set>
#include <string_view>
#include <utility>

#include "absl/status/status.h"
#include "absl/strings/escaping.h"
#include "absl/strings/str_cat.h"
#include "core/common/rpc/serving/call_context.h"

namespace rpc::reflection {
namespace {

using google::protobuf::FileDescriptor;
using google::protobuf::FileDescriptorSet;
using google::protobuf::ServiceDescriptor;

static_assert(ReflectionService::kMaxPartBytes == 4096,
              "server_reflection.proto says so");

// As much of a client's name for a service is repeated to it.
constexpr size_t kMaxShownBytes = 256;

// Adds the file after those that it imports, unless it is there already.
void AddFile(const FileDescriptor& file,
             std::set<const FileDescriptor*>& added,
             FileDescriptorSet& files) {
  if (!added.insert(&file).second) {
    return;
  }
  for (int i = 0; i < file.dependency_count(); ++i) {
    AddFile(*file.dependency(i), added, files);
  }
  file.CopyTo(files.add_file());
}

absl::Status NoService(std::string_view name) {
  return absl::NotFoundError(
      absl::StrCat("the server offers no service \"",
                   absl::CHexEscape(name.substr(0, kMaxShownBytes)), "\""));
}

}  // namespace

ReflectionService::ReflectionService(ListOffered list_offered)
    : list_offered_(std::move(list_offered)) {}

ReflectionService::~ReflectionService() = default;

void ReflectionService::ListServices(google::protobuf::RpcController*,
                                     const ListServicesRequest*,
                                     ServiceList* response,
                                     google::protobuf::Closure* done) {
  for (const ServiceDescriptor* service : list_offered_()) {
    response->add_services(service->full_name());
  }
  done->Run();
}

void ReflectionService::GetFiles(google::protobuf::RpcController* controller,
                                 const FilesRequest* request,
                                 FilesPart* response,
                                 google::protobuf::Closure* done) {
  const absl::StatusOr<const std::string*> files = FilesOf(request->service());
  if (!files.ok()) {
    serving::CallContext::Of(controller).Fail(files.status());
  } else if (request->offset() > (*files)->size()) {
    serving::CallContext::Of(controller)
        .Fail(absl::OutOfRangeError(
            absl::StrCat("the files have ", (*files)->size(),
                         " bytes, none at offset ", request->offset())));
  } else {
    response->set_total_bytes((*files)->size());
    response->set_bytes((*files)->substr(request->offset(), kMaxPartBytes));
  }
  done->Run();
}

absl::StatusOr<const std::string*> ReflectionService::FilesOf(
    const std::string& name) {
  Services offered = list_offered_();
  if (offered != offered_) {
    offered_ = std::move(offered);
    files_.clear();
  }
  if (const auto known = files_.find(name); known != files_.end()) {
    return &known->second;
  }
  std::set<const FileDescriptor*> added;
  FileDescriptorSet files;
  for (const ServiceDescriptor* service : offered_) {
    if (name.empty() || service->full_name() == name) {
      AddFile(*service->file(), added, files);
    }
  }
  if (files.file().empty() && !name.empty()) {
    return NoService(name);
  }
  return &files_.emplace(name, files.SerializeAsString()).first->second;
}

}  // namespace rpc::reflection
