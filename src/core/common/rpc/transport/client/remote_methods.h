// The methods that the server offers on one connection: maps a method of this
// program's contract to the id that the server has given it.
//
// Methods are matched by name and kind, never by their index: client and server
// may be built from different versions of the contract, and must not reach a
// wrong method. A server of an older version says of a stream only that it is
// one.
//
// Ownership: the client's. Descriptors live as long as the process.
//
// Sequence: the client's.
//
// Failure: Find() says what the server lacks.

#ifndef CORE_COMMON_RPC_TRANSPORT_CLIENT_REMOTE_METHODS_H_
#define CORE_COMMON_RPC_TRANSPORT_CLIENT_REMOTE_METHODS_H_

#include <google/protobuf/descriptor.h>

#include <cstdint>
#include <string_view>
#include <utility>

#include "absl/container/flat_hash_map.h"
#include "absl/status/statusor.h"
#include "rpc/transport/frame.pb.h"

namespace rpc::transport {

class RemoteMethods {
 public:
  // From the server's welcome.
  void Set(google::protobuf::RepeatedPtrField<OfferedService> offer) {
    offer_ = std::move(offer);
  }

  // The id of `method`, or UNIMPLEMENTED with a text that names it.
  absl::StatusOr<uint64_t> Find(
      const google::protobuf::MethodDescriptor* method);

  // What the server offers under these names, of whatever kind, or
  // UNIMPLEMENTED with a text that names it. Lives as long as this.
  absl::StatusOr<const OfferedMethod*> FindByName(
      std::string_view service,
      std::string_view method) const;

 private:
  absl::StatusOr<uint64_t> Match(
      const google::protobuf::MethodDescriptor& method) const;

  google::protobuf::RepeatedPtrField<OfferedService> offer_;
  // Those that have been asked for.
  absl::flat_hash_map<const google::protobuf::MethodDescriptor*,
                      absl::StatusOr<uint64_t>>
      known_;
};

}  // namespace rpc::transport

#endif  // CORE_COMMON_RPC_TRANSPORT_CLIENT_REMOTE_METHODS_H_
