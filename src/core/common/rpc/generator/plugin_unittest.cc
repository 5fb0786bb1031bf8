// The plugin as protoc runs it.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <array>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>

#include "core/common/rpc/testing/private_folder.h"

namespace {

using testing::HasSubstr;
using testing::StartsWith;

struct Result {
  int status = -1;
  std::string output;
};

// Runs a shell command. The output is standard output and standard error.
Result RunShell(const std::string& command) {
  Result result;
  FILE* pipe = popen((command + " 2>&1").c_str(), "r");
  std::array<char, 4096> buffer;
  for (size_t n; (n = fread(buffer.data(), 1, buffer.size(), pipe)) > 0;)
    result.output.append(buffer.data(), n);
  result.status = WEXITSTATUS(pclose(pipe));
  return result;
}

class Plugin : public testing::Test {
 protected:
  Result Protoc(const std::string& root, const std::string& proto) {
    return RunShell(
        std::string(PROTOC) + " -I" + root + " -I" TORVANE_PROTO_ROOT +
        " --plugin=protoc-gen-rpc=" PLUGIN " --rpc_out=" + folder_.path() +
        " " + proto);
  }

  static std::string Read(const std::filesystem::path& path) {
    std::ostringstream content;
    content << std::ifstream(path).rdbuf();
    return content.str();
  }

  const torvane::PrivateFolder folder_;
};

TEST_F(Plugin, WritesWhatTheGoldenFilesHold) {
  const Result result = Protoc(TESTDATA, "interleaved.proto");
  ASSERT_EQ(result.status, 0) << result.output;
  for (const char* name : {"interleaved.rpc.h", "interleaved.rpc.cc"}) {
    const std::string written = Read(folder_.File(name));
    EXPECT_FALSE(written.empty());
    EXPECT_EQ(written, Read(std::filesystem::path(TESTDATA) / "golden" / name));
  }
}

TEST_F(Plugin, AcceptsOptionalFieldsOfProto3) {
  std::ofstream(folder_.File("presence.proto"))
      << "syntax = 'proto3'; message M { optional int32 n = 1; }"
         "service S { rpc Call(M) returns (M); }";
  const Result result = Protoc(folder_.path(), "presence.proto");
  EXPECT_EQ(result.status, 0) << result.output;
}

TEST_F(Plugin, FailsWithThePositionOfTheFault) {
  const Result result = Protoc(TESTDATA "/bad", "unknown_stream_shape.proto");
  EXPECT_EQ(result.status, 1);
  EXPECT_THAT(result.output,
              StartsWith("--rpc_out: unknown_stream_shape.proto:9:3: "
                         "Streaming method 'Talk'"));
  EXPECT_TRUE(std::filesystem::is_empty(folder_.path()));
}

TEST_F(Plugin, ExplainsItself) {
  const Result result = RunShell(PLUGIN " --help");
  EXPECT_EQ(result.status, 0);
  EXPECT_THAT(result.output, HasSubstr("--rpc_out=DIR"));
}

TEST_F(Plugin, SaysItsVersion) {
  const Result result = RunShell(PLUGIN " --version");
  EXPECT_EQ(result.status, 0);
  EXPECT_EQ(result.output, "protoc-gen-rpc " TORVANE_VERSION "\n");
}

TEST_F(Plugin, ExplainsItselfToNobodyWhoHasNotAsked) {
  const Result result = RunShell(PLUGIN " --unknown </dev/null");
  EXPECT_EQ(result.output.find("--rpc_out=DIR"), std::string::npos)
      << result.output;
}

TEST_F(Plugin, FailsOnInputThatIsNoRequest) {
  const Result result = RunShell("printf garbage | " PLUGIN);
  EXPECT_EQ(result.status, 1);
  EXPECT_THAT(result.output, HasSubstr("unparseable request"));
}

}  // namespace
