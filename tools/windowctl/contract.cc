#include "tools/windowctl/contract.h"

#include <google/protobuf/descriptor.pb.h>

#include "absl/log/absl_check.h"
#include "rpc/browser/browser_window.pb.h"
#include "rpc/directory/window_directory.pb.h"

namespace windowctl {
namespace {

using google::protobuf::DescriptorPool;
using google::protobuf::FileDescriptorProto;
using google::protobuf::FileDescriptorSet;

// A serialised FileDescriptorSet, each file after those that it imports.
constexpr unsigned char kFiles[] = {
#include "contract_files.inc"
};

const DescriptorPool* BuildPool() {
  FileDescriptorSet files;
  ABSL_CHECK(files.ParseFromArray(kFiles, sizeof(kFiles)));
  auto* pool = new DescriptorPool;
  for (const FileDescriptorProto& file : files.file())
    ABSL_CHECK(pool->BuildFile(file) != nullptr) << file.name();
  return pool;
}

}  // namespace

std::vector<const google::protobuf::ServiceDescriptor*> Services() {
  return {rpc::BrowserWindow::descriptor(),
          rpc::directory::WindowDirectory::descriptor()};
}

const DescriptorPool& CommentedDeclarations() {
  static const DescriptorPool* const pool = BuildPool();
  return *pool;
}

}  // namespace windowctl
