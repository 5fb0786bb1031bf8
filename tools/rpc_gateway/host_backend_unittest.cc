// The backend in front of a host in the same process.

#include "tools/rpc_gateway/host_backend.h"

#include <gtest/gtest.h>

#include <chrono>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "absl/strings/str_cat.h"
#include "core/common/rpc/stream/event_stream.h"
#include "core/common/rpc/testing/private_folder.h"
#include "core/common/rpc/testing/window_id.h"
#include "core/common/rpc/transport/testing/lab.h"
#include "rpc/event_subscription.pb.h"

namespace rpc_gateway {
namespace {

using rpc::grpc::BackendMethod;
using std::chrono::milliseconds;
using torvane::WindowId;

std::string Text(const std::string& text) {
  lab::Text message;
  message.set_text(text);
  return message.SerializeAsString();
}

class HostBackendTest : public testing::Test, private rpc::grpc::BackendSink {
 protected:
  HostBackendTest() { StartHost(); }
  ~HostBackendTest() override {
    client_.reset();
    server_.reset();
  }

  void StartHost() {
    server_.emplace(loop_);
    server_->AddService(&service_);
    EXPECT_EQ(server_->Listen(path_), absl::OkStatus());
  }
  void StopHost() { server_.reset(); }

  BackendMethod Find(const std::string& method) {
    absl::StatusOr<BackendMethod> result;
    bool found = false;
    client_->Find("lab.Lab", method, [&](const auto& found_method) {
      result = found_method;
      found = true;
    });
    EXPECT_TRUE(loop_.RunUntil([&] { return found; }));
    EXPECT_EQ(result.status(), absl::OkStatus());
    return result.value_or(BackendMethod());
  }
  void AwaitEvents(size_t count) {
    EXPECT_TRUE(loop_.RunUntil([&] { return events_.size() >= count; }));
  }
  void AwaitParked() {
    EXPECT_TRUE(loop_.RunUntil([&] { return !service_.parked.empty(); }));
  }

  rpc::loop::Loop loop_;
  const torvane::PrivateFolder folder_;
  const std::string path_ = folder_.File("host");
  rpc::transport::LabService service_;
  std::optional<rpc::transport::Server> server_;
  HostBackend backend_{loop_, path_, {}};
  std::unique_ptr<rpc::grpc::BackendClient> client_ =
      backend_.Connect("ipv4:192.0.2.1:4", *this);
  // What the sink answers to a message.
  absl::Status taken_;
  std::vector<std::string> events_;

 private:
  // rpc::grpc::BackendSink:
  void OnReply(uint64_t call_id, std::string_view response) override {
    events_.push_back(absl::StrCat("reply ", call_id, " ", response));
  }
  void OnFailure(uint64_t call_id, const absl::Status& status) override {
    events_.push_back(
        absl::StrCat("failure ", call_id, " ", status.ToString()));
  }
  absl::Status OnMessage(uint64_t stream_id,
                         const rpc::transport::StreamMessage&) override {
    events_.push_back(absl::StrCat("message ", stream_id));
    return taken_;
  }
  void OnEnd(uint64_t stream_id, const absl::Status& status) override {
    events_.push_back(absl::StrCat("end ", stream_id, " ", status.ToString()));
  }
  size_t queued_bytes() const override { return 0; }
};

using Events = std::vector<std::string>;

TEST_F(HostBackendTest, AMethodIsOfTheKindThatTheHostSays) {
  EXPECT_EQ(Find("Echo").kind, BackendMethod::Kind::kUnary);
  EXPECT_EQ(Find("Watch").kind, BackendMethod::Kind::kEvents);
  EXPECT_EQ(Find("Decide").kind, BackendMethod::Kind::kQuestions);
}

TEST_F(HostBackendTest, TheHostKnowsThePeerByItsName) {
  Find("Echo");
  EXPECT_EQ(server_->Report().connections[0].name, "grpc ipv4:192.0.2.1:4");
}

TEST_F(HostBackendTest, ADeadlineReachesTheMethod) {
  client_->Call(1, Find("Park"), std::chrono::hours(1), Text("x"));
  AwaitParked();
  ASSERT_TRUE(service_.parked[0].controller->deadline().has_value());
  service_.parked[0].Complete();
  AwaitEvents(1);
  EXPECT_EQ(events_, Events{"reply 1 " + Text("x")});
}

TEST_F(HostBackendTest, WithoutADeadlineACallMayTakeForEver) {
  client_->Call(1, Find("Park"), milliseconds(0), Text("x"));
  AwaitParked();
  EXPECT_FALSE(service_.parked[0].controller->deadline().has_value());
  service_.parked[0].Complete();
  AwaitEvents(1);
}

TEST_F(HostBackendTest, TheMethodLearnsThatACallIsCancelled) {
  client_->Call(1, Find("Park"), milliseconds(0), Text("x"));
  AwaitParked();
  client_->Cancel(1);
  EXPECT_TRUE(loop_.RunUntil(
      [&] { return service_.parked[0].controller->IsCanceled(); }));
  service_.parked[0].Complete();
  EXPECT_EQ(events_, Events{});
}

TEST_F(HostBackendTest, EveryCodeArrivesWithItsText) {
  const BackendMethod echo = Find("Echo");
  Events failures;
  for (int code = 1; code <= 16; ++code) {
    const absl::Status failure(static_cast<absl::StatusCode>(code), "because");
    service_.on_echo = [&](rpc::serving::CallContext* context) {
      context->Fail(failure);
    };
    client_->Call(code, echo, milliseconds(0), Text("x"));
    AwaitEvents(code);
    failures.push_back(absl::StrCat("failure ", code, " ", failure.ToString()));
  }
  EXPECT_EQ(events_, failures);
}

TEST_F(HostBackendTest, ACallUnderWayIsUnavailableWhenTheHostGoes) {
  client_->Call(1, Find("Park"), milliseconds(0), Text("x"));
  AwaitParked();
  StopHost();
  AwaitEvents(1);
  EXPECT_EQ(events_[0].substr(0, 22), "failure 1 UNAVAILABLE:");
  service_.parked[0].Complete();
}

TEST_F(HostBackendTest, AMessageThatIsNotTakenEndsTheStream) {
  client_->Open(1, Find("Watch"));
  rpc::EventSubscription subscription;
  *subscription.mutable_subscribe_to() = WindowId(1);
  rpc::transport::StreamMessage message;
  message.set_payload(subscription.SerializeAsString());
  EXPECT_EQ(client_->Send(1, message), absl::OkStatus());
  EXPECT_TRUE(loop_.RunUntil(
      [&] { return server_->counters().subscriptions_now == 1; }));
  taken_ = absl::ResourceExhaustedError("too slow");
  torvane::EventStream<lab::Text>::Publish(WindowId(1), lab::Text());
  AwaitEvents(2);
  EXPECT_EQ(events_,
            (Events{"message 1", "end 1 RESOURCE_EXHAUSTED: too slow"}));
  EXPECT_TRUE(
      loop_.RunUntil([&] { return server_->counters().streams_now == 0; }));
}

TEST_F(HostBackendTest, AMessageThatIsTooLongForTheHostIsRefused) {
  client_->Open(1, Find("Watch"));
  rpc::transport::StreamMessage message;
  message.set_payload(std::string(100 << 20, 'x'));
  EXPECT_EQ(client_->Send(1, message),
            absl::ResourceExhaustedError(
                "the message is longer than the host takes, or too much waits "
                "to be written to it"));
}

TEST_F(HostBackendTest, AStreamThatIsWrittenToWhileTheHostGoesIsUnavailable) {
  client_->Open(1, Find("Watch"));
  EXPECT_TRUE(
      loop_.RunUntil([&] { return server_->counters().streams_now == 1; }));
  StopHost();
  // Enough to be written at once, before the end of the host is read; more than
  // one message, since the first that fails is taken.
  rpc::transport::StreamMessage message;
  message.set_payload(std::string(60 << 10, 'x'));
  for (int i = 0; i < 10; ++i) {
    EXPECT_EQ(client_->Send(1, message), absl::OkStatus());
  }
  AwaitEvents(1);
  EXPECT_EQ(events_[0].substr(0, 18), "end 1 UNAVAILABLE:");
}

TEST_F(HostBackendTest, AMethodOfAConnectionThatIsLostIsCalledNoMore) {
  const BackendMethod echo = Find("Echo");
  const BackendMethod watch = Find("Watch");
  client_->Open(1, watch);
  StopHost();
  AwaitEvents(1);
  EXPECT_EQ(events_[0].substr(0, 18), "end 1 UNAVAILABLE:");
  events_.clear();
  StartHost();
  // The new connection has other numbers, for all that is known.
  bool connected = false;
  EXPECT_TRUE(loop_.RunUntil([&] {
    client_->Find("lab.Lab", "Echo",
                  [&](const auto& method) { connected = method.ok(); });
    return connected;
  }));
  client_->Call(2, echo, milliseconds(0), Text("x"));
  client_->Open(3, watch);
  AwaitEvents(2);
  EXPECT_EQ(events_[0].substr(0, 22), "failure 2 UNAVAILABLE:");
  EXPECT_EQ(events_[1].substr(0, 18), "end 3 UNAVAILABLE:");
}

}  // namespace
}  // namespace rpc_gateway
