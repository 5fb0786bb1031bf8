// How streams end when their client leaves or the server stops: in which order,
// and what is served in between. The slice lasts no time at all, so that each
// turn ends a single stream.

#include "core/common/rpc/serving/ending_queue.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdint>
#include <memory>
#include <string>

#include "core/common/rpc/serving/streams_test_support.h"
#include "core/common/rpc/stream/callback_stream.h"
#include "core/common/rpc/stream/event_stream.h"
#include "core/common/rpc/testing/window_id.h"

namespace rpc::serving {
namespace {

using ::testing::IsEmpty;

class EndingQueueTest : public StreamsTest {
 protected:
  // What happens on the next turn.
  Events Turn() {
    EXPECT_TRUE(sequence_.RunOne());
    return TakeEvents();
  }
  void PostTask(const std::string& name) {
    sequence_.Post([this, name] { events_.push_back(name); });
  }
  // Another client of the same server.
  std::shared_ptr<Streams> NewClient() {
    return std::make_shared<Streams>(*endings_, *this, methods_, limits_,
                                     client_, counters_);
  }
  // Opens a stream of another client.
  static void Open(Streams& client, uint64_t id, const std::string& method) {
    const auto* descriptor =
        BrowserWindowRpc::descriptor()->FindMethodByName(method);
    EXPECT_TRUE(
        client.OnClientOpen(id, static_cast<uint32_t>(descriptor->index()))
            .ok());
  }
};

TEST_F(EndingQueueTest, StreamsOfAClientThatLeavesEndOnePerTurn) {
  OpenEvents(1);
  OpenEvents(2);
  Leave();
  EXPECT_EQ(TakeEvents(), Events());
  EXPECT_EQ(Turn(), (Events{"a completed", "a destroyed"}));
  EXPECT_EQ(counters_.streams_now, 1u);
  EXPECT_EQ(Turn(), (Events{"b completed", "b destroyed"}));
  EXPECT_EQ(counters_.streams_now, 0u);
  EXPECT_EQ(Turn(), Events{"all ended"});
  EXPECT_FALSE(sequence_.RunOne());
  streams_.reset();
}

TEST_F(EndingQueueTest, WakingItMoreThanOnceGivesItNoMoreTurns) {
  OpenEvents(1);
  Leave();
  endings_->Wake();
  endings_->Wake();
  EXPECT_EQ(Turn(), (Events{"a completed", "a destroyed"}));
  EXPECT_EQ(Turn(), Events{"all ended"});
  EXPECT_FALSE(sequence_.RunOne());
  streams_.reset();
}

TEST_F(EndingQueueTest, AStreamMayHaveAnyId) {
  OpenEvents(0);
  OpenEvents(UINT64_MAX);
  Leave();
  EXPECT_EQ(Turn(), (Events{"a completed", "a destroyed"}));
  EXPECT_EQ(Turn(), (Events{"b completed", "b destroyed"}));
  EXPECT_EQ(Turn(), Events{"all ended"});
  streams_.reset();
}

TEST_F(EndingQueueTest, AClientWithoutStreamsHasEndedAtOnce) {
  Leave();
  EXPECT_EQ(TakeEvents(), Events{"all ended"});
  EXPECT_FALSE(sequence_.RunOne());
  streams_.reset();
}

TEST_F(EndingQueueTest, OthersAreServedBetweenTwoStreams) {
  OpenEvents(1);
  OpenEvents(2);
  Leave();
  PostTask("first task");
  EXPECT_EQ(Turn(), (Events{"a completed", "a destroyed"}));
  PostTask("second task");
  EXPECT_EQ(Turn(), Events{"first task"});
  EXPECT_EQ(Turn(), (Events{"b completed", "b destroyed"}));
  EXPECT_EQ(Turn(), Events{"second task"});
}

TEST_F(EndingQueueTest, ASliceEndsAsManyStreamsAsItHasTimeFor) {
  constexpr std::chrono::nanoseconds kInstant{1};
  endings_ = std::make_shared<EndingQueue>(sequence_);
  Serve({});
  // As if the end of the stream took that long.
  OpenEvents(1).meanwhile = [&] { sequence_.Advance(kEndingSlice - kInstant); };
  OpenEvents(2).meanwhile = [&] { sequence_.Advance(kInstant); };
  OpenEvents(3);
  Leave();
  EXPECT_EQ(Turn(), (Events{"a completed", "a destroyed", "b completed",
                            "b destroyed"}));
  EXPECT_EQ(Turn(), (Events{"c completed", "c destroyed", "all ended"}));
  streams_.reset();
}

TEST_F(EndingQueueTest, StreamsWithPendingQuestionsEndFirstByTheirIds) {
  OpenEvents(1);
  EXPECT_TRUE(Ask(OpenQuestions(9), 7, 1));
  OpenQuestions(3);
  EXPECT_TRUE(Ask(OpenQuestions(2), 7, 1));
  Leave();
  TakeEvents();
  sequence_.Run();
  EXPECT_EQ(TakeEvents(), (Events{"d completed", "d destroyed", "b completed",
                                  "b destroyed", "a completed", "a destroyed",
                                  "c completed", "c destroyed", "all ended"}));
  streams_.reset();
}

TEST_F(EndingQueueTest, QuestionsOfALaterClientEndBeforeEventsOfAnEarlierOne) {
  const auto other = NewClient();
  OpenEvents(1);
  OpenEvents(2);
  Open(*other, 1, "WhenBrowserWindowClosed");
  Open(*other, 2, "OnCloseWindow");
  EXPECT_TRUE(Ask(*service_.streams.back(), 8, 1));
  Leave();
  TakeEvents();
  EXPECT_EQ(Turn(), (Events{"a completed", "a destroyed"}));
  other->Close([this] { events_.emplace_back("other ended"); });
  EXPECT_EQ(Turn(), (Events{"d completed", "d destroyed"}));
  EXPECT_EQ(Turn(), (Events{"b completed", "b destroyed"}));
  // The end of one client takes no turn of the others.
  EXPECT_EQ(Turn(), (Events{"all ended", "c completed", "c destroyed"}));
  EXPECT_EQ(Turn(), Events{"other ended"});
  streams_.reset();
}

TEST_F(EndingQueueTest, NothingIsSentToAClientThatHasLeft) {
  ProbeStream& events = OpenEvents(1);
  ProbeStream& questions = OpenQuestions(2);
  Leave();
  EXPECT_FALSE(events.Say());
  EXPECT_FALSE(Ask(questions, 7, 1));
  questions.Finish();
  EXPECT_EQ(TakeEvents(), Events());
  sequence_.Run();
  EXPECT_EQ(TakeEvents(), (Events{"a completed", "a destroyed", "b completed",
                                  "b destroyed", "all ended"}));
  streams_.reset();
}

TEST_F(EndingQueueTest, SubscriptionsCountUntilTheirStreamHasEnded) {
  OpenEvents(1);
  Listen(1, 7);
  OpenEvents(2);
  Listen(2, 7);
  Listen(2, 8);
  Leave();
  EXPECT_EQ(counters_.subscriptions_now, 3u);
  Turn();
  EXPECT_EQ(counters_.subscriptions_now, 2u);
  Turn();
  EXPECT_EQ(counters_.subscriptions_now, 0u);
}

// The server stops.

TEST_F(EndingQueueTest, AtAStopAllStreamsUnsubscribeBeforeTheFirstEnds) {
  const auto other = NewClient();
  OpenEvents(1);
  Listen(1, 7);
  Open(*other, 1, "WhenBrowserWindowClosed");
  OpenQuestions(2);
  AnswerFor(2, 7);
  Leave();
  other->Close([this] { events_.emplace_back("other ended"); });
  TakeEvents();
  endings_->EndSubscriptionsFirst();
  EXPECT_EQ(Turn(), Events{"a next"});
  EXPECT_EQ(Turn(), Events{"c next"});
  EXPECT_EQ(counters_.subscriptions_now, 0u);
  EXPECT_EQ(Turn(), (Events{"a completed", "a destroyed"}));
  sequence_.Run();
  EXPECT_EQ(TakeEvents(),
            (Events{"c completed", "c destroyed", "all ended", "b completed",
                    "b destroyed", "other ended"}));
  streams_.reset();
}

// They would be cancelled in another order.
TEST_F(EndingQueueTest, AtAStopAStreamWithPendingQuestionsKeepsItsWindows) {
  ProbeStream& stream = OpenQuestions(1);
  AnswerFor(1, 7);
  EXPECT_TRUE(Ask(stream, 7, 1));
  Leave();
  TakeEvents();
  endings_->EndSubscriptionsFirst();
  EXPECT_EQ(Turn(), (Events{"a completed", "a destroyed"}));
}

TEST_F(EndingQueueTest, AStopThatFindsAClientLeavingEndsItsSubscriptionsToo) {
  OpenEvents(1);
  OpenEvents(2);
  Listen(2, 7);
  Leave();
  TakeEvents();
  EXPECT_EQ(Turn(), (Events{"a completed", "a destroyed"}));
  endings_->EndSubscriptionsFirst();
  EXPECT_EQ(Turn(), Events{"b next"});
  EXPECT_EQ(Turn(), (Events{"b completed", "b destroyed"}));
}

TEST_F(EndingQueueTest, FinishAllEndsEverythingInTheMiddleOfItsSlices) {
  OpenEvents(1);
  OpenEvents(2);
  OpenQuestions(3);
  Leave();
  EXPECT_EQ(Turn(), (Events{"a completed", "a destroyed"}));
  endings_->FinishAll();
  EXPECT_EQ(TakeEvents(), (Events{"b completed", "b destroyed", "c completed",
                                  "c destroyed", "all ended"}));
  sequence_.Run();
  EXPECT_THAT(TakeEvents(), IsEmpty());
  streams_.reset();
}

TEST_F(EndingQueueTest, FinishAllLeavesTheQueueReadyForTheNextClient) {
  endings_->FinishAll();
  OpenEvents(1);
  Leave();
  EXPECT_EQ(Turn(), (Events{"a completed", "a destroyed"}));
}

// Loops that are run inside of one another.

TEST_F(EndingQueueTest, NoStreamEndsWhileAFrameOfItsClientIsHandled) {
  OpenEvents(1).meanwhile = [this] {
    Leave();
    sequence_.Run();
    events_.emplace_back("back");
  };
  OpenEvents(2);
  ListenMore(1);
  EXPECT_EQ(TakeEvents(), (Events{"a next", "back"}));
  sequence_.Run();
  EXPECT_EQ(TakeEvents(), (Events{"a completed", "a destroyed", "b completed",
                                  "b destroyed", "all ended"}));
  streams_.reset();
}

TEST_F(EndingQueueTest, AClientWhoseFrameIsHandledHoldsUpNoOther) {
  const auto other = NewClient();
  Open(*other, 1, "WhenBrowserWindowClosed");
  OpenEvents(1).meanwhile = [&] {
    Leave();
    other->Close([this] { events_.emplace_back("other ended"); });
    sequence_.Run();
    events_.emplace_back("back");
  };
  ListenMore(1);
  EXPECT_EQ(TakeEvents(), (Events{"b next", "a completed", "a destroyed",
                                  "other ended", "back"}));
  sequence_.Run();
  EXPECT_EQ(TakeEvents(), (Events{"b completed", "b destroyed", "all ended"}));
  streams_.reset();
}

TEST_F(EndingQueueTest, AStreamThatRunsTheLoopWhileItEndsEndsOnce) {
  OpenEvents(1).meanwhile = [this] {
    sequence_.Run();
    events_.emplace_back("back");
  };
  OpenEvents(2);
  Leave();
  sequence_.Run();
  EXPECT_EQ(TakeEvents(), (Events{"a completed", "back", "a destroyed",
                                  "b completed", "b destroyed", "all ended"}));
  streams_.reset();
}

// The end of the client meets a stream that it has ended itself.
TEST_F(EndingQueueTest, AStreamThatIsEndingWhenItsClientLeavesEndsOnce) {
  ProbeStream& first = OpenEvents(1);
  OpenEvents(2);
  first.meanwhile = [&] {
    first.meanwhile = [this] {
      Leave();
      sequence_.Run();
      events_.emplace_back("back");
    };
    first.Finish();
  };
  ListenMore(1);
  EXPECT_EQ(TakeEvents(),
            (Events{"a next", "end 1 OK", "a completed", "b completed",
                    "b destroyed", "back", "a destroyed"}));
  sequence_.Run();
  EXPECT_EQ(TakeEvents(), Events{"all ended"});
  streams_.reset();
}

TEST_F(EndingQueueTest, NothingRunsWhenTheQueueIsGone) {
  auto queue = std::make_shared<EndingQueue>(sequence_);
  queue->Wake();
  const std::weak_ptr<EndingQueue> watch = queue;
  queue.reset();
  EXPECT_TRUE(watch.expired());
  EXPECT_EQ(sequence_.Run(), 1u);
}

// With the streams of the system itself.
class EndingRealStreams : public ::testing::Test, public StreamSink {
 protected:
  EndingRealStreams() { methods_.Add(&service_); }

  void Open(uint64_t id, const std::string& method) {
    const auto* descriptor =
        BrowserWindowRpc::descriptor()->FindMethodByName(method);
    EXPECT_TRUE(
        streams_->OnClientOpen(id, static_cast<uint32_t>(descriptor->index()))
            .ok());
  }
  template <typename Message>
  void Data(uint64_t id, const Message& payload) {
    transport::StreamMessage message;
    payload.SerializeToString(message.mutable_payload());
    streams_->OnClientData(id, &message);
  }
  void AnswerFor(uint64_t id, int64_t window) {
    CloseWindow subscribe;
    subscribe.mutable_browser_id()->set_value(window);
    subscribe.set_subscribe(true);
    Data(id, subscribe);
  }
  // Writes down how the question ends.
  bool Ask(int64_t window, const std::string& name) {
    CloseWindow question;
    question.mutable_browser_id()->set_value(window);
    question.mutable_question();
    return torvane::CallbackStream<CloseWindow>::Ask(
        question,
        {.response_callback =
             [this, name](CloseWindow&) {
               events_.push_back(name + " answered");
             },
         .error_callback =
             [this, name](torvane::StreamCallError error) {
               events_.push_back(name +
                                 (error == torvane::StreamCallError::kCancelled
                                      ? " cancelled"
                                      : " failed"));
             }});
  }
  void Leave() {
    streams_->Close([this] { events_.emplace_back("all ended"); });
  }

  absl::Status SendMessage(OutgoingStream&,
                           const transport::StreamMessage&) override {
    return absl::OkStatus();
  }
  void SendEnd(uint64_t, const absl::Status&) override {}

  BrowserWindowRpc service_;
  ServedMethods methods_;
  loop::ManualSequence sequence_;
  const std::shared_ptr<EndingQueue> endings_ =
      std::make_shared<EndingQueue>(sequence_, std::chrono::milliseconds(0));
  Counters counters_;
  const Limits limits_;
  ClientRecord client_{{4711, 1000}, counters_};
  Events events_;
  std::shared_ptr<Streams> streams_ = std::make_shared<Streams>(*endings_,
                                                                *this,
                                                                methods_,
                                                                limits_,
                                                                client_,
                                                                counters_);
};

TEST_F(EndingRealStreams, EachQuestionOfAClientThatLeavesIsCancelledOnce) {
  Open(5, "WhenBrowserWindowClosed");
  Open(8, "OnCloseWindow");
  Open(6, "OnCloseWindow");
  AnswerFor(8, 1);
  AnswerFor(6, 2);
  EXPECT_TRUE(Ask(1, "first"));
  EXPECT_TRUE(Ask(2, "second"));
  EXPECT_TRUE(Ask(1, "third"));
  Leave();
  // Nobody can be asked any more, also where the stream has yet to end.
  EXPECT_FALSE(Ask(1, "late"));
  EXPECT_EQ(events_, Events());
  EXPECT_TRUE(sequence_.RunOne());
  EXPECT_EQ(events_, Events{"second cancelled"});
  EXPECT_TRUE(sequence_.RunOne());
  EXPECT_EQ(events_,
            (Events{"second cancelled", "first cancelled", "third cancelled"}));
  sequence_.Run();
  EXPECT_EQ(events_, (Events{"second cancelled", "first cancelled",
                             "third cancelled", "all ended"}));
}

// The end of a stream would else leave its address with each window that it
// shares, for good.
TEST_F(EndingRealStreams, NothingStaysOfWindowsThatStreamsHaveShared) {
  constexpr int64_t kWindows = 5;
  using Registry = torvane::EventStream<BrowserWindowClosed>;
  ASSERT_TRUE(Registry::stream_map_.empty());
  const auto listen = [this](uint64_t id) {
    Open(id, "WhenBrowserWindowClosed");
    for (int64_t window = 1; window <= kWindows; ++window) {
      EventSubscription subscription;
      subscription.mutable_subscribe_to()->set_value(window);
      Data(id, subscription);
    }
  };
  listen(1);
  listen(2);
  streams_->OnClientEnd(2);
  ASSERT_EQ(Registry::stream_map_.size(), kWindows);
  for (const auto& [window, streams] : Registry::stream_map_) {
    EXPECT_EQ(streams.size(), 1u);
  }
  listen(3);
  Leave();
  sequence_.Run();
  EXPECT_TRUE(Registry::stream_map_.empty());
  EXPECT_EQ(events_, Events{"all ended"});
}

TEST_F(EndingRealStreams, AtAStopTheFirstStreamThatEndsFindsAnEmptyRegistry) {
  constexpr int64_t kWindows = 5;
  using Registry = torvane::EventStream<BrowserWindowClosed>;
  ASSERT_TRUE(Registry::stream_map_.empty());
  for (const uint64_t id : {1, 2}) {
    Open(id, "WhenBrowserWindowClosed");
    for (int64_t window = 1; window <= kWindows; ++window) {
      EventSubscription subscription;
      // The streams share one of them.
      subscription.mutable_subscribe_to()->set_value(
          window == 1 ? 1 : static_cast<int64_t>(id) * 100 + window);
      Data(id, subscription);
    }
  }
  EXPECT_EQ(Registry::stream_map_.size(), 2 * kWindows - 1);
  Leave();
  endings_->EndSubscriptionsFirst();
  for (int64_t i = 0; i < 2 * kWindows; ++i) {
    EXPECT_TRUE(sequence_.RunOne());
  }
  EXPECT_TRUE(Registry::stream_map_.empty());
  EXPECT_EQ(counters_.streams_now, 2u);
  sequence_.Run();
  EXPECT_EQ(counters_.streams_now, 0u);
  EXPECT_EQ(events_, Events{"all ended"});
}

}  // namespace
}  // namespace rpc::serving
