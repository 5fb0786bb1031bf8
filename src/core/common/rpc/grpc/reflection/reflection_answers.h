// Answers the requests of gRPC's reflection, v1 and v1alpha, which have the
// same messages.
//
// It tells of the contract as gRPC clients need it
// (contract/derived_contract.h). Beside the services of the offer it lists
// reflection itself.
//
// Ownership: shared by the front and the calls that ask.
//
// Sequence: any, since nothing changes.
//
// Failure: Answer() for a request that does not parse. What a client asks for
// and is not there is an answer like any other.

#ifndef CORE_COMMON_RPC_GRPC_REFLECTION_REFLECTION_ANSWERS_H_
#define CORE_COMMON_RPC_GRPC_REFLECTION_REFLECTION_ANSWERS_H_

#include <google/protobuf/descriptor.h>

#include <string>
#include <string_view>
#include <vector>

#include "absl/status/statusor.h"
#include "core/common/rpc/grpc/offer.h"

namespace rpc::grpc {

class ReflectionAnswers {
 public:
  explicit ReflectionAnswers(const Offer& offer);
  ReflectionAnswers(const ReflectionAnswers&) = delete;
  ReflectionAnswers& operator=(const ReflectionAnswers&) = delete;
  ~ReflectionAnswers();

  // Both are serialised. INVALID_ARGUMENT when the request does not parse.
  absl::StatusOr<std::string> Answer(std::string_view request) const;

 private:
  // Adds the offer's files, as gRPC clients need them.
  void AddFiles(const google::protobuf::FileDescriptorSet& files);
  void AddFile(const google::protobuf::FileDescriptor& file);

  std::vector<std::string> services_;
  google::protobuf::DescriptorPool pool_;
};

}  // namespace rpc::grpc

#endif  // CORE_COMMON_RPC_GRPC_REFLECTION_REFLECTION_ANSWERS_H_
