// protoc-gen-rpc, the plugin that protoc runs for --rpc_out.

#include <google/protobuf/compiler/plugin.h>

#include <cstdio>
#include <cstring>

#include "core/common/rpc/generator/rpc_generator.h"

namespace {

constexpr char kUsage[] =
    "protoc-gen-rpc: writes C++ base classes for the services of proto files.\n"
    "\n"
    "It is a protoc plugin, run by protoc rather than by hand:\n"
    "  protoc --cpp_out=DIR --plugin=protoc-gen-rpc=PATH --rpc_out=DIR "
    "FILE.proto\n"
    "writes FILE.rpc.h and FILE.rpc.cc beside FILE.pb.h and FILE.pb.cc.\n";

}  // namespace

int main(int argc, char* argv[]) {
  if (argc > 1 && std::strcmp(argv[1], "--help") == 0) {
    std::fputs(kUsage, stdout);
    return 0;
  }
  if (argc > 1 && std::strcmp(argv[1], "--version") == 0) {
    std::puts("protoc-gen-rpc " TORVANE_VERSION);
    return 0;
  }
  torvane::generator::RpcGenerator generator;
  return google::protobuf::compiler::PluginMain(argc, argv, &generator);
}
