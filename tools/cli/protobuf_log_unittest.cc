#include "tools/cli/protobuf_log.h"

#include <google/protobuf/stubs/logging.h>
#include <google/protobuf/wrappers.pb.h>

#include "base/logging.h"
#include "core/common/rpc/testing/log_capture.h"
#include "gmock/gmock.h"
#include "gtest/gtest.h"

namespace cli {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

class ProtobufLogTest : public ::testing::Test {
 protected:
  ProtobufLogTest() { RecordProtobufLog(); }
  // Puts the library's own handler back.
  ~ProtobufLogTest() override { google::protobuf::SetLogHandler(before_); }

  google::protobuf::LogHandler* const before_ =
      google::protobuf::SetLogHandler(nullptr);
  torvane::LogCapture log_;
};

TEST_F(ProtobufLogTest, NothingIsSaidAboutTextThatIsNotUtf8) {
  ::testing::internal::CaptureStderr();
  google::protobuf::StringValue text;
  EXPECT_FALSE(text.ParseFromString("\x0a\x01\xff"));
  EXPECT_EQ("", ::testing::internal::GetCapturedStderr());
  EXPECT_THAT(log_.records(), IsEmpty());
}

TEST_F(ProtobufLogTest, WhatElseTheLibrarySaysIsRecorded) {
  ::testing::internal::CaptureStderr();
  GOOGLE_LOG(INFO) << "to know";
  GOOGLE_LOG(WARNING) << "to beware";
  GOOGLE_LOG(ERROR) << "to mend";
  EXPECT_EQ("", ::testing::internal::GetCapturedStderr());
  ASSERT_EQ(3u, log_.records().size());
  EXPECT_EQ(logging::LOGGING_INFO, log_.records()[0].severity);
  EXPECT_EQ(logging::LOGGING_WARNING, log_.records()[1].severity);
  EXPECT_EQ(logging::LOGGING_ERROR, log_.records()[2].severity);
  EXPECT_EQ(__FILE__, log_.records()[2].file);
  EXPECT_THAT(log_.TakeTexts(), ElementsAre("to know", "to beware", "to mend"));
}

TEST_F(ProtobufLogTest, RecordsBelowTheLevelOfTheLogAreNotMade) {
  logging::SetMinLogLevel(logging::LOGGING_ERROR);
  GOOGLE_LOG(WARNING) << "to beware";
  EXPECT_THAT(log_.records(), IsEmpty());
}

}  // namespace
}  // namespace cli
