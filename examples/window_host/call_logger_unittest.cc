#include "examples/window_host/call_logger.h"

#include <memory>
#include <string>
#include <vector>

#include "base/logging.h"
#include "core/common/rpc/transport/client.h"
#include "core/common/rpc/transport/server.h"
#include "examples/window_host/host_test_support.h"
#include "gmock/gmock.h"
#include "gtest/gtest.h"

namespace window_host {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::MatchesRegex;

std::vector<std::string>& Records() {
  static std::vector<std::string> records;
  return records;
}

bool KeepRecord(int severity,
                const char*,
                int,
                size_t message_start,
                const std::string& record) {
  EXPECT_EQ(logging::LOGGING_INFO, severity);
  Records().push_back(record.substr(message_start));
  return true;
}

// The controllers of calls come from the transport, so it carries them here.
class CallLoggerTest : public ::testing::Test {
 protected:
  CallLoggerTest() {
    Records().clear();
    logging::SetLogMessageHandler(KeepRecord);
    host_.desktop.Open();
    server_.AddService(&logger_);
    asio::local::stream_protocol::socket ours(host_.loop);
    asio::local::stream_protocol::socket theirs(host_.loop);
    std::error_code error;
    asio::local::connect_pair(ours, theirs, error);
    server_.Adopt(std::move(ours));
    rpc::transport::ClientOptions options;
    options.name = "tester";
    client_ =
        *rpc::transport::Client::Adopt(host_.loop, std::move(theirs), options);
  }
  ~CallLoggerTest() override { logging::SetLogMessageHandler(nullptr); }

  TestHost host_;
  CallLogger logger_{host_.service};
  rpc::transport::Server server_{host_.loop};
  std::unique_ptr<rpc::transport::Client> client_;
};

TEST_F(CallLoggerTest, SuccessIsRecordedWithRequestResponseAndDuration) {
  rpc::transport::ClientController controller;
  google::protobuf::BoolValue visible;
  const BrowserId id = MakeId(1);
  rpc::BrowserWindow_Stub(client_.get())
      .IsVisible(&controller, &id, &visible, nullptr);
  EXPECT_TRUE(visible.value());
  EXPECT_THAT(Records(),
              ElementsAre(MatchesRegex(
                  "tester \\(pid [0-9]+\\): IsVisible \\{value: 1\\} OK "
                  "\\{value: true\\} in [0-9.]+[mun]?s\n")));
}

TEST_F(CallLoggerTest, FailureIsRecordedWithItsStatus) {
  rpc::transport::ClientController controller;
  google::protobuf::Empty nothing;
  const BrowserId id = MakeId(7);
  rpc::BrowserWindow_Stub(client_.get())
      .Show(&controller, &id, &nothing, nullptr);
  EXPECT_EQ(absl::NotFoundError("No window 7."), controller.status());
  EXPECT_THAT(Records(), ElementsAre(MatchesRegex(
                             ".*: Show \\{value: 7\\} NOT_FOUND: No window 7. "
                             "in [0-9.]+[mun]?s\n")));
}

TEST_F(CallLoggerTest, CallThatWaitsIsRecordedWhenItCompletes) {
  TestStream<rpc::CloseWindow> answerer(logger_, kOnCloseWindow);
  answerer.AnswerFor(1);
  rpc::transport::ClientController controller;
  google::protobuf::BoolValue closed;
  torvane::RecordingClosure done;
  const BrowserId id = MakeId(1);
  rpc::BrowserWindow_Stub(client_.get())
      .Close(&controller, &id, &closed, &done);
  while (answerer.Received().empty())
    host_.loop.run_one();
  EXPECT_THAT(Records(), IsEmpty());
  answerer.Answer({});
  while (done.runs() == 0)
    host_.loop.run_one();
  EXPECT_THAT(Records(),
              ElementsAre(MatchesRegex(".*: Close \\{value: 1\\} OK "
                                       "\\{\\} in [0-9.]+[mun]?s\n")));
}

TEST_F(CallLoggerTest, EverythingElseIsThatOfTheServiceBehindIt) {
  EXPECT_EQ(host_.service.GetDescriptor(), logger_.GetDescriptor());
  const auto* const method = logger_.GetDescriptor()->method(28);
  EXPECT_EQ(&host_.service.GetRequestPrototype(method),
            &logger_.GetRequestPrototype(method));
  EXPECT_EQ(&host_.service.GetResponsePrototype(method),
            &logger_.GetResponsePrototype(method));
}

}  // namespace
}  // namespace window_host
