#include "examples/window_host/app/call_logger.h"

#include <optional>
#include <string>
#include <vector>

#include "base/logging.h"
#include "core/common/rpc/testing/log_capture.h"
#include "examples/window_host/service/host_test_support.h"
#include "gmock/gmock.h"
#include "gtest/gtest.h"

namespace window_host {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::MatchesRegex;

class CallLoggerTest : public ::testing::Test {
 protected:
  CallLoggerTest() { host_.windows.Open(); }

  std::vector<std::string> TakeRecords() {
    for (const torvane::LogRecord& record : log_.records())
      EXPECT_EQ(logging::LOGGING_INFO, record.severity);
    return log_.TakeTexts();
  }

  // A call as a transport makes it, to the logger.
  template <typename Response>
  struct LoggedCall {
    LoggedCall(CallLogger& logger, const char* name, int64_t id)
        : request(torvane::WindowId(id)) {
      const auto* const method = logger.GetDescriptor()->FindMethodByName(name);
      context.Start(*method, "tester (pid 4711)", std::nullopt);
      logger.CallMethod(method, &context, &request, &response, &done);
    }

    const BrowserId request;
    Response response;
    rpc::serving::CallContext context;
    torvane::CountingClosure done;
  };

  torvane::LogCapture log_;
  TestHost host_;
  CallLogger logger_{*host_.service};
};

TEST_F(CallLoggerTest, SuccessIsRecordedWithRequestResponseAndDuration) {
  LoggedCall<google::protobuf::BoolValue> call(logger_, "IsVisible", 1);
  EXPECT_EQ(1, call.done.runs());
  EXPECT_TRUE(call.response.value());
  EXPECT_THAT(TakeRecords(),
              ElementsAre(MatchesRegex(
                  "tester \\(pid 4711\\): IsVisible \\{value: 1\\} OK "
                  "\\{value: true\\} in [0-9.]+[mun]?s")));
}

TEST_F(CallLoggerTest, FailureIsRecordedWithItsStatus) {
  LoggedCall<google::protobuf::Empty> call(logger_, "Show", 7);
  host_.sequence.Run();
  EXPECT_EQ(1, call.done.runs());
  EXPECT_EQ(absl::NotFoundError("No window 7."), call.context.status());
  EXPECT_THAT(TakeRecords(),
              ElementsAre(MatchesRegex(
                  ".*: Show \\{value: 7\\} NOT_FOUND: No window 7. "
                  "in [0-9.]+[mun]?s")));
}

TEST_F(CallLoggerTest, CallThatWaitsIsRecordedWhenItCompletes) {
  TestStream<rpc::CloseWindow> answerer(logger_, kOnCloseWindow);
  answerer.AnswerFor(1);
  LoggedCall<google::protobuf::BoolValue> call(logger_, "Close", 1);
  host_.sequence.Run();
  EXPECT_THAT(TakeRecords(), IsEmpty());
  answerer.Answer({});
  host_.sequence.Run();
  EXPECT_EQ(1, call.done.runs());
  EXPECT_THAT(TakeRecords(),
              ElementsAre(MatchesRegex(".*: Close \\{value: 1\\} OK "
                                       "\\{\\} in [0-9.]+[mun]?s")));
}

TEST_F(CallLoggerTest, EverythingElseIsThatOfTheServiceBehindIt) {
  EXPECT_EQ(host_.service->GetDescriptor(), logger_.GetDescriptor());
  const auto* const method = logger_.GetDescriptor()->method(28);
  EXPECT_EQ(&host_.service->GetRequestPrototype(method),
            &logger_.GetRequestPrototype(method));
  EXPECT_EQ(&host_.service->GetResponsePrototype(method),
            &logger_.GetResponsePrototype(method));
}

}  // namespace
}  // namespace window_host
