// The text of a proto file, changed into the contract for gRPC clients
// (derived_contract.h) without a change to anything else: comments and layout
// stay as their author has them.
//
// Ownership: values. Sequence: any.
//
// Failure: INVALID_ARGUMENT when a message of questions does not end on a line
// of its own, the option does not stand on lines of its own, or the text is not
// that of the file.

#ifndef CORE_COMMON_RPC_GRPC_CONTRACT_DERIVED_TEXT_H_
#define CORE_COMMON_RPC_GRPC_CONTRACT_DERIVED_TEXT_H_

#include <google/protobuf/descriptor.h>

#include <set>
#include <string>

#include "absl/status/statusor.h"

namespace rpc::grpc {

// `text` is what `file`, which knows where in it its parts stand, was parsed
// from. `derived` is the same file in the derived contract: the result is
// parsed and held against it.
absl::StatusOr<std::string> DeriveText(
    const std::string& text,
    const google::protobuf::FileDescriptor& file,
    const std::set<std::string>& question_types,
    const google::protobuf::FileDescriptor& derived);

}  // namespace rpc::grpc

#endif  // CORE_COMMON_RPC_GRPC_CONTRACT_DERIVED_TEXT_H_
