#include "core/common/rpc/grpc/contract/derived_contract.h"

#include <gmock/gmock.h>
#include <google/protobuf/compiler/importer.h>
#include <google/protobuf/io/zero_copy_stream_impl_lite.h>
#include <gtest/gtest.h>

#include <map>
#include <memory>
#include <set>
#include <string>
#include <string_view>
#include <vector>

#include "absl/strings/str_cat.h"
#include "absl/strings/str_replace.h"
#include "core/common/rpc/grpc/contract/derived_text.h"

namespace rpc::grpc {
namespace {

using google::protobuf::DescriptorPool;
using google::protobuf::FileDescriptor;
using testing::HasSubstr;

constexpr char kBrowserId[] = R"(syntax = "proto3";
message BrowserId {
  int64 value = 1;
}
)";

// With a place for what a test adds to the message of questions.
constexpr char kContract[] = R"(syntax = "proto3";

package shop;

import "browser_id.proto";

// Makes stubs.
option cc_generic_services = true;

option java_package = "shop";

service Shop {
  rpc Decide(stream Decision) returns (stream Decision);
  rpc Buy(Decision) returns (Other);
}

// A question. // Twice.
message Decision {
  BrowserId browser_id = 1;  // Which.
  oneof body {
    bool subscribe = 2;
    string response = 4;
  }
  $MORE
}

message Other {
  int64 call_id = 15;
}
)";

std::string Contract(const std::string& more = "") {
  return absl::StrReplaceAll(kContract, {{"$MORE", more}});
}

class Files final : public google::protobuf::compiler::SourceTree {
 public:
  google::protobuf::io::ZeroCopyInputStream* Open(
      const std::string& name) override {
    const auto file = texts.find(name);
    return file == texts.end() ? nullptr
                               : new google::protobuf::io::ArrayInputStream(
                                     file->second.data(),
                                     static_cast<int>(file->second.size()));
  }

  std::map<std::string, std::string> texts = {{"browser_id.proto", kBrowserId}};
};

class DerivedContract : public testing::Test {
 protected:
  const FileDescriptor* Import(const std::string& name,
                               const std::string& text) {
    files_.texts[name] = text;
    const FileDescriptor* const file = importer_.Import(name);
    EXPECT_NE(file, nullptr);
    return file;
  }
  absl::Status Derive(const std::vector<const FileDescriptor*>& files) {
    return BuildDerivedContract(files, derived_);
  }
  // With pools of its own: it may be used several times.
  static absl::StatusOr<std::string> DeriveShop(const std::string& text) {
    Files files;
    files.texts["shop.proto"] = text;
    google::protobuf::compiler::Importer importer(&files, nullptr);
    const FileDescriptor* const file = importer.Import("shop.proto");
    if (file == nullptr) {
      return absl::NotFoundError("cannot be imported");
    }
    DescriptorPool derived;
    const absl::Status status = BuildDerivedContract({file}, derived);
    if (!status.ok()) {
      return status;
    }
    return DeriveText(text, *file, QuestionTypes({file}),
                      *derived.FindFileByName("shop.proto"));
  }

  Files files_;
  google::protobuf::compiler::Importer importer_{&files_, nullptr};
  DescriptorPool derived_;
};

TEST_F(DerivedContract, OnlyMessagesOfQuestionsGetTheFields) {
  ASSERT_EQ(Derive({Import("shop.proto", Contract())}), absl::OkStatus());
  const auto* const question = derived_.FindMessageTypeByName("shop.Decision");
  ASSERT_NE(question, nullptr);
  const auto* const call_id = question->FindFieldByNumber(15);
  ASSERT_NE(call_id, nullptr);
  EXPECT_EQ(call_id->name(), "call_id");
  EXPECT_EQ(call_id->type(), google::protobuf::FieldDescriptor::TYPE_INT64);
  EXPECT_EQ(call_id->containing_oneof(), nullptr);
  const auto* const declined = question->FindFieldByNumber(14);
  ASSERT_NE(declined, nullptr);
  EXPECT_EQ(declined->name(), "declined");
  EXPECT_EQ(declined->type(), google::protobuf::FieldDescriptor::TYPE_BOOL);
  EXPECT_EQ(derived_.FindMessageTypeByName("shop.Other")->field_count(), 1);
  EXPECT_EQ(derived_.FindMessageTypeByName("BrowserId")->field_count(), 1);
}

TEST_F(DerivedContract, StubsAreLeftToGrpc) {
  ASSERT_EQ(Derive({Import("shop.proto", Contract())}), absl::OkStatus());
  const auto& options = derived_.FindFileByName("shop.proto")->options();
  EXPECT_FALSE(options.has_cc_generic_services());
  EXPECT_EQ(options.java_package(), "shop");
}

TEST_F(DerivedContract, TheMessageMayBeInAnotherFileAndWithinAnother) {
  const FileDescriptor* const messages = Import("messages.proto", R"(
      syntax = "proto3";
      import "browser_id.proto";
      message Outer {
        message Inner {
          BrowserId browser_id = 1;
          oneof body { bool subscribe = 2; string response = 4; }
        }
      })");
  const FileDescriptor* const service = Import("service.proto", R"(
      syntax = "proto3";
      import "messages.proto";
      service Shop {
        rpc Decide(stream Outer.Inner) returns (stream Outer.Inner);
      })");
  ASSERT_EQ(Derive({service, messages}), absl::OkStatus());
  EXPECT_NE(
      derived_.FindMessageTypeByName("Outer.Inner")->FindFieldByName("call_id"),
      nullptr);
}

TEST_F(DerivedContract, WhatIsTakenIsRefused) {
  for (const char* more :
       {"int32 call_id = 5;", "int32 other = 15;", "bool declined = 5;",
        "int32 other = 14;", "reserved 15;", "reserved \"declined\";"}) {
    const std::string name = absl::StrCat("shop", more, ".proto");
    DescriptorPool pool;
    Files files;
    files.texts[name] = Contract(more);
    google::protobuf::compiler::Importer importer(&files, nullptr);
    const FileDescriptor* const file = importer.Import(name);
    ASSERT_NE(file, nullptr) << more;
    const absl::Status refused = BuildDerivedContract({file}, pool);
    EXPECT_TRUE(absl::IsInvalidArgument(refused)) << more;
    EXPECT_THAT(std::string(refused.message()),
                HasSubstr("shop.Decision has a field"))
        << more;
  }
}

TEST_F(DerivedContract, TheTextChangesNowhereElse) {
  const auto text = DeriveShop(Contract());
  ASSERT_EQ(text.status(), absl::OkStatus());
  EXPECT_EQ(
      *text,
      absl::StrReplaceAll(
          Contract(),
          {{"// Makes stubs.\noption cc_generic_services = true;\n\n", ""},
           {"  }\n  \n}\n",
            "  }\n  \n"
            "\n"
            "  // From the client, in place of a response: there will be "
            "no answer to\n"
            "  // the question.\n"
            "  bool declined = 14;\n"
            "\n"
            "  // Which question this is. An answer repeats it; it may "
            "leave it out\n"
            "  // while no other question about the same window waits.\n"
            "  int64 call_id = 15;\n"
            "}\n"}}));
}

TEST_F(DerivedContract, ACommentGoesWithItsOptionHoweverItIsWritten) {
  const auto wanted = DeriveShop(Contract());
  ASSERT_EQ(wanted.status(), absl::OkStatus());
  for (const char* comment :
       {"// Makes\n// stubs.\n", "/* Makes stubs. */\n",
        "/*\n * Makes stubs.\n */\n", "/* Makes\n   stubs. */\n"}) {
    EXPECT_EQ(DeriveShop(absl::StrReplaceAll(Contract(),
                                             {{"// Makes stubs.\n", comment}})),
              wanted)
        << comment;
  }
}

TEST_F(DerivedContract, FieldsOfProto2AreOptional) {
  const auto text = DeriveShop(absl::StrReplaceAll(
      Contract(),
      {{"proto3", "proto2"},
       {"  BrowserId browser_id", "  optional BrowserId browser_id"},
       {"  int64 ", "  optional int64 "}}));
  ASSERT_EQ(text.status(), absl::OkStatus());
  EXPECT_THAT(*text, HasSubstr("\n  optional bool declined = 14;\n"));
  EXPECT_THAT(*text, HasSubstr("\n  optional int64 call_id = 15;\n}\n"));
}

// Of which some editors write one. Parsers take it at the very beginning only.
TEST_F(DerivedContract, AByteOrderMarkIsLeftOut) {
  EXPECT_EQ(DeriveShop("\xef\xbb\xbf" + Contract()), DeriveShop(Contract()));
}

TEST_F(DerivedContract, TheOptionHasToStandOnLinesOfItsOwn) {
  const std::string option = "option cc_generic_services = true;";
  for (const std::string& with_others :
       {option + " option go_package = \"a\";",
        "option go_package = \"a\"; " + option}) {
    EXPECT_EQ(
        DeriveShop(absl::StrReplaceAll(Contract(), {{option, with_others}}))
            .status(),
        absl::InvalidArgumentError("shop.proto: the option cc_generic_services "
                                   "does not stand on a line of its own"))
        << with_others;
  }
  for (const std::string& alone :
       {"\t" + option, option + "  // Stubs.", option + "/* Stubs. */ ",
        std::string("option\ncc_generic_services\n= true\n;")}) {
    const auto text =
        DeriveShop(absl::StrReplaceAll(Contract(), {{option, alone}}));
    EXPECT_EQ(text, DeriveShop(Contract())) << alone;
  }
}

TEST_F(DerivedContract, AMessageHasToEndOnALineOfItsOwn) {
  EXPECT_EQ(
      DeriveShop(absl::StrReplaceAll(Contract(), {{"  }\n  \n}\n", "  } }\n"}}))
          .status(),
      absl::InvalidArgumentError(
          "shop.proto: shop.Decision does not end on a line of its own"));
}

TEST_F(DerivedContract, ATextThatIsNotTheFilesIsNoticed) {
  const FileDescriptor* const file = Import("shop.proto", Contract());
  ASSERT_EQ(Derive({file}), absl::OkStatus());
  const auto refusal = [&](const std::string& text,
                           const std::set<std::string>& question_types) {
    return DeriveText(text, *file, question_types,
                      *derived_.FindFileByName("shop.proto"))
        .status();
  };
  const absl::Status wanted = absl::InvalidArgumentError(
      "the text of shop.proto is not what it was parsed from");
  EXPECT_EQ(refusal(absl::StrReplaceAll(Contract(), {{"Buy", "Sell"}}),
                    QuestionTypes({file})),
            wanted);
  EXPECT_EQ(refusal("syntax = \"proto3\";", {}), wanted);
}

TEST_F(DerivedContract, ATextThatDoesNotParseIsRefused) {
  const FileDescriptor* const file = Import("shop.proto", Contract());
  ASSERT_EQ(Derive({file}), absl::OkStatus());
  const auto refusal = [&](const std::string& text) {
    return std::string(DeriveText(text, *file, QuestionTypes({file}),
                                  *derived_.FindFileByName("shop.proto"))
                           .status()
                           .message());
  };
  EXPECT_THAT(refusal(Contract() + "/*"),
              HasSubstr("shop.proto: the derived text does not parse: "
                        "End-of-file inside block comment."));
  EXPECT_THAT(refusal(Contract() + "}"),
              HasSubstr("shop.proto: the derived text does not parse: "
                        "Expected top-level statement"));
}

}  // namespace
}  // namespace rpc::grpc
