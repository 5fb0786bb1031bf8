// What a gRPC client sees of how its method is found: by a backend that finds
// what the test says.

#include <gtest/gtest.h>

#include <chrono>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <utility>

#include "absl/strings/str_cat.h"
#include "core/common/rpc/grpc/backend.h"
#include "core/common/rpc/grpc/front.h"
#include "core/common/rpc/grpc/testing/test_client.h"
#include "core/common/rpc/loop/loop.h"

namespace rpc::grpc {
namespace {

constexpr char kMethod[] = "/lab.Lab/Changing";

// Has one method, which echoes, whatever its kind.
class ChangingBackend final : public Backend {
 public:
  std::unique_ptr<BackendClient> Connect(const std::string&,
                                         BackendSink& sink) override {
    return std::make_unique<Client>(*this, sink);
  }

  // Nothing is found while there is none.
  std::optional<BackendMethod::Kind> kind;
  int searches = 0;
  // A stream is to end.
  std::function<void()> on_end = [] {};

 private:
  class Client final : public BackendClient {
   public:
    Client(ChangingBackend& backend, BackendSink& sink)
        : backend_(backend), sink_(sink) {}

    void Find(std::string_view,
              std::string_view,
              FoundCallback on_found) override {
      ++backend_.searches;
      if (backend_.kind) {
        on_found(BackendMethod{.kind = *backend_.kind});
      }
    }
    void Call(uint64_t id,
              const BackendMethod&,
              std::chrono::milliseconds,
              const std::string& request) override {
      sink_.OnReply(id, request);
    }
    void Cancel(uint64_t) override {}
    void Open(uint64_t, const BackendMethod&) override {}
    absl::Status Send(uint64_t id, transport::StreamMessage& message) override {
      return sink_.OnMessage(id, message);
    }
    absl::Status Decline(uint64_t, transport::StreamMessage&) override {
      return absl::OkStatus();
    }
    void End(uint64_t) override { backend_.on_end(); }

   private:
    ChangingBackend& backend_;
    BackendSink& sink_;
  };
};

class FindingTest : public testing::Test {
 protected:
  void SetUp() override {
    const auto port = front_.Listen("127.0.0.1:0");
    ASSERT_EQ(port.status(), absl::OkStatus());
    client_.emplace(loop_, absl::StrCat("127.0.0.1:", *port));
  }

  template <typename Condition>
  void RunUntil(const Condition& condition) {
    EXPECT_TRUE(loop_.RunUntil(condition));
  }
  void CallOnce() {
    const auto call = client_->Call(kMethod, "hello");
    RunUntil([&] { return call->over; });
    EXPECT_EQ(call->status, absl::OkStatus());
    EXPECT_EQ(call->response, "hello");
  }

  loop::Loop loop_;
  ChangingBackend backend_;
  Front front_{loop_, backend_};
  std::optional<TestClient> client_;
};

TEST_F(FindingTest, ACallIsAnsweredAgainAndAgain) {
  backend_.kind = BackendMethod::Kind::kUnary;
  CallOnce();
  CallOnce();
  EXPECT_EQ(backend_.searches, 2);
}

TEST_F(FindingTest, ACallOfAKnownMethodWithoutARequestIsInvalid) {
  backend_.kind = BackendMethod::Kind::kUnary;
  CallOnce();
  const auto stream = client_->Open(kMethod);
  stream->HalfClose();
  RunUntil([&] { return stream->over; });
  EXPECT_EQ(stream->status,
            absl::InvalidArgumentError("a call without a request"));
}

TEST_F(FindingTest, ACallOfAKnownMethodThatIsNeverMadeIsOverWhenItsTimeIs) {
  backend_.kind = BackendMethod::Kind::kUnary;
  CallOnce();
  const auto stream =
      client_->Open(kMethod, {.timeout = std::chrono::milliseconds(100)});
  RunUntil([&] { return stream->over; });
  EXPECT_TRUE(absl::IsDeadlineExceeded(stream->status)) << stream->status;
}

// The host came back as another one.
TEST_F(FindingTest, AStreamIsTakenBeforeItsFirstMessageWhereACallWasBefore) {
  backend_.kind = BackendMethod::Kind::kUnary;
  CallOnce();
  front_.SetNotServing();
  backend_.kind = BackendMethod::Kind::kEvents;
  const auto stream = client_->Open(kMethod);
  RunUntil([&] { return stream->accepted; });
  EXPECT_FALSE(stream->over);
}

TEST_F(FindingTest, AStreamThatBeginsBetweenTheEndsOfOthersIsToldToo) {
  backend_.kind = BackendMethod::Kind::kEvents;
  const auto first = client_->Open(kMethod);
  RunUntil([&] { return first->accepted; });
  const auto last = client_->Open(kMethod);
  RunUntil([&] { return last->accepted; });
  std::shared_ptr<TestStream> late;
  backend_.on_end = [&] {
    if (late != nullptr) {
      return;
    }
    late = client_->Open(kMethod);
    RunUntil([&] { return first->over && late->over; });
    EXPECT_FALSE(last->over);
  };
  bool stopped = false;
  front_.Stop(std::chrono::hours(1), [&] { stopped = true; });
  RunUntil([&] { return stopped && first->over && last->over; });
  for (const auto& stream : {first, late, last}) {
    EXPECT_EQ(stream->status, absl::UnavailableError("the server is stopping"));
  }
}

// It may have come to gRPC before the front stops or after that.
TEST_F(FindingTest, ACallOfAKnownMethodThatIsNeverMadeIsNotWaitedFor) {
  backend_.kind = BackendMethod::Kind::kUnary;
  CallOnce();
  const auto stream = client_->Open(kMethod);
  // What was sent on the same connection before is there, or nearly so.
  CallOnce();
  bool stopped = false;
  front_.Stop(std::chrono::hours(1), [&] { stopped = true; });
  RunUntil([&] { return stopped && stream->over; });
  EXPECT_TRUE(absl::IsUnavailable(stream->status)) << stream->status;
}

TEST_F(FindingTest, WhatHasFoundNoMethodYetEndsWhenTheFrontStops) {
  const auto call = client_->Call(kMethod, "hello");
  const auto stream = client_->Open(kMethod);
  RunUntil([&] { return backend_.searches == 2; });
  bool stopped = false;
  front_.Stop(std::chrono::hours(1), [&] { stopped = true; });
  RunUntil([&] { return stopped; });
  RunUntil([&] { return call->over && stream->over; });
  EXPECT_EQ(call->status, absl::UnavailableError("the server is stopping"));
  EXPECT_EQ(stream->status, absl::UnavailableError("the server is stopping"));
}

}  // namespace
}  // namespace rpc::grpc
