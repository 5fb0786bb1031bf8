// The contract as gRPC clients need it. It differs from the original in two
// things, and has the same package and names:
//
//   - `cc_generic_services` is off: gRPC's generator for C++ refuses files that
//     have it on
//   - the messages of questions have two fields more, `declined` and `call_id`
//     (front/question_fields.h), beside their oneof
//
// protoc-gen-grpc-contract makes files of it at build time; reflection makes
// descriptors of it.
//
// Ownership: the pool is the caller's. Sequence: any.
//
// Failure: INVALID_ARGUMENT when a message has one of the two numbers or names
// already; the pool is of no use then.

#ifndef CORE_COMMON_RPC_GRPC_CONTRACT_DERIVED_CONTRACT_H_
#define CORE_COMMON_RPC_GRPC_CONTRACT_DERIVED_CONTRACT_H_

#include <google/protobuf/descriptor.h>
#include <google/protobuf/descriptor.pb.h>

#include <set>
#include <string>
#include <vector>

#include "absl/status/status.h"

namespace rpc::grpc {

// A field that the messages of questions get.
struct AddedField {
  const char* name;
  int number;
  google::protobuf::FieldDescriptorProto::Type type;
  // What it means, as lines.
  std::vector<std::string> comment;
};
const std::vector<AddedField>& AddedFields();

// The full names of the messages that the files' methods ask questions with.
std::set<std::string> QuestionTypes(
    const std::vector<const google::protobuf::FileDescriptor*>& files);

// Builds in `pool`, which is empty, each of `files` as gRPC clients need it,
// and what they import besides as it is. The files are those of one contract:
// one may have the methods and another the messages that they ask with.
absl::Status BuildDerivedContract(
    const std::vector<const google::protobuf::FileDescriptor*>& files,
    google::protobuf::DescriptorPool& pool);

}  // namespace rpc::grpc

#endif  // CORE_COMMON_RPC_GRPC_CONTRACT_DERIVED_CONTRACT_H_
