#include "tools/rpcctl/json.h"

#include <google/protobuf/empty.pb.h>
#include <google/protobuf/wrappers.pb.h>

#include <cstdint>
#include <string>

#include "gmock/gmock.h"
#include "gtest/gtest.h"
#include "rpc/browser/browser_window.pb.h"
#include "tools/cli/printable.h"

namespace rpcctl {
namespace {

using ::testing::AllOf;
using ::testing::HasSubstr;
using ::testing::Not;

void AppendUtf8(uint32_t code, std::string& text) {
  const auto append = [&](uint32_t byte) {
    text.push_back(static_cast<char>(byte));
  };
  if (code < 0x80)
    return append(code);
  if (code < 0x800) {
    append(0xC0 | code >> 6);
  } else if (code < 0x10000) {
    append(0xE0 | code >> 12);
    append(0x80 | (code >> 6 & 0x3F));
  } else {
    append(0xF0 | code >> 18);
    append(0x80 | (code >> 12 & 0x3F));
    append(0x80 | (code >> 6 & 0x3F));
  }
  append(0x80 | (code & 0x3F));
}

std::string Fault(const std::string& json) {
  rpc::WindowBounds bounds;
  const absl::Status status = FromJson(json, &bounds);
  EXPECT_EQ(absl::StatusCode::kInvalidArgument, status.code()) << json;
  return std::string(status.message());
}

TEST(Json, FieldsAreReadByTheirNames) {
  rpc::WindowBounds bounds;
  ASSERT_EQ(
      absl::OkStatus(),
      FromJson(R"({"browserId": {"value": 7}, "bounds": {"x": -3}})", &bounds));
  EXPECT_EQ(7, bounds.browser_id().value());
  EXPECT_EQ(-3, bounds.bounds().x());
}

TEST(Json, FieldsAreReadByTheirNamesInTheProtoFile) {
  rpc::WindowButton button;
  ASSERT_EQ(absl::OkStatus(),
            FromJson(R"({"browser_id": {"value": 7}, "kind": "KIND_CLOSE"})",
                     &button));
  EXPECT_EQ(7, button.browser_id().value());
  EXPECT_EQ(rpc::WindowButton::KIND_CLOSE, button.kind());
}

TEST(Json, FaultShowsTheExpectedMessage) {
  for (const char* json : {"", "{", "nonsense", "[]", "{} {}"}) {
    EXPECT_THAT(Fault(json),
                AllOf(HasSubstr("The JSON does not fit: "),
                      HasSubstr("\nExpected:\nmessage WindowBounds {\n"),
                      HasSubstr("  .BrowserId browser_id = 1;\n")));
  }
}

TEST(Json, FaultNamesTheFieldThatIsUnknownOrOutOfRange) {
  EXPECT_THAT(Fault(R"({"bonds": {}})"), HasSubstr("bonds"));
  EXPECT_THAT(Fault(R"({"bounds": {"x": 99999999999}})"),
              HasSubstr("bounds.x"));
}

TEST(Json, MessagesArePrintedOnOneLineWithFalseAndZero) {
  EXPECT_EQ("false", ToJson(google::protobuf::BoolValue()));
  EXPECT_EQ("{}", ToJson(google::protobuf::Empty()));
  EXPECT_EQ(R"({"x":0,"y":0,"width":0,"height":0})", ToJson(rpc::Rect()));
  google::protobuf::StringValue text;
  text.set_value("two\nlines");
  EXPECT_EQ(R"("two\nlines")", ToJson(text));
}

// What Protocol Buffers prints of a text is all that this relies on: every
// character is tried.
TEST(Json, EveryTextIsPrintableAndReadBackAsItWas) {
  std::string all;
  for (uint32_t code = 0; code <= 0x10FFFF; ++code) {
    if (code < 0xD800 || code > 0xDFFF)
      AppendUtf8(code, all);
  }
  google::protobuf::StringValue text;
  text.set_value(all);
  const std::string json = ToJson(text);
  EXPECT_TRUE(json == cli::Printable(json));
  EXPECT_THAT(json, Not(HasSubstr("\\x")));
  google::protobuf::StringValue read;
  ASSERT_EQ(absl::OkStatus(), FromJson(json, &read));
  EXPECT_TRUE(all == read.value());
}

TEST(Json, WhatWouldActOnATerminalIsEscaped) {
  google::protobuf::StringValue text;
  text.set_value(
      "\x1b\x7f\u009b\u061c\u200e\u202e\u2066\u2069\u2028\ufeff\u00fc");
  EXPECT_EQ(
      "\"\\u001b\\u007f\\u009b\\u061c\\u200e\\u202e\\u2066\\u2069"
      "\\u2028\\ufeff\u00fc\"",
      ToJson(text));
}

}  // namespace
}  // namespace rpcctl
