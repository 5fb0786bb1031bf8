#include "tools/rpcctl/declaration.h"

#include <google/protobuf/compiler/parser.h>
#include <google/protobuf/descriptor.pb.h>
#include <google/protobuf/io/tokenizer.h>
#include <google/protobuf/io/zero_copy_stream_impl_lite.h>

#include <string>
#include <vector>

#include "absl/strings/str_cat.h"
#include "absl/strings/str_split.h"
#include "absl/strings/strip.h"
#include "gtest/gtest.h"

namespace rpcctl {
namespace {

using google::protobuf::DescriptorPool;
using google::protobuf::FileDescriptorProto;
using google::protobuf::MethodDescriptor;

constexpr char kFile[] = R"(syntax = "proto3";
package zoo;

enum Diet {
  DIET_UNSPECIFIED = 0;
  // Leaves and
  // grass.
  DIET_PLANTS = 1;
}

// What to feed.
message Meal {
  // Which one.
  //
  // It must be hungry:
  //
  //   a.IsHungry()
  Animal animal = 1;
  Diet diet = 2;  // What it eats.
  repeated int32 grams = 3;
  oneof when {
    bool now = 4;
    Time later = 5;
  }
}

message Animal {
  // Its name.
  string name = 1;
  Animal mother = 2;
}

message Time {
  message Zone {
    sint64 offset = 1;
  }
  Zone zone = 1;
}

message Nothing {}

service Keeper {
  // Feeds an animal. It takes
  // a while.
  rpc Feed(Meal) returns (Nothing);
  rpc Swap(Nothing) returns (Nothing);
  rpc Look(stream Nothing) returns (Nothing);
}
)";

// Without an import, so that the test needs no proto path.
class DeclarationTest : public ::testing::Test {
 protected:
  DeclarationTest() {
    google::protobuf::io::ArrayInputStream input(kFile, sizeof(kFile) - 1);
    google::protobuf::io::Tokenizer tokenizer(&input, nullptr);
    FileDescriptorProto file;
    file.set_name("zoo.proto");
    google::protobuf::compiler::Parser parser;
    EXPECT_TRUE(parser.Parse(&tokenizer, &file));
    EXPECT_NE(nullptr, commented_.BuildFile(file));
    file.clear_source_code_info();
    EXPECT_NE(nullptr, bare_.BuildFile(file));
  }

  const MethodDescriptor& Find(const DescriptorPool& pool,
                               const std::string& name) {
    return *pool.FindMethodByName("zoo.Keeper." + name);
  }

  DescriptorPool commented_;
  DescriptorPool bare_;
};

TEST_F(DeclarationTest, HasAllFieldsWithTheirPathsTypesAndComments) {
  EXPECT_EQ(R"(zoo.Keeper.Feed: unary

Feeds an animal. It takes a while.

Request zoo.Meal: What to feed.
  animal             zoo.Animal: Which one.

                     It must be hungry:

                       a.IsHungry()
  animal.name        string: Its name.
  animal.mother      zoo.Animal
  diet               zoo.Diet: What it eats.
                     unspecified
                     plants: Leaves and grass.
  grams              repeated int32
  now                bool
                     No more than one of when.
  later              zoo.Time
                     No more than one of when.
  later.zone         zoo.Time.Zone
  later.zone.offset  sint64

Response zoo.Nothing
)",
            Declaration(Find(commented_, "Feed")));
}

TEST_F(DeclarationTest, WithoutCommentsHasTheSameFields) {
  const std::string text = Declaration(Find(bare_, "Feed"));
  EXPECT_EQ(0u, text.find("zoo.Keeper.Feed: unary\n\nRequest zoo.Meal\n  "
                          "animal             zoo.Animal\n"
                          "  animal.name        string\n"));
  EXPECT_EQ("", CommentOf(Find(bare_, "Feed")));
}

TEST_F(DeclarationTest, ResponseOfTheSameTypeIsDescribedOnce) {
  EXPECT_EQ(
      "zoo.Keeper.Swap: unary\n\nRequest zoo.Nothing\n\nThe response is of "
      "the same type.\n",
      Declaration(Find(commented_, "Swap")));
}

TEST_F(DeclarationTest, KindIsSaidAlsoOfAStreamThatNoCommandCanUse) {
  EXPECT_EQ(
      0u,
      Declaration(Find(commented_, "Look")).find("zoo.Keeper.Look: stream\n"));
}

// A file of a few lines may have messages whose fields have more paths than can
// be counted.
class ManyFieldsTest : public ::testing::Test {
 protected:
  // Adds a message with that many fields of a type, a message or int32.
  void AddMessage(const std::string& name,
                  int fields,
                  const std::string& type = "") {
    google::protobuf::DescriptorProto& message = *file_.add_message_type();
    message.set_name(name);
    for (int i = 1; i <= fields; ++i) {
      google::protobuf::FieldDescriptorProto& field = *message.add_field();
      field.set_name(absl::StrCat("f", i));
      field.set_number(i);
      field.set_label(google::protobuf::FieldDescriptorProto::LABEL_OPTIONAL);
      if (type.empty())
        field.set_type(google::protobuf::FieldDescriptorProto::TYPE_INT32);
      else
        field.set_type_name(type);
    }
  }

  std::vector<std::string> LinesOf(const std::string& message) {
    file_.set_name("many.proto");
    const auto* file = pool_.BuildFile(file_);
    return absl::StrSplit(
        absl::StripSuffix(FieldsOf(*file->FindMessageTypeByName(message)),
                          "\n"),
        '\n');
  }

  FileDescriptorProto file_;
  DescriptorPool pool_;
};

constexpr char kMore[] =
    "  ...    There are more than 1000: describe the messages within.";

TEST_F(ManyFieldsTest, AThousandAreAllThere) {
  AddMessage("M", 1000);
  const std::vector<std::string> lines = LinesOf("M");
  ASSERT_EQ(1000u, lines.size());
  EXPECT_EQ("  f1000  int32", lines.back());
}

TEST_F(ManyFieldsTest, OfMoreThereIsTheBeginning) {
  AddMessage("M", 1001);
  const std::vector<std::string> lines = LinesOf("M");
  ASSERT_EQ(1001u, lines.size());
  EXPECT_EQ("  f1000  int32", lines[999]);
  EXPECT_EQ(kMore, lines.back());
}

TEST_F(ManyFieldsTest, MessagesThatFanOutAreNotFollowedForEver) {
  constexpr int kLevels = 16;
  for (int i = 0; i < kLevels; ++i)
    AddMessage(absl::StrCat("M", i), 2, absl::StrCat("M", i + 1));
  AddMessage(absl::StrCat("M", kLevels), 2);
  const std::vector<std::string> lines = LinesOf("M0");
  EXPECT_GT(lines.size(), 1000u);
  // Of a long path the type stands on a line of its own.
  EXPECT_LE(lines.size(), 2001u);
}

TEST_F(DeclarationTest, CommentIsProse) {
  EXPECT_EQ("Feeds an animal. It takes a while.",
            CommentOf(Find(commented_, "Feed")));
}

}  // namespace
}  // namespace rpcctl
