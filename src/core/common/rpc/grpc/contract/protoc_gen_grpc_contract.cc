// The protoc plugin that writes the contract for gRPC clients, see
// derived_contract.h: for each file that it is given, one of the same name. Its
// parameter is the folder that the files' names begin at.
//
//   protoc --plugin=protoc-gen-grpc-contract=PLUGIN -Isrc
//          --grpc-contract_out=src:FOLDER rpc/browser/browser_window.proto ...

#include <google/protobuf/compiler/code_generator.h>
#include <google/protobuf/compiler/plugin.h>
#include <google/protobuf/descriptor.h>
#include <google/protobuf/io/coded_stream.h>
#include <google/protobuf/io/zero_copy_stream.h>

#include <cstdio>
#include <cstring>
#include <fstream>
#include <iterator>
#include <memory>
#include <set>
#include <string>
#include <vector>

#include "absl/status/status.h"
#include "absl/status/statusor.h"
#include "absl/strings/str_cat.h"
#include "core/common/rpc/grpc/contract/derived_contract.h"
#include "core/common/rpc/grpc/contract/derived_text.h"

namespace rpc::grpc {
namespace {

using google::protobuf::DescriptorPool;
using google::protobuf::FileDescriptor;
using google::protobuf::compiler::GeneratorContext;

absl::StatusOr<std::string> ReadText(const std::string& path) {
  std::ifstream file(path, std::ios::binary);
  std::string text(std::istreambuf_iterator<char>(file), {});
  if (!file.is_open() || file.bad()) {
    return absl::NotFoundError(absl::StrCat("cannot read ", path));
  }
  return text;
}

absl::Status WriteAll(const std::vector<const FileDescriptor*>& files,
                      const std::string& root,
                      GeneratorContext& context) {
  const std::set<std::string> question_types = QuestionTypes(files);
  DescriptorPool pool;
  absl::Status built = BuildDerivedContract(files, pool);
  if (!built.ok()) {
    return built;
  }
  for (const FileDescriptor* file : files) {
    const auto text = ReadText(absl::StrCat(root, "/", file->name()));
    if (!text.ok()) {
      return text.status();
    }
    const auto derived = DeriveText(*text, *file, question_types,
                                    *pool.FindFileByName(file->name()));
    if (!derived.ok()) {
      return derived.status();
    }
    const std::unique_ptr<google::protobuf::io::ZeroCopyOutputStream> out(
        context.Open(file->name()));
    google::protobuf::io::CodedOutputStream(out.get()).WriteString(
        absl::StrCat("// Made from the contract of the same name, "
                     "for gRPC clients: do not edit.\n\n",
                     *derived));
  }
  return absl::OkStatus();
}

class ContractGenerator final
    : public google::protobuf::compiler::CodeGenerator {
 public:
  uint64_t GetSupportedFeatures() const override {
    return FEATURE_PROTO3_OPTIONAL;
  }

  bool Generate(const FileDescriptor* file,
                const std::string& parameter,
                GeneratorContext* context,
                std::string* error) const override {
    return GenerateAll({file}, parameter, context, error);
  }

  // All files together: one may have the methods and another the messages.
  bool GenerateAll(const std::vector<const FileDescriptor*>& files,
                   const std::string& parameter,
                   GeneratorContext* context,
                   std::string* error) const override {
    const absl::Status written = WriteAll(files, parameter, *context);
    *error = std::string(written.message());
    return written.ok();
  }
};

}  // namespace
}  // namespace rpc::grpc

int main(int argc, char* argv[]) {
  if (argc > 1 && std::strcmp(argv[1], "--version") == 0) {
    std::puts("protoc-gen-grpc-contract " TORVANE_VERSION);
    return 0;
  }
  const rpc::grpc::ContractGenerator generator;
  return google::protobuf::compiler::PluginMain(argc, argv, &generator);
}
