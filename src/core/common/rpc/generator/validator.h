// Finds what service code can't be made of.
//
// Output that does not compile would send the author of a proto file into
// generated C++ for the reason; he is told here instead, at the declaration.

#ifndef CORE_COMMON_RPC_GENERATOR_VALIDATOR_H_
#define CORE_COMMON_RPC_GENERATOR_VALIDATOR_H_

#include <google/protobuf/descriptor.h>

#include <string>
#include <vector>

namespace torvane::generator {

// One line "file:line:column: message" for each fault of `file` in the order of
// declaration, none when code can be generated. Lines and columns count from 1;
// they are left out where the descriptor carries no source positions.
std::vector<std::string> Validate(const google::protobuf::FileDescriptor& file);

}  // namespace torvane::generator

#endif  // CORE_COMMON_RPC_GENERATOR_VALIDATOR_H_
