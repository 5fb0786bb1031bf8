// Compares the time to generate the service's code with the time that protoc's
// own C++ generator takes for the messages of the same file. Both run in this
// process on the same descriptors and keep their output in memory.

#include "core/common/rpc/generator/rpc_generator.h"

#include <benchmark/benchmark.h>
#include <google/protobuf/compiler/cpp/generator.h>
#include <google/protobuf/io/zero_copy_stream_impl_lite.h>

#include <map>
#include <string>

#include "rpc/browser/browser_window.pb.h"

namespace torvane::generator {
namespace {

using google::protobuf::FileDescriptor;

class FilesInMemory : public google::protobuf::compiler::GeneratorContext {
 public:
  google::protobuf::io::ZeroCopyOutputStream* Open(
      const std::string& name) override {
    return new google::protobuf::io::StringOutputStream(&contents_[name]);
  }

  // protoc's generator opens insertion points for plugins; nothing is inserted.
  google::protobuf::io::ZeroCopyOutputStream* OpenForInsert(
      const std::string& name,
      const std::string&) override {
    return Open(name);
  }

  size_t size() const { return contents_.size(); }

 private:
  std::map<std::string, std::string> contents_;
};

template <typename Generator>
void Generate(benchmark::State& state) {
  const FileDescriptor* file = rpc::BrowserWindow::descriptor()->file();
  const Generator generator;
  std::string error;
  for (auto _ : state) {
    FilesInMemory files;
    if (!generator.GenerateAll({file}, "", &files, &error) || files.size() < 2)
      state.SkipWithError("nothing was generated");
  }
}

using ProtocsCpp = google::protobuf::compiler::cpp::CppGenerator;

BENCHMARK(Generate<RpcGenerator>)->Unit(benchmark::kMicrosecond);
BENCHMARK(Generate<ProtocsCpp>)->Unit(benchmark::kMicrosecond);

}  // namespace
}  // namespace torvane::generator
