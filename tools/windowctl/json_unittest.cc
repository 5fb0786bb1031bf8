#include "tools/windowctl/json.h"

#include <google/protobuf/empty.pb.h>
#include <google/protobuf/wrappers.pb.h>

#include "gmock/gmock.h"
#include "gtest/gtest.h"
#include "rpc/browser/browser_window.pb.h"

namespace windowctl {
namespace {

using ::testing::AllOf;
using ::testing::HasSubstr;

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

}  // namespace
}  // namespace windowctl
