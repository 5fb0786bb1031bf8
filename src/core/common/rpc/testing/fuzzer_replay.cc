// main() of a fuzzer that runs each stored input as one test. The file
// <program>.inputs beside the program lists them.

#include <google/protobuf/stubs/logging.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <iostream>
#include <iterator>
#include <string>

#include "base/logging.h"
#include "core/common/rpc/testing/fuzzer.h"

namespace {

class Replay final : public testing::Test {
 public:
  explicit Replay(std::string path) : path_(std::move(path)) {}

  void TestBody() override {
    std::ifstream file(path_, std::ios::binary);
    ASSERT_TRUE(file) << path_ << " cannot be read";
    const std::string input(std::istreambuf_iterator<char>(file), {});
    LLVMFuzzerTestOneInput(reinterpret_cast<const uint8_t*>(input.data()),
                           input.size());
  }

 private:
  const std::string path_;
};

}  // namespace

int main(int argc, char** argv) {
  testing::InitGoogleTest(&argc, argv);
  logging::SetMinLogLevel(logging::LOGGING_FATAL);
  google::protobuf::SetLogHandler(nullptr);

  const std::string program = argv[0];
  const std::string fuzzer = std::filesystem::path(program).filename();
  const std::string list = program + ".inputs";
  std::ifstream inputs(list);
  bool any = false;
  for (std::string path; std::getline(inputs, path, ','); any = true) {
    const std::string name = std::filesystem::path(path).filename();
    testing::RegisterTest(
        fuzzer.c_str(), name.c_str(), nullptr, nullptr, path.c_str(), 1,
        [path]() -> testing::Test* { return new Replay(path); });
  }
  if (!any) {
    std::cerr << list << " names no input\n";
    return 1;
  }
  return RUN_ALL_TESTS();
}
