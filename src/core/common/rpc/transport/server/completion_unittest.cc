// When and where a method may complete its call.

#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "core/common/rpc/testing/recording_call.h"
#include "core/common/rpc/transport/testing/lab.h"

namespace rpc::transport {
namespace {

using lab::Lab_Stub;
using torvane::CountingClosure;

// A call of Park that has reached the service.
class ParkedCall {
 public:
  explicit ParkedCall(Lab& lab) : lab_(lab), client_(lab.NewClient()) {
    call_.Start(*client_, &Lab_Stub::Park, "parked");
    lab.RunUntil([&] { return !lab.service.parked.empty(); });
  }

  const LabService::Parked& parked() const { return lab_.service.parked[0]; }
  TextCall& call() { return call_; }
  void Disconnect() {
    client_.reset();
    lab_.RunUntil([&] { return lab_.server->counters().connections_now == 0; });
  }

 private:
  Lab& lab_;
  TextCall call_;
  std::unique_ptr<Client> client_;
};

TEST(Completion, AMethodMayCompleteOnALaterTurnOfTheLoop) {
  Lab lab;
  ParkedCall parked(lab);
  lab.RunReady();
  EXPECT_FALSE(parked.call().over());
  parked.parked().Complete();
  lab.RunUntil([&] { return parked.call().over(); });
  EXPECT_EQ(parked.call().response.text(), "parked");
}

TEST(Completion, AMethodMayCompleteOnAnotherThread) {
  Lab lab;
  ParkedCall parked(lab);
  std::thread other([&] { parked.parked().Complete(); });
  lab.RunUntil([&] { return parked.call().over(); });
  other.join();
  EXPECT_EQ(parked.call().response.text(), "parked");
}

TEST(Completion, CompletingOnAnotherThreadOnlyHandsTheCallBackToTheLoop) {
  Lab lab;
  ParkedCall parked(lab);
  std::thread::id finished_on;
  CountingClosure finished([&] { finished_on = std::this_thread::get_id(); });
  parked.parked().controller->NotifyOnCancel(&finished);
  std::thread([&] { parked.parked().Complete(); }).join();
  EXPECT_EQ(finished.runs(), 0);
  EXPECT_EQ(lab.server->counters().calls_now, 1u);
  lab.RunUntil([&] { return parked.call().over(); });
  EXPECT_EQ(finished_on, std::this_thread::get_id());
}

TEST(Completion, ManyThreadsMayCompleteAtOnce) {
  Lab lab;
  const auto client = lab.NewClient();
  constexpr size_t kCalls = 400;
  size_t over = 0;
  std::vector<std::unique_ptr<TextCall>> calls;
  for (size_t i = 0; i < kCalls; ++i) {
    calls.push_back(std::make_unique<TextCall>([&] { ++over; }));
    calls.back()->Start(*client, &Lab_Stub::Park, std::to_string(i));
  }
  lab.RunUntil([&] { return lab.service.parked.size() == kCalls; });
  std::vector<std::thread> threads;
  for (size_t start = 0; start < 4; ++start) {
    threads.emplace_back([&, start] {
      for (size_t i = start; i < kCalls; i += 4) {
        lab.service.parked[i].Complete();
      }
    });
  }
  lab.RunUntil([&] { return over == kCalls; });
  for (std::thread& thread : threads) {
    thread.join();
  }
  for (size_t i = 0; i < kCalls; ++i) {
    EXPECT_EQ(calls[i]->response.text(), std::to_string(i));
  }
}

TEST(Completion, AReplyIsDroppedWhenItsClientHasGone) {
  Lab lab;
  ParkedCall parked(lab);
  parked.Disconnect();
  EXPECT_TRUE(parked.parked().controller->IsCanceled());
  EXPECT_EQ(lab.server->counters().calls_now, 0u);
  EXPECT_EQ(lab.server->counters().results_late, 0u);
  parked.parked().Complete();
  lab.RunReady();
  EXPECT_EQ(lab.server->counters().results_late, 1u);
}

TEST(Completion, AReplyIsDroppedWhenItsServerHasGone) {
  Lab lab;
  ParkedCall parked(lab);
  lab.server.reset();
  EXPECT_TRUE(parked.parked().controller->IsCanceled());
  parked.parked().Complete();
  lab.RunReady();
  EXPECT_EQ(parked.call().controller.status(),
            absl::UnavailableError("the server is stopping"));
}

TEST(Completion, AReplyOfAnotherThreadIsDroppedWhenItsServerHasGone) {
  Lab lab;
  ParkedCall parked(lab);
  lab.server.reset();
  std::thread other([&] { parked.parked().Complete(); });
  other.join();
  lab.RunReady();
  EXPECT_TRUE(parked.call().over());
}

TEST(Completion, AMethodMayCompleteInsideItsCancelCallback) {
  Lab lab;
  ParkedCall parked(lab);
  CountingClosure completing([&] { parked.parked().Complete(); });
  parked.parked().controller->NotifyOnCancel(&completing);
  parked.Disconnect();
  EXPECT_EQ(completing.runs(), 1);
  EXPECT_EQ(lab.server->counters().results_late, 1u);
}

TEST(Completion, AMethodMayCompleteAllCallsInsideOneCancelCallback) {
  Lab lab;
  auto client = lab.NewClient();
  TextCall calls[3];
  for (TextCall& call : calls) {
    call.Start(*client, &Lab_Stub::Park, "x");
  }
  lab.RunUntil([&] { return lab.service.parked.size() == 3; });
  bool first = true;
  CountingClosure cancelled([&] {
    if (std::exchange(first, false)) {
      for (const auto& parked : lab.service.parked) {
        parked.Complete();
      }
    }
  });
  for (const auto& parked : lab.service.parked) {
    parked.controller->NotifyOnCancel(&cancelled);
  }
  client.reset();
  lab.RunUntil([&] { return lab.server->counters().connections_now == 0; });
  EXPECT_EQ(cancelled.runs(), 3);
  EXPECT_EQ(lab.server->counters().calls_now, 0u);
  EXPECT_EQ(lab.server->counters().results_late, 1u);
}

using CompletionDeathTest = ::testing::Test;

TEST(CompletionDeathTest, CompletingTwiceEndsTheProcess) {
  EXPECT_DEATH(
      {
        Lab lab;
        ParkedCall parked(lab);
        parked.parked().Complete();
        lab.RunReady();
        parked.parked().done->Run();
      },
      "The closure of a call of lab.Lab.Park has been run twice.");
}

TEST(CompletionDeathTest, CompletingTwiceInARowEndsTheProcess) {
  EXPECT_DEATH(
      {
        Lab lab;
        ParkedCall parked(lab);
        parked.parked().done->Run();
        parked.parked().done->Run();
      },
      "The closure of a call of lab.Lab.Park has been run twice.");
}

TEST(CompletionDeathTest, CompletingTwiceIsFoundOutAfterManyOtherCalls) {
  EXPECT_DEATH(
      {
        Lab lab;
        ParkedCall parked(lab);
        const auto client = lab.NewClient();
        parked.parked().Complete();
        for (int i = 0; i < 255; ++i) {
          CallText(*client, &Lab_Stub::Echo, "").IgnoreError();
        }
        parked.parked().done->Run();
      },
      "has been run twice");
}

TEST(CompletionDeathTest, FailingWithSuccessEndsTheProcess) {
  EXPECT_DEATH(
      {
        Lab lab;
        ParkedCall parked(lab);
        parked.parked().controller->Fail(absl::OkStatus());
      },
      "a call does not fail with OK");
}

}  // namespace
}  // namespace rpc::transport
