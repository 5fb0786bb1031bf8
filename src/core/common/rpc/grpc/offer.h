// What a front tells clients who ask which services there are: by gRPC's
// reflection and by its health checks.

#ifndef CORE_COMMON_RPC_GRPC_OFFER_H_
#define CORE_COMMON_RPC_GRPC_OFFER_H_

#include <google/protobuf/descriptor.pb.h>

#include <string>
#include <vector>

namespace rpc::grpc {

struct Offer {
  // Full names: "rpc.BrowserWindow".
  std::vector<std::string> services;

  // The files that declare them, each after those that it imports, as the
  // services' own contracts have them. Services may be missing here; they are
  // listed, and not described.
  google::protobuf::FileDescriptorSet files;
};

}  // namespace rpc::grpc

#endif  // CORE_COMMON_RPC_GRPC_OFFER_H_
