#include "core/common/rpc/transport/raw_methods.h"

#include <gtest/gtest.h>

#include <chrono>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "core/common/rpc/stream/event_stream.h"
#include "core/common/rpc/testing/window_id.h"
#include "core/common/rpc/transport/testing/lab.h"
#include "rpc/event_subscription.pb.h"

namespace rpc::transport {
namespace {

std::string TextBytes(const std::string& text) {
  lab::Text message;
  message.set_text(text);
  return message.SerializeAsString();
}

class RawMethods : public testing::Test {
 protected:
  uint64_t IdOf(const std::string& method) {
    const auto found = FindMethod(*client_, "lab.Lab", method);
    EXPECT_EQ(found.status(), absl::OkStatus());
    return found.value_or(OfferedMethod()).id();
  }

  std::unique_ptr<RawCall> Call(
      const std::string& method,
      const std::string& request,
      std::optional<std::chrono::milliseconds> timeout = {}) {
    return std::make_unique<RawCall>(
        *client_, IdOf(method), timeout, request,
        [this](const absl::Status& status, const std::string& response) {
          outcomes_.push_back(status.ok() ? response : status.ToString());
        });
  }

  void AwaitOutcome() {
    lab_.RunUntil([this] { return !outcomes_.empty(); });
  }

  Lab lab_;
  std::unique_ptr<Client> client_ = lab_.NewClient();
  std::vector<std::string> outcomes_;
};

TEST_F(RawMethods, AreFoundByName) {
  EXPECT_FALSE(FindMethod(*client_, "lab.Lab", "Echo")->streaming());
  EXPECT_EQ(FindMethod(*client_, "lab.Lab", "Watch")->stream_kind(),
            OfferedMethod::STREAM_KIND_EVENTS);
  EXPECT_EQ(FindMethod(*client_, "lab.Lab", "Decide")->stream_kind(),
            OfferedMethod::STREAM_KIND_QUESTIONS);
}

TEST_F(RawMethods, WhatIsNotOfferedIsNamed) {
  EXPECT_EQ(FindMethod(*client_, "lab.Lab", "Sing").status(),
            absl::UnimplementedError("the server has no method lab.Lab.Sing"));
  EXPECT_EQ(FindMethod(*client_, "lab.Bar", "Echo").status(),
            absl::UnimplementedError("the server has no service lab.Bar and so "
                                     "no method lab.Bar.Echo"));
}

TEST_F(RawMethods, ACallCarriesBytesBothWays) {
  const auto call = Call("Echo", TextBytes("hello"));
  EXPECT_TRUE(outcomes_.empty());
  AwaitOutcome();
  EXPECT_EQ(outcomes_, std::vector<std::string>{TextBytes("hello")});
}

TEST_F(RawMethods, ACallFailsWithTheServersStatus) {
  const auto call = Call("Echo", "\377");
  AwaitOutcome();
  EXPECT_EQ(outcomes_, std::vector<std::string>{
                           "INVALID_ARGUMENT: the request of lab.Lab.Echo does "
                           "not parse as a lab.Text"});
}

TEST_F(RawMethods, ACallIsGivenUpInTime) {
  const auto call =
      Call("Park", TextBytes("late"), std::chrono::milliseconds(1));
  AwaitOutcome();
  EXPECT_EQ(outcomes_[0].substr(0, 17), "DEADLINE_EXCEEDED");
  lab_.RunUntil([&] { return lab_.service.parked.size() == 1; });
  lab_.service.parked[0].Complete();
}

TEST_F(RawMethods, DestroyingACallCancelsIt) {
  auto call = Call("Park", TextBytes("unwanted"));
  lab_.RunUntil([&] { return lab_.service.parked.size() == 1; });
  call.reset();
  lab_.RunUntil(
      [&] { return lab_.service.parked[0].controller->IsCanceled(); });
  lab_.service.parked[0].Complete();
  lab_.RunReady();
  EXPECT_TRUE(outcomes_.empty());
}

TEST_F(RawMethods, ACallMayOutliveItsClient) {
  const auto call = Call("Echo", TextBytes("hello"));
  client_.reset();
  EXPECT_EQ(outcomes_,
            std::vector<std::string>{"CANCELLED: the client was destroyed"});
}

TEST_F(RawMethods, ACallOnALostClientFailsWithTheReasonOfTheLoss) {
  lab_.server->Stop();
  lab_.RunUntil([&] { return !client_->status().ok(); });
  const auto call = Call("Echo", TextBytes("hello"));
  lab_.RunUntil([&] { return !outcomes_.empty(); });
  EXPECT_EQ(outcomes_, std::vector<std::string>{client_->status().ToString()});
}

TEST_F(RawMethods, AStreamIsOpenedById) {
  std::vector<std::string> events;
  ClientStream stream(
      *client_, IdOf("Watch"),
      [&](const StreamMessage& event) { events.push_back(event.payload()); },
      nullptr);
  EventSubscription subscription;
  *subscription.mutable_subscribe_to() = torvane::WindowId(1);
  StreamMessage message;
  message.set_payload(subscription.SerializeAsString());
  EXPECT_TRUE(stream.Send(message));
  lab_.RunReady();
  lab::Text event;
  event.set_text("closed");
  EXPECT_EQ(
      torvane::EventStream<lab::Text>::Publish(torvane::WindowId(1), event),
      1u);
  lab_.RunUntil([&] { return !events.empty(); });
  EXPECT_EQ(events[0], TextBytes("closed"));
}

}  // namespace
}  // namespace rpc::transport
