// A service that tells clients which services a server offers, and how their
// methods and messages are declared, so that clients can use them that were
// built without their proto files.
//
//   rpc::reflection::ReflectionService reflection_{
//       [this] { return server_.Services(); }};
//   rpc::transport::Server server_{loop};    // a later member: it goes first
//   ...
//   server_.AddService(&reflection_);
//
// Every client that may connect may ask. What it is told is described in
// rpc/reflection/server_reflection.proto.
//
// Ownership: the caller's. Like any service it must outlive the server. The
// function that it is given refers to the server, but is called only while the
// server runs. Descriptors belong to their pools, which outlive the service.
//
// Sequence: that of the server.
//
// Failure: a call fails with a status of the proto file.

#ifndef CORE_COMMON_RPC_REFLECTION_REFLECTION_SERVICE_H_
#define CORE_COMMON_RPC_REFLECTION_REFLECTION_SERVICE_H_

#include <google/protobuf/descriptor.h>

#include <cstddef>
#include <functional>
#include <map>
#include <string>
#include <vector>

#include "absl/status/statusor.h"
#include "core/common/rpc/serving/limits.h"
#include "rpc/reflection/server_reflection.rpc.h"

namespace rpc::reflection {

class ReflectionService final : public ServerReflectionRpc {
 public:
  using Services = std::vector<const google::protobuf::ServiceDescriptor*>;
  using ListOffered = std::function<Services()>;

  // The longest part of files in one reply. It leaves room for the rest of the
  // frame to a client that takes the shortest frames that are allowed.
  static constexpr size_t kMaxPartBytes = serving::kMinFrameBytes / 2;

  // `list_offered` is called for each request.
  explicit ReflectionService(ListOffered list_offered);
  ~ReflectionService() override;

  // ServerReflectionRpc:
  void ListServices(google::protobuf::RpcController* controller,
                    const ListServicesRequest* request,
                    ServiceList* response,
                    google::protobuf::Closure* done) override;
  void GetFiles(google::protobuf::RpcController* controller,
                const FilesRequest* request,
                FilesPart* response,
                google::protobuf::Closure* done) override;

 private:
  // A serialised FileDescriptorSet of the service of that name, or of all.
  absl::StatusOr<const std::string*> FilesOf(const std::string& name);

  const ListOffered list_offered_;
  // The services that `files_` is about.
  Services offered_;
  // What has been asked for, by the name of the service. Kept, since every part
  // would otherwise cost the work for the whole.
  std::map<std::string, std::string> files_;
};

}  // namespace rpc::reflection

#endif  // CORE_COMMON_RPC_REFLECTION_REFLECTION_SERVICE_H_
