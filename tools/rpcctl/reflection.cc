#include "tools/rpcctl/reflection.h"

#include <google/protobuf/descriptor.pb.h>

#include "absl/status/status.h"
#include "absl/strings/str_cat.h"
#include "rpc/reflection/server_reflection.pb.h"
#include "tools/rpcctl/session.h"

namespace rpcctl {
namespace {

using google::protobuf::FileDescriptorSet;
using google::protobuf::Message;
using rpc::reflection::FilesPart;
using rpc::reflection::FilesRequest;
using rpc::reflection::ListServicesRequest;
using rpc::reflection::ServerReflection;
using rpc::reflection::ServiceList;

absl::Status Ask(Session& session,
                 const char* method,
                 const Message& request,
                 Message* response) {
  absl::Status status =
      session.Call(ServerReflection::descriptor()->FindMethodByName(method),
                   request, response);
  if (absl::IsUnimplemented(status)) {
    return absl::UnimplementedError(
        "the server offers no reflection: it does not say what its services "
        "look like");
  }
  return status;
}

// What is wrong with a part that follows on `bytes`; `total_bytes` is what the
// parts before have announced, 0 for the first.
absl::Status CheckPart(const FilesPart& part,
                       const std::string& bytes,
                       uint64_t total_bytes) {
  if (part.total_bytes() > kMaxFilesBytes) {
    return absl::ResourceExhaustedError(
        absl::StrCat("the server's files have ", part.total_bytes(),
                     " bytes, more than ", kMaxFilesBytes));
  }
  const bool is_first = bytes.empty();
  const uint64_t missing = part.total_bytes() - bytes.size();
  if ((!is_first && part.total_bytes() != total_bytes) ||
      part.bytes().empty() != (missing == 0) || part.bytes().size() > missing) {
    return absl::InternalError(
        "the server's files have not as many bytes as it says");
  }
  return absl::OkStatus();
}

absl::StatusOr<FileDescriptorSet> FetchFiles(Session& session) {
  FilesRequest request;
  FilesPart part;
  std::string bytes;
  uint64_t total_bytes = 0;
  do {
    request.set_offset(bytes.size());
    absl::Status status = Ask(session, "GetFiles", request, &part);
    if (status.ok())
      status = CheckPart(part, bytes, total_bytes);
    if (!status.ok())
      return status;
    total_bytes = part.total_bytes();
    bytes += part.bytes();
  } while (bytes.size() < total_bytes);
  FileDescriptorSet files;
  if (!files.ParseFromString(bytes))
    return absl::InternalError("the server's files do not parse");
  return files;
}

}  // namespace

absl::StatusOr<std::vector<std::string>> FetchServices(Session& session) {
  ServiceList list;
  if (absl::Status status =
          Ask(session, "ListServices", ListServicesRequest(), &list);
      !status.ok()) {
    return status;
  }
  return std::vector<std::string>(list.services().begin(),
                                  list.services().end());
}

absl::StatusOr<std::unique_ptr<RemoteContract>> FetchContract(
    Session& session) {
  const auto services = FetchServices(session);
  if (!services.ok())
    return services.status();
  const auto files = FetchFiles(session);
  if (!files.ok())
    return files.status();
  return RemoteContract::Build(*files, *services);
}

}  // namespace rpcctl
