// What is wrong with a file, all of it and in which order.

#include "core/common/rpc/generator/validator.h"

#include <gmock/gmock.h>
#include <google/protobuf/descriptor.pb.h>
#include <google/protobuf/text_format.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace torvane::generator {
namespace {

using google::protobuf::DescriptorPool;
using google::protobuf::FileDescriptorProto;
using testing::ElementsAre;
using testing::IsEmpty;

// The faults of the last of these files, each of which may import those before.
std::vector<std::string> FaultsOf(const std::vector<std::string>& files) {
  DescriptorPool pool;
  const google::protobuf::FileDescriptor* last = nullptr;
  for (const std::string& text : files) {
    FileDescriptorProto proto;
    EXPECT_TRUE(google::protobuf::TextFormat::ParseFromString(text, &proto));
    last = pool.BuildFile(proto);
    EXPECT_NE(last, nullptr) << text;
  }
  return Validate(*last);
}

TEST(Validator, AnyNameOfTheHeadersIsRefusedWithoutAPackage) {
  for (const std::string name :
       {"absl", "base", "logging", "raw_ptr", "rpc", "torvane"}) {
    EXPECT_THAT(
        FaultsOf({"name: 'f.proto' message_type { name: '" + name +
                  "' } service { name: 'S' }"}),
        ElementsAre("f.proto: '" + name +
                    "', declared without a package here or in an import, is a "
                    "name of the headers that service code needs."));
  }
  EXPECT_THAT(FaultsOf({"name: 'f.proto' package: 'p' "
                        "message_type { name: 'absl' } service { name: 'S' }"}),
              IsEmpty());
}

TEST(Validator, AnyNamespaceOfTheHeadersIsRefusedAsAPackage) {
  for (const std::string name :
       {"absl", "base", "google.protobuf.internal", "logging", "torvane"}) {
    EXPECT_THAT(
        FaultsOf(
            {"name: 'f.proto' package: '" + name + "' service { name: 'S' }"}),
        ElementsAre("f.proto: Package '" + name +
                    "', of this file or of an import, is the namespace of "
                    "headers that service code needs."));
  }
}

TEST(Validator, AFileWithoutServicesMayBeAnything) {
  EXPECT_THAT(FaultsOf({"name: 'f.proto' package: 'torvane' "
                        "options { optimize_for: LITE_RUNTIME } "
                        "message_type { name: 'AssignDescriptors' }"}),
              IsEmpty());
}

// Each method once, whichever side it is on.
TEST(Validator, TheEntryOfAMapIsNoMessageOfAMethod) {
  const std::string fault =
      "f.proto: 'M.FieldEntry' is the entry of a map, which is no message of "
      "its own in C++.";
  EXPECT_THAT(FaultsOf({R"pb(
                          name: "f.proto"
                          message_type {
                            name: "M"
                            field {
                              name: "field"
                              number: 1
                              label: LABEL_REPEATED
                              type: TYPE_MESSAGE
                              type_name: ".M.FieldEntry"
                            }
                            nested_type {
                              name: "FieldEntry"
                              options { map_entry: true }
                              field {
                                name: "key"
                                number: 1
                                label: LABEL_OPTIONAL
                                type: TYPE_INT32
                              }
                              field {
                                name: "value"
                                number: 2
                                label: LABEL_OPTIONAL
                                type: TYPE_INT32
                              }
                            }
                          }
                          service {
                            name: "S"
                            method {
                              name: "Takes"
                              input_type: ".M.FieldEntry"
                              output_type: ".M"
                            }
                            method {
                              name: "Returns"
                              input_type: ".M"
                              output_type: ".M.FieldEntry"
                            }
                            method {
                              name: "Both"
                              input_type: ".M.FieldEntry"
                              output_type: ".M.FieldEntry"
                            }
                          }
                        )pb"}),
              ElementsAre(fault, fault, fault));
}

// Those of the file first, then those of its package, then service by service
// and method by method.
TEST(Validator, FaultsComeInTheOrderOfTheFile) {
  EXPECT_THAT(
      FaultsOf({R"pb(
                  name: "i.proto"
                  message_type { name: "absl" }
                  message_type { name: "init_service_descriptors_flag" }
                )pb",
                R"pb(
                  name: "j.proto" package: "torvane"
                )pb",
                R"pb(
                  name: "f.proto"
                  package: "p.int"
                  dependency: "i.proto"
                  dependency: "j.proto"
                  options { optimize_for: LITE_RUNTIME }
                  message_type { name: "AssignDescriptors" }
                  message_type { name: "FirstRpc" }
                  message_type { name: "M" }
                  message_type { name: "N" }
                  service {
                    name: "First"
                    method { name: "delete" input_type: "M" output_type: "M" }
                    method { name: "delete_" input_type: "M" output_type: "M" }
                  }
                  service {
                    name: "Second"
                    method {
                      name: "OneSided"
                      input_type: "M"
                      output_type: "N"
                      client_streaming: true
                    }
                    method {
                      name: "OtherSided"
                      input_type: "M"
                      output_type: "M"
                      server_streaming: true
                    }
                  }
                )pb"}),
      ElementsAre(
          "f.proto: Services need descriptors, which 'optimize_for = "
          "LITE_RUNTIME' leaves out.",
          "f.proto: 'AssignDescriptors', declared here or in an import, is a "
          "name of the generated service code.",
          "f.proto: 'init_service_descriptors_flag', declared here or in an "
          "import, is a name of the generated service code.",
          "f.proto: 'absl', declared without a package here or in an import, "
          "is a name of the headers that service code needs.",
          "f.proto: Package 'p.int' can't be a C++ namespace: 'int' is "
          "reserved.",
          "f.proto: Package 'torvane', of this file or of an import, is the "
          "namespace of headers that service code needs.",
          "f.proto: The class of service 'First' would be 'FirstRpc', which "
          "is declared already.",
          testing::StartsWith("f.proto: Methods 'delete' and 'delete_' would "
                              "both be 'delete_' in C++."),
          testing::StartsWith(
              "f.proto: Streaming method 'OneSided' must stream on both "
              "sides. Accepted are an event stream, "),
          testing::StartsWith("f.proto: Streaming method 'OtherSided' must "
                              "stream on both sides.")));
}

}  // namespace
}  // namespace torvane::generator
