// The services of a server, made of the proto files that it has sent, with
// messages that can be used without having been compiled in.
//
// The files are anybody's. What Protocol Buffers itself treats in its own way,
// everything named google.protobuf, is therefore taken from this program, and a
// file that declares something under that name is refused.
//
// Ownership: the caller's. A Contract refers to it, and so do its messages:
// they must be gone before it is.
//
// Sequence: any one.
//
// Failure: INVALID_ARGUMENT with a text that quotes the files, to be printed
// with escapes.

#ifndef TOOLS_RPCCTL_REMOTE_CONTRACT_H_
#define TOOLS_RPCCTL_REMOTE_CONTRACT_H_

#include <google/protobuf/descriptor.h>
#include <google/protobuf/descriptor.pb.h>
#include <google/protobuf/dynamic_message.h>
#include <google/protobuf/message.h>

#include <memory>
#include <string>
#include <vector>

#include "absl/status/status.h"
#include "absl/status/statusor.h"

namespace rpcctl {

// What commands go by, wherever it comes from.
struct Contract {
  std::vector<const google::protobuf::ServiceDescriptor*> services;
  const google::protobuf::DescriptorPool* pool = nullptr;
  google::protobuf::MessageFactory* messages = nullptr;
};

class RemoteContract {
 public:
  // `files` holds each file once, after those that it imports, and `services`
  // the full names of services that they declare.
  static absl::StatusOr<std::unique_ptr<RemoteContract>> Build(
      const google::protobuf::FileDescriptorSet& files,
      const std::vector<std::string>& services);
  RemoteContract(const RemoteContract&) = delete;
  RemoteContract& operator=(const RemoteContract&) = delete;

  Contract contract() { return {services_, &pool_, &messages_}; }

 private:
  RemoteContract();

  absl::Status AddFile(const google::protobuf::FileDescriptorProto& file);
  absl::Status AddService(const std::string& name);

  google::protobuf::DescriptorPool pool_;
  google::protobuf::DynamicMessageFactory messages_;
  std::vector<const google::protobuf::ServiceDescriptor*> services_;
};

}  // namespace rpcctl

#endif  // TOOLS_RPCCTL_REMOTE_CONTRACT_H_
