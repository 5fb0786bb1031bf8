// What a method publishes and asks before it runs its closure reaches the
// client before the reply, and what it publishes and asks after that reaches
// the client after the reply, over each transport that keeps order at all.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <iterator>
#include <vector>

#include "core/common/rpc/conformance/conformance_test_support.h"
#include "core/common/rpc/conformance/scripted_service.h"
#include "core/common/rpc/conformance/transport_under_test.h"
#include "rpc/browser/browser_window.rpc.h"

namespace rpc::conformance {
namespace {

using testing::ElementsAre;

class Order : public Conformance {
 protected:
  // The title has the service write about window 7 before and about window 8
  // after its reply.
  void ExpectWritesToStayOnTheirSideOfTheReply(const char* title) {
    LinkStream& events = link_->Open(kWhenClosed);
    LinkStream& questions = link_->Open(kOnCloseWindow);
    for (const int64_t window : {7, 8}) {
      events.Send(SubscribeToEvents(window));
      questions.Send(SubscribeToQuestions(window));
    }
    AwaitAllHandled();

    std::vector<int64_t> events_before;
    std::vector<int64_t> questions_before;
    LinkCall& call = SetTitle(7, title);
    call.on_over = [&] {
      events_before = WindowsOf<BrowserWindowClosed>(events);
      questions_before = WindowsOf<CloseWindow>(questions);
    };
    Await(call);
    EXPECT_THAT(events_before, ElementsAre(7));
    EXPECT_THAT(questions_before, ElementsAre(7));

    Await(events, 2);
    Await(questions, 2);
    EXPECT_THAT(WindowsOf<BrowserWindowClosed>(events), ElementsAre(7, 8));
    EXPECT_THAT(WindowsOf<CloseWindow>(questions), ElementsAre(7, 8));
  }
};

TEST_P(Order, WritesStayOnTheirSideOfAReplyGivenAtOnce) {
  ExpectWritesToStayOnTheirSideOfTheReply(kWriteAroundReply);
}

TEST_P(Order, WritesStayOnTheirSideOfAReplyGivenOnALaterTurn) {
  ExpectWritesToStayOnTheirSideOfTheReply(kWriteAroundLateReply);
}

std::vector<TransportUnderTest> TransportsThatKeepOrder() {
  std::vector<TransportUnderTest> transports;
  std::ranges::copy_if(kTransports, std::back_inserter(transports),
                       &TransportUnderTest::keeps_order);
  return transports;
}

INSTANTIATE_TEST_SUITE_P(Over,
                         Order,
                         testing::ValuesIn(TransportsThatKeepOrder()),
                         testing::PrintToStringParamName());

}  // namespace
}  // namespace rpc::conformance
