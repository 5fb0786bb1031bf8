// Pins the generator's output byte for byte. When the code that it writes
// changes on purpose, run the tests of this program once with UPDATE_GOLDENS=1
// and review the difference. Error texts and testdata/by_hand are written by
// hand: nothing else would notice a mistake that is in all golden files.

#include "core/common/rpc/generator/rpc_generator.h"

#include <google/protobuf/descriptor.h>
#include <google/protobuf/descriptor.pb.h>
#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>

#include "core/common/rpc/generator/generator_test_support.h"

namespace torvane::generator {
namespace {

const std::string kTestdata = TESTDATA;

void ExpectContent(const std::filesystem::path& path,
                   const std::string& actual) {
  std::ifstream file(path);
  ASSERT_TRUE(file) << path << " is missing";
  std::ostringstream expected;
  expected << file.rdbuf();
  EXPECT_EQ(actual, expected.str()) << path;
}

void ExpectGolden(const std::string& name, const std::string& actual) {
  const std::filesystem::path path = kTestdata + "/golden/" + name;
  if (std::getenv("UPDATE_GOLDENS")) {
    std::filesystem::create_directories(path.parent_path());
    std::ofstream(path) << actual;
  }
  ExpectContent(path, actual);
}

class GoldenOutput : public testing::TestWithParam<const char*> {};

TEST_P(GoldenOutput, IsUnchanged) {
  ProtoFiles protos(kTestdata);
  GeneratedFiles output;
  ASSERT_EQ(Generate({protos.Import(GetParam())}, output), "");

  const std::string name = GetParam();
  const std::string stem = name.substr(0, name.rfind('.'));
  ASSERT_EQ(output.contents.size(), 2u);
  for (const char* suffix : {".rpc.h", ".rpc.cc"}) {
    ASSERT_TRUE(output.contents.contains(stem + suffix));
    ExpectGolden(stem + suffix, output.contents[stem + suffix]);
  }
}

TEST_P(GoldenOutput, IsTheSameEachTimeAndInAnyCompany) {
  ProtoFiles protos(kTestdata);
  GeneratedFiles alone;
  ASSERT_EQ(Generate({protos.Import(GetParam())}, alone), "");

  ProtoFiles protos_again(kTestdata);
  GeneratedFiles in_company;
  ASSERT_EQ(Generate({protos_again.Import("google/protobuf/empty.proto"),
                      protos_again.Import(GetParam())},
                     in_company),
            "");
  for (const auto& [name, content] : alone.contents)
    EXPECT_EQ(in_company.contents[name], content);
}

INSTANTIATE_TEST_SUITE_P(Protos,
                         GoldenOutput,
                         testing::Values("awkward-names.v1.proto",
                                         "deep_package.proto",
                                         "foreign_types.proto",
                                         "generic_services.proto",
                                         "interleaved.proto",
                                         "keywords.proto",
                                         "no_package.proto",
                                         "no_services.proto",
                                         "reexported.proto",
                                         "relative_types.proto",
                                         "rpc/browser/browser_window.proto",
                                         "several_services.proto",
                                         "streams_only.proto"));

class ErrorText : public testing::TestWithParam<const char*> {};

TEST_P(ErrorText, NamesFileLineAndColumn) {
  ProtoFiles protos(kTestdata + "/bad");
  const std::string name = GetParam();
  GeneratedFiles output;
  const std::string error = Generate({protos.Import(name + ".proto")}, output);
  EXPECT_TRUE(error.starts_with(name + ".proto:")) << error;
  EXPECT_TRUE(output.contents.empty());
  ExpectContent(kTestdata + "/bad/" + name + ".expected", error + "\n");
}

INSTANTIATE_TEST_SUITE_P(Protos,
                         ErrorText,
                         testing::Values("class_taken",
                                         "class_taken_by_import",
                                         "flag_taken",
                                         "foreign_namespace",
                                         "foreign_name",
                                         "lite_runtime",
                                         "map_entry",
                                         "methods_collide",
                                         "no_callback_message",
                                         "one_sided_stream",
                                         "reserved_message",
                                         "reserved_package",
                                         "sub_package",
                                         "unknown_stream_shape"));

TEST(RpcGenerator, ReportsTheFaultsOfAllFiles) {
  ProtoFiles protos(kTestdata + "/bad");
  GeneratedFiles output;
  const std::string error =
      Generate({protos.Import("methods_collide.proto"),
                protos.Import("google/protobuf/empty.proto"),
                protos.Import("unknown_stream_shape.proto")},
               output);
  EXPECT_NE(error.find("methods_collide.proto:9:3: "), error.npos) << error;
  EXPECT_NE(error.find("\nunknown_stream_shape.proto:9:3: "), error.npos)
      << error;
  EXPECT_TRUE(output.contents.empty());
}

TEST(RpcGenerator, JudgesAFileByItsOwnImportsWhateverElseThereIs) {
  ProtoFiles protos(kTestdata + "/bad");
  const auto* taken = protos.Import("class_taken.proto");
  const auto* other = protos.Import("class_free.proto");
  GeneratedFiles output;
  EXPECT_EQ(Generate({other}, output), "");
  EXPECT_NE(Generate({taken, other}, output).find("class_taken.proto"),
            std::string::npos);
  EXPECT_EQ(Generate({taken, other}, output).find("class_free.proto"),
            std::string::npos);
}

TEST(RpcGenerator, RefusesParameters) {
  ProtoFiles protos(kTestdata);
  GeneratedFiles output;
  EXPECT_EQ(Generate({protos.Import("no_package.proto")}, output, "lite"),
            "protoc-gen-rpc takes no parameters, but was given 'lite'.");
  EXPECT_TRUE(output.contents.empty());
}

TEST(RpcGenerator, LeavesOutPositionsThatTheDescriptorDoesNotCarry) {
  google::protobuf::FileDescriptorProto proto;
  proto.set_name("built.proto");
  proto.add_message_type()->set_name("M");
  auto* method = proto.add_service()->add_method();
  proto.mutable_service(0)->set_name("S");
  method->set_name("Talk");
  method->set_input_type("M");
  method->set_output_type("M");
  method->set_server_streaming(true);
  google::protobuf::DescriptorPool pool;
  GeneratedFiles output;
  const std::string error = Generate({pool.BuildFile(proto)}, output);
  EXPECT_TRUE(
      error.starts_with("built.proto: Streaming method 'Talk' must "
                        "stream on both sides."))
      << error;
}

TEST(RpcGenerator, EscapesFileNamesInLiterals) {
  google::protobuf::FileDescriptorProto proto;
  proto.set_name("odd\"\n\\?\?/.proto");
  proto.add_service()->set_name("S");
  google::protobuf::DescriptorPool pool;
  GeneratedFiles output;
  ASSERT_EQ(Generate({pool.BuildFile(proto)}, output), "");
  const std::string& source = output.contents["odd\"\n\\?\?/.rpc.cc"];
  EXPECT_NE(source.find(R"(::std::string("odd\"\n\\\?\?/.proto", 15))"),
            source.npos);
  EXPECT_TRUE(
      source.starts_with("// Generated by protoc-gen-rpc from "
                         "odd\\\"\\n\\\\\\?\\?/.proto. Do not edit.\n"));
}

// Three digits for each byte that is no letter, so that none that follow belong
// to it.
TEST(RpcGenerator, EscapesBytesThatAreNoPrintableText) {
  google::protobuf::FileDescriptorProto proto;
  proto.set_name(
      "\x1f !~\x7f\x80\xff"
      "0.proto");
  proto.add_service()->set_name("S");
  google::protobuf::DescriptorPool pool;
  GeneratedFiles output;
  ASSERT_EQ(Generate({pool.BuildFile(proto)}, output), "");
  EXPECT_TRUE(output.contents.begin()->second.starts_with(
      R"(// Generated by protoc-gen-rpc from \037 !~\177\200\3770.proto.)"))
      << output.contents.begin()->second;
}

// UPDATE_GOLDENS leaves these two files alone: whoever changes the generated
// code changes them by hand, and sees then what nobody has wanted.
TEST(RpcGenerator, WritesWhatIsKeptByHand) {
  ProtoFiles protos(kTestdata + "/by_hand");
  GeneratedFiles output;
  ASSERT_EQ(Generate({protos.Import("small.proto")}, output), "");
  for (const std::string name : {"small.rpc.h", "small.rpc.cc"})
    ExpectContent(kTestdata + "/by_hand/" + name + ".expected",
                  output.contents[name]);
}

TEST(RpcGenerator, WritesNoCodeForAFileWithoutServices) {
  ProtoFiles protos(kTestdata);
  GeneratedFiles output;
  ASSERT_EQ(Generate({protos.Import("no_services.proto")}, output), "");
  EXPECT_EQ(output.contents["no_services.rpc.cc"],
            "// Generated by protoc-gen-rpc from no_services.proto. Do not "
            "edit.\n\n#include \"no_services.rpc.h\"\n");
  const std::string& header = output.contents["no_services.rpc.h"];
  EXPECT_EQ(header.find("class"), header.npos);
  EXPECT_EQ(header.find("namespace"), header.npos);
}

// Without a package names are global.
TEST(RpcGenerator, WritesNoNamespaceForAFileWithoutAPackage) {
  ProtoFiles protos(kTestdata);
  GeneratedFiles output;
  ASSERT_EQ(Generate({protos.Import("no_package.proto")}, output), "");
  const std::string& source = output.contents["no_package.rpc.cc"];
  EXPECT_EQ(source.find("namespace"), source.npos);
  EXPECT_NE(source.find(", &::AssignDescriptors);"), source.npos);
}

TEST(RpcGenerator, WritesNothingAboutStreamsForAFileWithoutStreams) {
  ProtoFiles protos(kTestdata);
  GeneratedFiles output;
  ASSERT_EQ(Generate({protos.Import("no_package.proto")}, output), "");
  const std::string& source = output.contents["no_package.rpc.cc"];
  for (const char* absent :
       {"callback_stream.h", "event_stream.h", "registries", "template class"})
    EXPECT_EQ(source.find(absent), source.npos) << absent;
}

TEST(RpcGenerator, TakesASingleFileToo) {
  ProtoFiles protos(kTestdata);
  GeneratedFiles output;
  std::string error;
  EXPECT_TRUE(RpcGenerator().Generate(protos.Import("interleaved.proto"), "",
                                      &output, &error));
  EXPECT_EQ(error, "");
  EXPECT_EQ(output.contents.size(), 2u);
  EXPECT_FALSE(RpcGenerator().Generate(protos.Import("interleaved.proto"),
                                       "unknown", &output, &error));
}

TEST(RpcGenerator, TakesEveryFileThatComesWithProtobuf) {
  ProtoFiles protos(kTestdata);
  for (const char* name :
       {"google/protobuf/any.proto", "google/protobuf/api.proto",
        "google/protobuf/descriptor.proto", "google/protobuf/duration.proto",
        "google/protobuf/field_mask.proto", "google/protobuf/struct.proto",
        "google/protobuf/timestamp.proto", "google/protobuf/type.proto",
        "google/protobuf/wrappers.proto",
        "google/protobuf/compiler/plugin.proto"}) {
    GeneratedFiles output;
    EXPECT_EQ(Generate({protos.Import(name)}, output), "") << name;
    EXPECT_EQ(output.contents.size(), 2u) << name;
  }
}

}  // namespace
}  // namespace torvane::generator
