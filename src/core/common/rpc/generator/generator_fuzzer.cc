// Compiles any text as a proto file. If protobuf's own parser accepts it, the
// generator must either refuse it with one fault in each line of its error, or
// make code that is the same each time, with every bracket, literal and
// preprocessor condition closed.

#include <google/protobuf/compiler/parser.h>
#include <google/protobuf/descriptor.h>
#include <google/protobuf/descriptor.pb.h>
#include <google/protobuf/io/tokenizer.h>
#include <google/protobuf/io/zero_copy_stream_impl_lite.h>

#include <memory>
#include <sstream>
#include <string>

#include "browser_id.pb.h"
#include "core/common/rpc/generator/generator_test_support.h"
#include "core/common/rpc/generator/whole_code.h"
#include "core/common/rpc/testing/fuzzer.h"
#include "rpc/event_subscription.pb.h"

namespace torvane::generator {
namespace {

using google::protobuf::DescriptorPool;
using google::protobuf::FileDescriptor;
using google::protobuf::FileDescriptorProto;

class Silent final : public google::protobuf::io::ErrorCollector,
                     public DescriptorPool::ErrorCollector {
 public:
  void AddError(int, int, const std::string&) override {}
  void AddError(const std::string&,
                const std::string&,
                const google::protobuf::Message*,
                ErrorLocation,
                const std::string&) override {}
};

// The files that a fuzzed file may import. The calls make sure that those of
// the stream messages are linked in and registered.
const DescriptorPool* Imports() {
  BrowserId::descriptor();
  rpc::EventSubscription::descriptor();
  return DescriptorPool::generated_pool();
}

// A file as protoc hands it to a plugin.
class ProtoFile {
 public:
  explicit ProtoFile(const std::string& text) {
    Silent silent;
    google::protobuf::io::ArrayInputStream input(text.data(),
                                                 static_cast<int>(text.size()));
    google::protobuf::io::Tokenizer tokenizer(&input, &silent);
    google::protobuf::compiler::Parser parser;
    parser.RecordErrorsTo(&silent);
    FileDescriptorProto proto;
    if (parser.Parse(&tokenizer, &proto)) {
      proto.set_name("fuzzed.proto");
      file_ = pool_.BuildFileCollectingErrors(proto, &silent);
    }
  }

  // Null when the text is not a valid proto file.
  const FileDescriptor* get() const { return file_; }

 private:
  DescriptorPool pool_{Imports()};
  const FileDescriptor* file_ = nullptr;
};

void CheckFaults(const std::string& faults) {
  std::istringstream lines(faults);
  for (std::string line; std::getline(lines, line);) {
    EXPECT_TRUE(line.starts_with("fuzzed.proto:")) << line;
  }
}

void CheckCode(const FileDescriptor& file, GeneratedFiles& output) {
  ASSERT_EQ(output.contents.size(), 2u);
  const std::string& header = output.contents["fuzzed.rpc.h"];
  const std::string& source = output.contents["fuzzed.rpc.cc"];
  EXPECT_EQ(WhyNotWhole(header), "") << header;
  EXPECT_EQ(WhyNotWhole(source), "") << source;
  for (int i = 0; i < file.service_count(); ++i) {
    const std::string name = file.service(i)->name() + "Rpc";
    EXPECT_NE(header.find("class " + name + " : "), header.npos);
    EXPECT_NE(source.find(name + "::CallMethod("), source.npos);
  }
}

void Check(const std::string& text) {
  const ProtoFile proto(text);
  if (proto.get() == nullptr) {
    return;
  }
  GeneratedFiles output;
  const std::string faults = Generate({proto.get()}, output);
  if (!faults.empty()) {
    EXPECT_TRUE(output.contents.empty());
    return CheckFaults(faults);
  }
  CheckCode(*proto.get(), output);

  const ProtoFile same(text);
  GeneratedFiles again;
  EXPECT_EQ(Generate({same.get()}, again), "");
  EXPECT_EQ(again.contents, output.contents);
}

}  // namespace
}  // namespace torvane::generator

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  torvane::generator::Check(
      std::string(reinterpret_cast<const char*>(data), size));
  return 0;
}
