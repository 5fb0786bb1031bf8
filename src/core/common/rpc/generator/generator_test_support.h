// Helpers for the generator's tests: import proto files, run the generator, and
// keep the generated files in memory.

#ifndef CORE_COMMON_RPC_GENERATOR_GENERATOR_TEST_SUPPORT_H_
#define CORE_COMMON_RPC_GENERATOR_GENERATOR_TEST_SUPPORT_H_

#include <google/protobuf/compiler/code_generator.h>
#include <google/protobuf/compiler/importer.h>

#include <map>
#include <memory>
#include <string>
#include <vector>

namespace torvane::generator {

// Reads proto files from the import roots that the build names.
class ProtoFiles : private google::protobuf::compiler::MultiFileErrorCollector {
 public:
  // `first_root` is searched before all others.
  explicit ProtoFiles(const std::string& first_root);
  ~ProtoFiles() override;

  // The file as protoc would pass it to a plugin. Fails the test if it does not
  // parse.
  const google::protobuf::FileDescriptor* Import(const std::string& name);

 private:
  void AddError(const std::string& file,
                int line,
                int column,
                const std::string& message) override;

  google::protobuf::compiler::DiskSourceTree tree_;
  google::protobuf::compiler::Importer importer_;
};

// Keeps what a generator writes.
class GeneratedFiles : public google::protobuf::compiler::GeneratorContext {
 public:
  google::protobuf::io::ZeroCopyOutputStream* Open(
      const std::string& name) override;

  std::map<std::string, std::string> contents;
};

// Runs the generator over `files`. Returns its error text, empty on success.
std::string Generate(
    const std::vector<const google::protobuf::FileDescriptor*>& files,
    GeneratedFiles& output,
    const std::string& parameter = "");

}  // namespace torvane::generator

#endif  // CORE_COMMON_RPC_GENERATOR_GENERATOR_TEST_SUPPORT_H_
