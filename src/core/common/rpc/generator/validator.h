// Finds everything in a proto file that service code cannot be generated for.
//
// Without this, generated code would not compile, and the author of the proto
// file would have to find the reason in it. Instead the fault is reported at
// the declaration that causes it.
//
// Ownership: none. Sequence: any.

#ifndef CORE_COMMON_RPC_GENERATOR_VALIDATOR_H_
#define CORE_COMMON_RPC_GENERATOR_VALIDATOR_H_

#include <google/protobuf/descriptor.h>

#include <string>
#include <vector>

namespace torvane::generator {

// One line "file:line:column: message" for each fault of `file` in the order of
// declaration; empty when code can be generated. Lines and columns count from
// 1, and are left out when the descriptor has no source positions.
std::vector<std::string> Validate(const google::protobuf::FileDescriptor& file);

}  // namespace torvane::generator

#endif  // CORE_COMMON_RPC_GENERATOR_VALIDATOR_H_
