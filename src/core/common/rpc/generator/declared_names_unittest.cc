// Which names a proto file declares in C++, and which it does not.

#include "core/common/rpc/generator/declared_names.h"

#include <google/protobuf/descriptor.pb.h>
#include <google/protobuf/text_format.h>
#include <gtest/gtest.h>

#include <string>

namespace torvane::generator {
namespace {

using google::protobuf::DescriptorPool;
using google::protobuf::FileDescriptor;
using google::protobuf::FileDescriptorProto;

constexpr char kImported[] = R"pb(
  name: "imported.proto"
  package: "far.away"
  message_type { name: "Distant" }
)pb";

constexpr char kFile[] = R"pb(
  name: "f.proto"
  package: "here.now"
  dependency: "imported.proto"
  message_type {
    name: "Outer"
    nested_type { name: "Inner" }
    enum_type {
      name: "Level"
      value { name: "LOW" number: 0 }
    }
    extension_range { start: 100 end: 200 }
  }
  enum_type {
    name: "Colour"
    value { name: "RED" number: 0 }
    value { name: "BLUE" number: 1 }
  }
  enum_type {
    name: "Shape"
    value { name: "ROUND" number: 0 }
  }
  extension {
    name: "first_more"
    number: 100
    label: LABEL_OPTIONAL
    type: TYPE_INT32
    extendee: ".here.now.Outer"
  }
  extension {
    name: "last_more"
    number: 101
    label: LABEL_OPTIONAL
    type: TYPE_INT32
    extendee: ".here.now.Outer"
  }
  service { name: "Talks" }
  service { name: "Listens" }
)pb";

class DeclaredNamesTest : public testing::Test {
 protected:
  const FileDescriptor* Build(const std::string& text, bool generic = false) {
    FileDescriptorProto proto;
    EXPECT_TRUE(google::protobuf::TextFormat::ParseFromString(text, &proto));
    proto.mutable_options()->set_cc_generic_services(generic);
    const FileDescriptor* const file = pool_.BuildFile(proto);
    EXPECT_NE(file, nullptr);
    return file;
  }

  DescriptorPool pool_;
};

TEST_F(DeclaredNamesTest, MessagesEnumsValuesAndExtensionsAreDeclared) {
  Build(kImported);
  const DeclaredNames names(*Build(kFile));
  for (const char* name :
       {"Outer", "Outer_Inner", "Outer_Level", "Outer_Level_LOW", "Colour",
        "RED", "BLUE", "Shape", "ROUND", "first_more", "last_more"})
    EXPECT_TRUE(names.HasDeclaration("here.now", name)) << name;
  for (const char* name : {"Inner", "Level", "LOW", "Colour_RED", "now",
                           "Talks", "Talks_Stub", "Distant"})
    EXPECT_FALSE(names.HasDeclaration("here.now", name)) << name;
  EXPECT_FALSE(names.HasDeclaration("", "Outer"));
}

TEST_F(DeclaredNamesTest, GenericServicesAreClassesAndTheirStubs) {
  Build(kImported);
  const DeclaredNames names(*Build(kFile, true));
  for (const char* name : {"Talks", "Talks_Stub", "Listens", "Listens_Stub"})
    EXPECT_TRUE(names.HasDeclaration("here.now", name)) << name;
}

TEST_F(DeclaredNamesTest, ImportsCountAndTheirPackages) {
  Build(kImported);
  const DeclaredNames names(*Build(kFile));
  EXPECT_TRUE(names.HasDeclaration("far.away", "Distant"));
  EXPECT_TRUE(names.HasPackage("here.now"));
  EXPECT_TRUE(names.HasPackage("far.away"));
  EXPECT_FALSE(names.HasPackage("here"));
}

TEST_F(DeclaredNamesTest, EachPartOfAPackageIsANameInTheOneBefore) {
  Build(kImported);
  const DeclaredNames names(*Build(kFile));
  EXPECT_TRUE(names.Has("", "here"));
  EXPECT_TRUE(names.Has("here", "now"));
  EXPECT_FALSE(names.Has("", "now"));
  EXPECT_FALSE(names.HasDeclaration("here", "now"));
  EXPECT_TRUE(names.Has("here.now", "Outer"));
}

}  // namespace
}  // namespace torvane::generator
