// The protoc plugin's generator: service base classes beside message code.
//
//   protoc --cpp_out=gen --plugin=protoc-gen-rpc --rpc_out=gen foo/bar.proto
//
// writes gen/foo/bar.rpc.h and gen/foo/bar.rpc.cc with a class for each service
// that the file declares. A file without services gets both files too, without
// a class, so that a build knows the outputs beforehand. The code includes
// headers of the stream framework and of the message code of the same file.
//
// The output depends on the descriptors alone. There are no parameters.
//
// Ownership: none. Sequence: any one at a time. Failure: an error text.

#ifndef CORE_COMMON_RPC_GENERATOR_RPC_GENERATOR_H_
#define CORE_COMMON_RPC_GENERATOR_RPC_GENERATOR_H_

#include <google/protobuf/compiler/code_generator.h>

#include <cstdint>
#include <string>
#include <vector>

namespace torvane::generator {

class RpcGenerator : public google::protobuf::compiler::CodeGenerator {
 public:
  // google::protobuf::compiler::CodeGenerator:

  // Fails with all faults of all files, a line each (see validator.h), and then
  // writes nothing.
  bool GenerateAll(
      const std::vector<const google::protobuf::FileDescriptor*>& files,
      const std::string& parameter,
      google::protobuf::compiler::GeneratorContext* context,
      std::string* error) const override;

  bool Generate(const google::protobuf::FileDescriptor* file,
                const std::string& parameter,
                google::protobuf::compiler::GeneratorContext* context,
                std::string* error) const override;

  uint64_t GetSupportedFeatures() const override;
};

}  // namespace torvane::generator

#endif  // CORE_COMMON_RPC_GENERATOR_RPC_GENERATOR_H_
