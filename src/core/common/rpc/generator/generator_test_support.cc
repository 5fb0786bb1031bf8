#include "core/common/rpc/generator/generator_test_support.h"

#include <google/protobuf/descriptor.h>
#include <google/protobuf/io/zero_copy_stream_impl_lite.h>
#include <gtest/gtest.h>

#include "core/common/rpc/generator/rpc_generator.h"

namespace torvane::generator {

ProtoFiles::ProtoFiles(const std::string& first_root)
    : importer_(&tree_, this) {
  tree_.MapPath("", first_root);
  tree_.MapPath("", TORVANE_PROTO_ROOT);
  tree_.MapPath("", PROTOBUF_PROTO_ROOT);
}

ProtoFiles::~ProtoFiles() = default;

const google::protobuf::FileDescriptor* ProtoFiles::Import(
    const std::string& name) {
  const auto* file = importer_.Import(name);
  EXPECT_NE(file, nullptr) << name;
  return file;
}

void ProtoFiles::AddError(const std::string& file,
                          int line,
                          int column,
                          const std::string& message) {
  ADD_FAILURE() << file << ":" << line + 1 << ":" << column + 1 << ": "
                << message;
}

google::protobuf::io::ZeroCopyOutputStream* GeneratedFiles::Open(
    const std::string& name) {
  return new google::protobuf::io::StringOutputStream(&contents[name]);
}

std::string Generate(
    const std::vector<const google::protobuf::FileDescriptor*>& files,
    GeneratedFiles& output,
    const std::string& parameter) {
  std::string error;
  const bool succeeded =
      RpcGenerator().GenerateAll(files, parameter, &output, &error);
  EXPECT_EQ(succeeded, error.empty());
  return error;
}

}  // namespace torvane::generator
