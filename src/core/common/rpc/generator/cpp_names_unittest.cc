// Which names C++ code has for what proto files declare. Written out one by
// one, since golden files would only repeat what the generator makes of them.

#include "core/common/rpc/generator/cpp_names.h"

#include <google/protobuf/descriptor.h>
#include <google/protobuf/descriptor.pb.h>
#include <gtest/gtest.h>

#include <string>

namespace torvane::generator {
namespace {

using google::protobuf::DescriptorPool;
using google::protobuf::FileDescriptorProto;

std::string FunctionOf(const std::string& method) {
  FileDescriptorProto file;
  file.set_name("f.proto");
  file.add_message_type()->set_name("M");
  auto* const service = file.add_service();
  service->set_name("Talks");
  auto* const added = service->add_method();
  added->set_name(method);
  added->set_input_type("M");
  added->set_output_type("M");
  DescriptorPool pool;
  return MethodFunction(*pool.BuildFile(file)->service(0)->method(0));
}

TEST(CppNames, AnOrdinaryMethodKeepsItsName) {
  for (const char* name : {"DoIt", "Xa", "Xz", "XYz", "X1a", "_ab", "_1b",
                           "x_Ab", "do_it", "_aB", "OpenStreams"})
    EXPECT_EQ(FunctionOf(name), name);
}

TEST(CppNames, AWordOfTheLanguageGetsAnUnderscore) {
  for (const char* name : {"delete", "co_await", "unix"})
    EXPECT_EQ(FunctionOf(name), std::string(name) + "_");
}

TEST(CppNames, ANameWithoutALowerCaseLetterCountsAsAMacro) {
  for (const char* name : {"A", "Z", "EOF", "X1", "X_2"})
    EXPECT_EQ(FunctionOf(name), std::string(name) + "_");
}

TEST(CppNames, ANameOfTheCompilerGetsAnUnderscore) {
  for (const char* name : {"do__it", "__x", "x__", "_Ab", "_Zb", "_A1b"})
    EXPECT_EQ(FunctionOf(name), std::string(name) + "_");
}

TEST(CppNames, AMemberOfTheBaseClassIsNotHidden) {
  for (const char* name :
       {"CallMethod", "GetDescriptor", "GetRequestPrototype",
        "GetResponsePrototype", "OpenStream", "descriptor", "TalksRpc"})
    EXPECT_EQ(FunctionOf(name), std::string(name) + "_");
}

TEST(CppNames, OfAFileOnlyLettersAndDigitsStayInItsIdentifier) {
  FileDescriptorProto proto;
  proto.set_name("/09:@AZ[`az{_.proto");
  DescriptorPool pool;
  const auto& file = *pool.BuildFile(proto);
  EXPECT_EQ(FileIdentifier(file), "_2f09_3a_40AZ_5b_60az_7b_5f_2eproto");
  EXPECT_EQ(DescriptorTable(file),
            "descriptor_table__2f09_3a_40AZ_5b_60az_7b_5f_2eproto");
  EXPECT_EQ(FileStem(file), "/09:@AZ[`az{_");
}

TEST(CppNames, EachPartOfAPackageIsANamespace) {
  FileDescriptorProto proto;
  proto.set_name("f.proto");
  proto.set_package("a.b.c");
  DescriptorPool pool;
  EXPECT_EQ(Namespace(*pool.BuildFile(proto)), "a::b::c");
}

}  // namespace
}  // namespace torvane::generator
