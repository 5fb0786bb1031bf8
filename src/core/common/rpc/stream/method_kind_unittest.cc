#include "core/common/rpc/stream/method_kind.h"

#include <google/protobuf/compiler/parser.h>
#include <google/protobuf/descriptor.h>
#include <google/protobuf/descriptor.pb.h>
#include <google/protobuf/io/tokenizer.h>
#include <google/protobuf/io/zero_copy_stream_impl_lite.h>
#include <gtest/gtest.h>

#include <optional>
#include <string>

#include "browser_id.pb.h"
#include "rpc/event_subscription.pb.h"

namespace torvane {
namespace {

// A callback message, which the tests change in one place each.
constexpr char kQuestion[] =
    "message Question {"
    "  BrowserId browser_id = 1;"
    "  oneof body { bool subscribe = 2; string response = 4; }"
    "}";

// The kind of a method, declared after these messages.
std::optional<MethodKind> KindIn(const std::string& messages,
                                 const std::string& method) {
  const std::string text =
      "syntax = 'proto3';"
      "import 'browser_id.proto'; import 'rpc/event_subscription.proto';" +
      messages + "service S { " + method + "; }";
  google::protobuf::io::ArrayInputStream input(text.data(),
                                               static_cast<int>(text.size()));
  google::protobuf::io::Tokenizer tokenizer(&input, nullptr);
  google::protobuf::FileDescriptorProto parsed;
  parsed.set_name("test.proto");
  EXPECT_TRUE(google::protobuf::compiler::Parser().Parse(&tokenizer, &parsed))
      << text;
  // Makes the imports known to the pool.
  EXPECT_NE(BrowserId::descriptor(), nullptr);
  EXPECT_NE(rpc::EventSubscription::descriptor(), nullptr);
  google::protobuf::DescriptorPool pool(
      google::protobuf::DescriptorPool::generated_pool());
  const auto* file = pool.BuildFile(parsed);
  EXPECT_NE(file, nullptr) << text;
  return file ? KindOf(*file->service(0)->method(0)) : std::nullopt;
}

// The kind of a method that streams this message both ways.
std::optional<MethodKind> KindOfStreamOf(const std::string& message) {
  return KindIn(message, "rpc M(stream Question) returns (stream Question)");
}

// `kQuestion` with one part of it replaced.
std::string QuestionWith(const std::string& part,
                         const std::string& replacement) {
  std::string message = kQuestion;
  const size_t place = message.find(part);
  EXPECT_NE(place, message.npos) << part;
  return message.replace(place, part.size(), replacement);
}

TEST(MethodKind, IsUnaryWhereNoSideStreams) {
  EXPECT_EQ(KindIn(kQuestion, "rpc M(Question) returns (Question)"),
            MethodKind::kUnary);
  EXPECT_EQ(KindIn("", "rpc M(rpc.EventSubscription) returns (BrowserId)"),
            MethodKind::kUnary);
}

TEST(MethodKind, IsAnEventStreamByItsRequestWhateverTheEvent) {
  EXPECT_EQ(KindIn("",
                   "rpc M(stream rpc.EventSubscription) "
                   "returns (stream BrowserId)"),
            MethodKind::kEventStream);
  EXPECT_EQ(KindIn("",
                   "rpc M(stream rpc.EventSubscription) "
                   "returns (stream rpc.EventSubscription)"),
            MethodKind::kEventStream);
}

TEST(MethodKind, IsACallbackStreamByItsMessage) {
  EXPECT_EQ(KindOfStreamOf(kQuestion), MethodKind::kCallbackStream);
}

TEST(MethodKind, IsNoneWhereOnlyOneSideStreams) {
  for (const char* method :
       {"rpc M(stream rpc.EventSubscription) returns (BrowserId)",
        "rpc M(rpc.EventSubscription) returns (stream BrowserId)",
        "rpc M(stream Question) returns (Question)",
        "rpc M(Question) returns (stream Question)"}) {
    EXPECT_EQ(KindIn(kQuestion, method), std::nullopt) << method;
  }
}

TEST(MethodKind, IsNoneWhereQuestionAndAnswerAreTwoMessages) {
  EXPECT_EQ(KindIn(kQuestion,
                   "rpc M(stream Question) returns "
                   "(stream BrowserId)"),
            std::nullopt);
  EXPECT_EQ(KindIn(kQuestion,
                   "rpc M(stream BrowserId) returns "
                   "(stream Question)"),
            std::nullopt);
}

TEST(MethodKind, BrowserIdMustBeOneFieldOfThatTypeOutsideOfAnyOneof) {
  const std::string field = "BrowserId browser_id = 1;";
  for (const char* other :
       {"", "BrowserId window = 1;", "repeated BrowserId browser_id = 1;",
        "int64 browser_id = 1;", "Question browser_id = 1;",
        "oneof who { BrowserId browser_id = 1; }",
        "BrowserId browser_id = 1 [deprecated = true];"}) {
    EXPECT_EQ(KindOfStreamOf(QuestionWith(field, other)), std::nullopt)
        << other;
  }
  EXPECT_EQ(KindOfStreamOf(QuestionWith(field, "BrowserId browser_id = 9;")),
            MethodKind::kCallbackStream);
  EXPECT_EQ(
      KindOfStreamOf(QuestionWith(field, "optional BrowserId browser_id = 1;")),
      MethodKind::kCallbackStream);
}

TEST(MethodKind, SubscribeMustBeABoolOfTheBodyWithTheNumberTwo) {
  const std::string field = "bool subscribe = 2;";
  for (const char* other :
       {"", "bool subscribed = 2;", "bool subscribe = 3;",
        "int32 subscribe = 2;", "bool subscribe = 2 [deprecated = true];"}) {
    EXPECT_EQ(KindOfStreamOf(QuestionWith(field, other)), std::nullopt)
        << other;
  }
  EXPECT_EQ(KindOfStreamOf("message Question { BrowserId browser_id = 1;"
                           "  bool subscribe = 2;"
                           "  oneof body { string response = 4; } }"),
            std::nullopt);
}

TEST(MethodKind, ResponseMustBeAFieldOfTheBodyWithTheNumberFour) {
  const std::string field = "string response = 4;";
  for (const char* other : {"", "string answer = 4;", "string response = 5;",
                            "string response = 4 [deprecated = true];"}) {
    EXPECT_EQ(KindOfStreamOf(QuestionWith(field, other)), std::nullopt)
        << other;
  }
  EXPECT_EQ(KindOfStreamOf(QuestionWith(field, "BrowserId response = 4;")),
            MethodKind::kCallbackStream);
  EXPECT_EQ(KindOfStreamOf("message Question { BrowserId browser_id = 1;"
                           "  string response = 4;"
                           "  oneof body { bool subscribe = 2; } }"),
            std::nullopt);
}

TEST(MethodKind, TheOneofMustBeNamedBody) {
  EXPECT_EQ(KindOfStreamOf(QuestionWith("oneof body", "oneof content")),
            std::nullopt);
  EXPECT_EQ(KindOfStreamOf("message Question { BrowserId browser_id = 1;"
                           "  bool subscribe = 2; string response = 4; }"),
            std::nullopt);
}

}  // namespace
}  // namespace torvane
