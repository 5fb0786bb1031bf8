#include "core/common/rpc/serving/calls.h"

#include <google/protobuf/wrappers.pb.h>
#include <gtest/gtest.h>

#include <chrono>
#include <functional>
#include <memory>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "absl/strings/str_cat.h"
#include "core/common/rpc/testing/manual_sequence.h"
#include "rpc/browser/browser_window.rpc.h"

namespace rpc::serving {
namespace {

using google::protobuf::BoolValue;
using google::protobuf::Closure;
using google::protobuf::RpcController;
using std::chrono::milliseconds;

constexpr milliseconds kForEver{0};

// Does with a call of IsVisible what the test says.
class Service final : public BrowserWindowRpc {
 public:
  using Method =
      std::function<void(CallContext& context, BoolValue* response, Closure*)>;

  void IsVisible(RpcController* controller,
                 const BrowserId*,
                 BoolValue* response,
                 Closure* done) override {
    method(CallContext::Of(controller), response, done);
  }

  Method method;
};

// A client without a transport: writes down what it would be sent.
class CallsTest : public ::testing::Test, public ReplySink {
 protected:
  CallsTest() {
    methods_.Add(&service_);
    client_.set_name("tester");
    service_.method = [this](CallContext& context, BoolValue*, Closure* done) {
      context_ = &context;
      done_ = done;
    };
  }
  ~CallsTest() override {
    calls_->AbandonAll();
    pool_->Close();
  }

  absl::Status Start(uint64_t id,
                     milliseconds timeout = kForEver,
                     const std::string& method = "IsVisible",
                     const std::string& request = "") {
    const auto* descriptor =
        BrowserWindowRpc::descriptor()->FindMethodByName(method);
    return calls_->Start(id, static_cast<uint32_t>(descriptor->index()),
                         timeout, request);
  }
  std::vector<std::string> TakeSent() { return std::exchange(sent_, {}); }

  using Sent = std::vector<std::string>;

  loop::ManualSequence sequence_;
  const std::shared_ptr<Counters> counters_ = std::make_shared<Counters>();
  Limits limits_;
  Service service_;
  ServedMethods methods_;
  ClientRecord client_{{4711, 1000}, *counters_};
  const std::shared_ptr<CallPool> pool_ =
      std::make_shared<CallPool>(sequence_, counters_);
  std::unique_ptr<Calls> calls_ =
      std::make_unique<Calls>(*this, methods_, limits_, *pool_, client_);
  // What the client was sent, and what a test writes down in between.
  Sent sent_;
  // Of the last call of IsVisible.
  CallContext* context_ = nullptr;
  Closure* done_ = nullptr;

 private:
  void SendReply(uint64_t id,
                 const google::protobuf::Message& response) override {
    sent_.push_back(
        absl::StrCat("reply ", id, " {", response.ShortDebugString(), "}"));
  }
  void SendError(uint64_t id, const absl::Status& status) override {
    sent_.push_back(absl::StrCat("error ", id, " ", status.ToString()));
  }
};

// Runs `task` on the sequence, as a transport does.
void RunOn(loop::ManualSequence& sequence, std::function<void()> task) {
  sequence.Post(std::move(task));
  sequence.Run();
}

TEST_F(CallsTest, AReplyTakesItsPlaceWhenTheClosureIsRunWithinTheMethod) {
  service_.method = [this](CallContext&, BoolValue* response, Closure* done) {
    response->set_value(true);
    sent_.emplace_back("before");
    done->Run();
    sent_.emplace_back("after");
  };
  RunOn(sequence_, [&] { EXPECT_TRUE(Start(1).ok()); });
  EXPECT_EQ(TakeSent(), (Sent{"before", "reply 1 {value: true}", "after"}));
}

TEST_F(CallsTest, AReplyTakesItsPlaceWhenTheClosureIsRunLater) {
  EXPECT_TRUE(Start(1).ok());
  EXPECT_EQ(TakeSent(), Sent());
  RunOn(sequence_, [&] {
    sent_.emplace_back("before");
    done_->Run();
    sent_.emplace_back("after");
  });
  EXPECT_EQ(TakeSent(), (Sent{"before", "reply 1 {}", "after"}));
}

TEST_F(CallsTest, OnAnotherThreadTheClosureOnlyPostsTheReply) {
  EXPECT_TRUE(Start(1).ok());
  std::thread([&] { done_->Run(); }).join();
  EXPECT_EQ(TakeSent(), Sent());
  EXPECT_EQ(sequence_.Run(), 1u);
  EXPECT_EQ(TakeSent(), Sent{"reply 1 {}"});
}

TEST_F(CallsTest, AMethodLearnsWhoCallsAndUntilWhen) {
  EXPECT_TRUE(Start(1, milliseconds(250)).ok());
  EXPECT_EQ(context_->peer(), "tester (pid 4711)");
  EXPECT_EQ(context_->deadline(), sequence_.Now() + milliseconds(250));
  Closure* const first = done_;
  EXPECT_TRUE(Start(2).ok());
  EXPECT_EQ(context_->deadline(), std::nullopt);
  RunOn(sequence_, [&] {
    first->Run();
    done_->Run();
  });
}

TEST_F(CallsTest, ADeadlineEndsTheCallAndTellsTheMethod) {
  EXPECT_TRUE(Start(1, milliseconds(250)).ok());
  sequence_.Advance(milliseconds(249));
  EXPECT_FALSE(context_->IsCanceled());
  sequence_.Advance(milliseconds(1));
  EXPECT_TRUE(context_->IsCanceled());
  EXPECT_EQ(TakeSent(),
            Sent{"error 1 DEADLINE_EXCEEDED: the deadline has passed"});
  // It counts until its method is done with it.
  EXPECT_EQ(calls_->size(), 1u);
  RunOn(sequence_, [&] { done_->Run(); });
  EXPECT_EQ(TakeSent(), Sent());
  EXPECT_EQ(calls_->size(), 0u);
  EXPECT_EQ(counters_->results_late, 1u);
}

TEST_F(CallsTest, ADeadlinePassesAlsoWhileTheMethodRunsTheSequence) {
  service_.method = [this](CallContext& context, BoolValue*, Closure* done) {
    sequence_.Advance(milliseconds(250));
    EXPECT_TRUE(context.IsCanceled());
    done->Run();
  };
  RunOn(sequence_, [&] { EXPECT_TRUE(Start(1, milliseconds(250)).ok()); });
  EXPECT_EQ(TakeSent(),
            Sent{"error 1 DEADLINE_EXCEEDED: the deadline has passed"});
  EXPECT_EQ(calls_->size(), 0u);
}

// Else the call would be another client's when its method returns.
TEST_F(CallsTest, ACallIsNotUsedAgainWhileItsMethodIsOnTheStack) {
  const Service::Method keep = service_.method;
  service_.method = [&](CallContext&, BoolValue*, Closure* done) {
    done->Run();
    service_.method = keep;
    for (uint64_t id = 2; id < 2 + 2 * kIdleCalls; ++id) {
      EXPECT_TRUE(Start(id).ok());
      EXPECT_NE(done_, done);
      done_->Run();
    }
  };
  RunOn(sequence_, [&] { EXPECT_TRUE(Start(1, milliseconds(250)).ok()); });
  EXPECT_EQ(calls_->size(), 0u);
  EXPECT_EQ(sequence_.timers(), 0u);
}

TEST_F(CallsTest, ACallThatIsOverLeavesNoTimer) {
  EXPECT_TRUE(Start(1, milliseconds(250)).ok());
  EXPECT_EQ(sequence_.timers(), 1u);
  RunOn(sequence_, [&] { done_->Run(); });
  EXPECT_EQ(sequence_.timers(), 0u);
  EXPECT_TRUE(Start(2, milliseconds(250)).ok());
  calls_->Cancel(2);
  EXPECT_EQ(sequence_.timers(), 0u);
  RunOn(sequence_, [&] { done_->Run(); });
}

TEST_F(CallsTest, ACancelledCallIsAnsweredOnce) {
  EXPECT_TRUE(Start(1).ok());
  calls_->Cancel(1);
  calls_->Cancel(1);
  EXPECT_EQ(TakeSent(), Sent{"error 1 CANCELLED: the client has cancelled it"});
  EXPECT_TRUE(context_->IsCanceled());
  RunOn(sequence_, [&] { done_->Run(); });
  EXPECT_EQ(TakeSent(), Sent());
}

TEST_F(CallsTest, AMethodMayCompleteAnotherCallWhenItHearsOfItsEnd) {
  class Completing final : public Closure {
   public:
    explicit Completing(Closure*& other) : other_(other) {}
    void Run() override { other_->Run(); }

   private:
    Closure*& other_;
  };
  EXPECT_TRUE(Start(1).ok());
  Closure* const first = done_;
  EXPECT_TRUE(Start(2).ok());
  Completing completing(done_);
  CallContext* const second = context_;
  second->NotifyOnCancel(&completing);
  RunOn(sequence_, [&] { calls_->AbandonAll(); });
  RunOn(sequence_, [&] { first->Run(); });
  EXPECT_EQ(TakeSent(), Sent());
  EXPECT_EQ(calls_->size(), 0u);
}

// Also where the counters are asked for within the end itself.
TEST_F(CallsTest, ACallThatIsGivenUpCountsAsAbandonedAndNoMore) {
  class Counting final : public Closure {
   public:
    explicit Counting(const Counters& counters) : counters_(counters) {}
    void Run() override { seen = counters_; }

    Counters seen;

   private:
    const Counters& counters_;
  };
  Counting counting(*counters_);
  EXPECT_TRUE(Start(1).ok());
  context_->NotifyOnCancel(&counting);
  calls_->Cancel(1);
  EXPECT_EQ(counting.seen.calls_now, 0u);
  EXPECT_EQ(counting.seen.calls_abandoned_now, 1u);
  EXPECT_EQ(counting.seen.calls_cancelled, 1u);
  RunOn(sequence_, [&] { done_->Run(); });
  EXPECT_EQ(counters_->calls_abandoned_now, 0u);
  EXPECT_EQ(counters_->results_late, 1u);
}

TEST_F(CallsTest, WhatCannotBeCalledIsAnsweredWithItsReason) {
  EXPECT_TRUE(calls_->Start(1, 99, kForEver, "").ok());
  EXPECT_TRUE(Start(2, kForEver, "OnCloseWindow").ok());
  EXPECT_TRUE(Start(3, kForEver, "IsVisible", "\xff").ok());
  EXPECT_TRUE(Start(4, kForEver, "Show").ok());
  EXPECT_EQ(
      TakeSent(),
      (Sent{"error 1 UNIMPLEMENTED: no method has the id 99",
            "error 2 UNIMPLEMENTED: rpc.BrowserWindow.OnCloseWindow is a "
            "stream",
            "error 3 INVALID_ARGUMENT: the request of "
            "rpc.BrowserWindow.IsVisible does not parse as a BrowserId"}));
  sequence_.Run();
  EXPECT_EQ(TakeSent(),
            Sent{"error 4 UNIMPLEMENTED: Method Show() not implemented."});
}

TEST_F(CallsTest, AnIdInUseBreaksTheProtocol) {
  EXPECT_TRUE(Start(1).ok());
  EXPECT_EQ(Start(1), absl::InvalidArgumentError("call id 1 is in use"));
  RunOn(sequence_, [&] { done_->Run(); });
  EXPECT_TRUE(Start(1).ok());
  RunOn(sequence_, [&] { done_->Run(); });
}

TEST_F(CallsTest, ACallOutlivesItsClientUntilItsMethodIsDone) {
  EXPECT_TRUE(Start(1).ok());
  calls_->AbandonAll();
  calls_.reset();
  EXPECT_TRUE(context_->IsCanceled());
  EXPECT_EQ(counters_->calls_abandoned_now, 1u);
  RunOn(sequence_, [&] { done_->Run(); });
  EXPECT_EQ(counters_->calls_abandoned_now, 0u);
  calls_ = std::make_unique<Calls>(*this, methods_, limits_, *pool_, client_);
}

using CallsDeathTest = CallsTest;

TEST_F(CallsDeathTest, CallsThatAreNotAbandonedEndTheProcess) {
  EXPECT_TRUE(Start(1).ok());
  EXPECT_DEATH(calls_.reset(), "methods would not hear that nobody waits");
  RunOn(sequence_, [&] { done_->Run(); });
}

TEST_F(CallsDeathTest, AClosureThatIsRunTwiceEndsTheProcess) {
  EXPECT_TRUE(Start(1).ok());
  Closure* const first = done_;
  RunOn(sequence_, [&] { first->Run(); });
  // The second run is still noticed after this many other calls.
  for (uint64_t id = 2; id < 1 + kIdleCalls; ++id) {
    EXPECT_TRUE(Start(id).ok());
    RunOn(sequence_, [&] { done_->Run(); });
  }
  EXPECT_DEATH(first->Run(),
               "The closure of a call of rpc.BrowserWindow.IsVisible has been "
               "run twice.");
}

}  // namespace
}  // namespace rpc::serving
