#include "tools/rpcctl/fields.h"

#include <google/protobuf/descriptor.pb.h>

#include <string>
#include <vector>

#include "gtest/gtest.h"
#include "rpc/browser/browser_window.pb.h"
#include "rpc/event_subscription.pb.h"

namespace rpcctl {
namespace {

using google::protobuf::FieldDescriptorProto;
using google::protobuf::UninterpretedOption;
using Words = std::vector<std::string>;

// What becomes of an empty message, as text.
template <typename Message>
std::string Set(const Words& words) {
  Message message;
  EXPECT_EQ(absl::OkStatus(), SetFields(words, &message));
  return message.ShortDebugString();
}

// Why the words can't be set.
template <typename Message>
std::string Fault(const Words& words) {
  Message message;
  const absl::Status status = SetFields(words, &message);
  EXPECT_EQ(absl::StatusCode::kInvalidArgument, status.code());
  return std::string(status.message());
}

TEST(Fields, AreSetByTheirPaths) {
  EXPECT_EQ("browser_id { value: 7 } bounds { x: -10 width: 800 }",
            Set<rpc::WindowBounds>(
                {"browser_id.value=7", "bounds.x=-10", "bounds.width=800"}));
  EXPECT_EQ("", Set<rpc::WindowBounds>({}));
}

TEST(Fields, GoByTheirNamesInJsonToo) {
  EXPECT_EQ("browser_id { value: 7 }",
            Set<rpc::WindowTitle>({"browserId.value=7"}));
}

TEST(Fields, TextIsTakenAsItIs) {
  EXPECT_EQ("title: \"a=b {c} \\n\"",
            Set<rpc::WindowTitle>({"title=a=b {c} \n"}));
  EXPECT_EQ("", Set<rpc::WindowTitle>({"title="}));
}

TEST(Fields, TextIsUtf8AndBytesAreAny) {
  EXPECT_EQ("title: \"\\303\\244\"", Set<rpc::WindowTitle>({"title=\u00e4"}));
  EXPECT_EQ("title: 'a\xff' is not valid UTF-8.",
            Fault<rpc::WindowTitle>({"title=a\xff"}));
  EXPECT_EQ("string_value: \"a\\377\"",
            Set<UninterpretedOption>({"string_value=a\xff"}));
}

TEST(Fields, TruthValuesAreTrueAndFalse) {
  EXPECT_EQ("closable: true",
            Set<rpc::WindowStyleFlags>({"closable=true", "titled=false"}));
  EXPECT_EQ("closable: '1' is not true or false.",
            Fault<rpc::WindowStyleFlags>({"closable=1"}));
}

TEST(Fields, ValuesOfEnumsGoByTheirNames) {
  for (const char* word : {"kind=KIND_CLOSE", "kind=close"})
    EXPECT_EQ("kind: KIND_CLOSE", Set<rpc::WindowButton>({word}));
  EXPECT_EQ("policy: POLICY_ALL_WORKSPACES",
            Set<rpc::BrowserWindowDisplayPolicy>({"policy=all-workspaces"}));
  EXPECT_EQ(
      "kind: 'clsoe' is not one of unspecified, close, minimize, maximize. Did "
      "you mean close?",
      Fault<rpc::WindowButton>({"kind=clsoe"}));
  EXPECT_EQ("kind: '1' is not one of unspecified, close, minimize, maximize.",
            Fault<rpc::WindowButton>({"kind=1"}));
}

TEST(Fields, WholeNumbersAreInTheirRange) {
  EXPECT_EQ("bounds { x: 2147483647 }",
            Set<rpc::WindowBounds>({"bounds.x=2147483647"}));
  for (const char* value : {"2147483648", "1.5", "one", ""}) {
    EXPECT_EQ(std::string("bounds.x: '") + value +
                  "' is not a whole number from -2147483648 to 2147483647.",
              Fault<rpc::WindowBounds>({std::string("bounds.x=") + value}));
  }
  EXPECT_EQ(
      "subscribe_to.value: '9223372036854775808' is not a whole number from "
      "-9223372036854775808 to 9223372036854775807.",
      Fault<rpc::EventSubscription>(
          {"subscribe_to.value=9223372036854775808"}));
  EXPECT_EQ(
      "question.answer_within_ms: '-1' is not a whole number from 0 to "
      "4294967295.",
      Fault<rpc::CloseWindow>({"question.answer_within_ms=-1"}));
  EXPECT_EQ(
      "positive_int_value: 18446744073709551615",
      Set<UninterpretedOption>({"positive_int_value=18446744073709551615"}));
}

TEST(Fields, NumbersMayHaveFractions) {
  EXPECT_EQ("double_value: -1.5",
            Set<UninterpretedOption>({"double_value=-1.5"}));
  EXPECT_EQ("double_value: 'much' is not a number.",
            Fault<UninterpretedOption>({"double_value=much"}));
}

TEST(Fields, RepeatedFieldGetsOneMoreEachTime) {
  EXPECT_EQ("response { omitted_command_ids: 1 omitted_command_ids: 2 }",
            Set<rpc::ShowContextMenu>({"response.omitted_command_ids=1",
                                       "response.omitted_command_ids=2"}));
}

TEST(Fields, RepeatedMessagesNeedJson) {
  for (const char* word :
       {"question.commands=1", "question.commands.name=reload"}) {
    EXPECT_EQ("question.commands: it can be written in JSON only.",
              Fault<rpc::ShowContextMenu>({word}));
  }
}

TEST(Fields, NoFieldIsSetTwice) {
  EXPECT_EQ("title: it is set twice.",
            Fault<rpc::WindowTitle>({"title=a", "title=b"}));
  EXPECT_EQ(
      "browser_id.value: it is set twice.",
      Fault<rpc::WindowTitle>({"browser_id.value=1", "browserId.value=0"}));
}

TEST(Fields, MembersOfAOneofExcludeEachOther) {
  EXPECT_EQ("unsubscribe_from: it excludes subscribe_to, which is set, too.",
            Fault<rpc::EventSubscription>(
                {"subscribe_to.value=1", "unsubscribe_from.value=1"}));
  EXPECT_EQ("x: 1 y: 2", Set<rpc::WindowPosition>({"x=1", "y=2"}));
}

TEST(Fields, UnknownNameIsAnsweredWithTheNearestOne) {
  EXPECT_EQ(
      "rpc.WindowTitle has no field titel. Did you mean title? It has "
      "browser_id, title.",
      Fault<rpc::WindowTitle>({"titel=a"}));
  EXPECT_EQ(
      "rpc.Rect has no field widht. Did you mean width? It has x, y, width, "
      "height.",
      Fault<rpc::WindowBounds>({"bounds.widht=1"}));
  EXPECT_EQ("rpc.WindowTitle has no field . It has browser_id, title.",
            Fault<rpc::WindowTitle>({".title=1"}));
}

TEST(Fields, MessageIsNotSetAsAWhole) {
  EXPECT_EQ("bounds: it is a message: set its fields, such as bounds.x.",
            Fault<rpc::WindowBounds>({"bounds=1"}));
  EXPECT_EQ("title: it has no fields.",
            Fault<rpc::WindowTitle>({"title.text=1"}));
}

TEST(Fields, WordsWithoutANameAreNone) {
  for (const char* word : {"a=", "a_b.c=1", "B=2", ".a=1"})
    EXPECT_TRUE(IsFieldWord(word)) << word;
  for (const char* word :
       {"", "=", "=1", "a", "{\"a\": \"b=c\"}", "@a=b", "-", "7=7", "a b=c",
        "https://example.org/?a=b", "about:a=b"}) {
    EXPECT_FALSE(IsFieldWord(word)) << word;
  }
  EXPECT_EQ("'Inbox' is no FIELD=VALUE.",
            Fault<rpc::WindowTitle>({"title=a", "Inbox"}));
}

}  // namespace
}  // namespace rpcctl
