// When streams are opened, completed and destroyed; what they may send and be
// sent is in streams_limits_unittest.cc.

#include "core/common/rpc/serving/streams.h"

#include <gtest/gtest.h>

#include <memory>

#include "core/common/rpc/serving/streams_test_support.h"

namespace rpc::serving {
namespace {

// Opening.

TEST_F(StreamsTest, EachFrameReachesItsStream) {
  OpenEvents(7);
  OpenEvents(8);
  ListenMore(8);
  Error(7);
  ListenMore(7);
  EXPECT_EQ(TakeEvents(), (Events{"b next", "a error", "a next"}));
  EXPECT_EQ(counters_.streams_opened, 2u);
  EXPECT_EQ(counters_.streams_now, 2u);
  EXPECT_EQ(Report().streams, 2u);
}

TEST_F(StreamsTest, AClientIsToldWhyAMethodIsNoStream) {
  EXPECT_TRUE(streams_->OnClientOpen(7, 1000).ok());
  EXPECT_TRUE(TryOpen(7, "Show").ok());
  EXPECT_EQ(TakeEvents(),
            (Events{"end 7 UNIMPLEMENTED: no method has the id 1000",
                    "end 7 UNIMPLEMENTED: rpc.BrowserWindow.Show is not a "
                    "stream"}));
  EXPECT_EQ(counters_.streams_refused, 2u);
  EXPECT_EQ(counters_.streams_opened, 0u);
  // Neither id is in use.
  OpenEvents(7);
}

TEST_F(StreamsTest, AnIdInUseBreaksTheProtocol) {
  ProbeStream& stream = OpenEvents(7);
  const absl::Status in_use =
      absl::InvalidArgumentError("stream id 7 is in use");
  EXPECT_EQ(TryOpen(7, "WhenBrowserWindowClosed"), in_use);
  // Also until an ended stream is destroyed.
  stream.Finish();
  EXPECT_EQ(TryOpen(7, "WhenBrowserWindowClosed"), in_use);
  sequence_.Run();
  EXPECT_TRUE(TryOpen(7, "WhenBrowserWindowClosed").ok());
  EXPECT_EQ(service_.streams.size(), 2u);
}

TEST_F(StreamsTest, StreamsBeyondTheLimitAreRefusedAndTheRestGoOn) {
  Serve({.max_streams = 2});
  OpenEvents(1);
  OpenQuestions(2);
  EXPECT_TRUE(TryOpen(3, "WhenBrowserWindowClosed").ok());
  EXPECT_EQ(TakeEvents(),
            Events{"end 3 RESOURCE_EXHAUSTED: max_streams, 2, are open"});
  EXPECT_EQ(counters_.limit_hits.max_streams, 1u);
  EXPECT_EQ(counters_.streams_refused, 1u);
  ListenMore(1);
  EXPECT_EQ(TakeEvents(), Events{"a next"});
  streams_->OnClientEnd(1);
  OpenEvents(3);
  EXPECT_EQ(service_.streams.size(), 3u);
}

// The client's end.

TEST_F(StreamsTest, TheClientsEndCompletesAndDestroysTheStream) {
  OpenEvents(7);
  streams_->OnClientEnd(7);
  EXPECT_EQ(TakeEvents(), (Events{"a completed", "end 7 OK", "a destroyed"}));
  EXPECT_EQ(counters_.streams_now, 0u);
}

TEST_F(StreamsTest, AStreamThatForgetsToCompleteEndsAllTheSame) {
  OpenEvents(7).completes = false;
  streams_->OnClientEnd(7);
  EXPECT_EQ(TakeEvents(), (Events{"a completed", "end 7 OK", "a destroyed"}));
}

TEST_F(StreamsTest, AStreamThatEndsIsUnsubscribedFromWhatOthersHaveToo) {
  OpenEvents(1);
  OpenEvents(2);
  for (const int64_t window : {10, 11, 12}) {
    Listen(1, window);
  }
  Listen(2, 12);
  Listen(2, 13);
  TakeEvents();
  streams_->OnClientEnd(1);
  // From 12.
  EXPECT_EQ(TakeEvents(),
            (Events{"a next", "a completed", "end 1 OK", "a destroyed"}));
  EXPECT_EQ(counters_.subscriptions_now, 2u);
  streams_->OnClientEnd(2);
  EXPECT_EQ(TakeEvents(), (Events{"b completed", "end 2 OK", "b destroyed"}));
}

TEST_F(StreamsTest, WhatAStreamIsUnsubscribedFromNoLongerCounts) {
  ProbeStream& stream = OpenEvents(1);
  OpenEvents(2);
  for (const int64_t window : {7, 8, 9}) {
    Listen(1, window);
    Listen(2, window);
  }
  EXPECT_EQ(counters_.subscriptions_now, 6u);
  stream.meanwhile = [&] { EXPECT_EQ(counters_.subscriptions_now, 3u); };
  streams_->OnClientEnd(1);
  EXPECT_EQ(counters_.subscriptions_now, 3u);
}

TEST_F(StreamsTest, AStreamThatIsCutOffIsUnsubscribedFromWhatOthersHaveToo) {
  Limits limits;
  limits.max_subscriptions = 2;
  Serve(limits);
  OpenEvents(1);
  OpenEvents(2);
  Listen(1, 10);
  Listen(2, 10);
  TakeEvents();
  Listen(2, 11);
  EXPECT_EQ(TakeEvents(),
            (Events{"end 2 RESOURCE_EXHAUSTED: max_subscriptions, 2, are in "
                    "place",
                    "b next", "b completed", "b destroyed"}));
}

TEST_F(StreamsTest, AStreamOfQuestionsKeepsTheWindowsThatAnotherOneTookOver) {
  OpenQuestions(1);
  OpenQuestions(2);
  AnswerFor(1, 10);
  AnswerFor(2, 10);
  TakeEvents();
  // Nothing is unsubscribed: that would release the other one's window.
  streams_->OnClientEnd(1);
  EXPECT_EQ(TakeEvents(), (Events{"a completed", "end 1 OK", "a destroyed"}));
}

TEST_F(StreamsTest, AStreamMaySpeakWhileItCompletes) {
  ProbeStream& stream = OpenEvents(7);
  stream.meanwhile = [&] { EXPECT_TRUE(stream.Say()); };
  streams_->OnClientEnd(7);
  EXPECT_EQ(TakeEvents(), (Events{"a completed", "message 7 call 0", "end 7 OK",
                                  "a destroyed"}));
}

TEST_F(StreamsTest, FramesForAnUnknownStreamAreIgnored) {
  OpenEvents(7);
  ListenMore(8);
  Error(8);
  streams_->OnClientEnd(8);
  EXPECT_EQ(TakeEvents(), Events());
  EXPECT_EQ(counters_.streams_now, 1u);
}

TEST_F(StreamsTest, FramesForAnEndedStreamAreIgnored) {
  ProbeStream& stream = OpenEvents(7);
  stream.Finish();
  EXPECT_EQ(TakeEvents(), Events{"end 7 OK"});
  Listen(7, 1);
  Error(7);
  EXPECT_EQ(TakeEvents(), Events());
  EXPECT_EQ(counters_.subscriptions_now, 0u);
}

// The stream's own end.

TEST_F(StreamsTest, AStreamThatCompletesOutOfTurnIsFinishedOnALaterTurn) {
  ProbeStream& stream = OpenEvents(7);
  stream.Finish();
  stream.Finish();
  EXPECT_FALSE(stream.Say());
  EXPECT_EQ(TakeEvents(), Events{"end 7 OK"});
  sequence_.Run();
  EXPECT_EQ(TakeEvents(), (Events{"a completed", "a destroyed"}));
  EXPECT_EQ(counters_.streams_now, 0u);
}

TEST_F(StreamsTest, AClientThatEndsAnEndedStreamFinishesIt) {
  OpenEvents(7).Finish();
  streams_->OnClientEnd(7);
  EXPECT_EQ(TakeEvents(), (Events{"end 7 OK", "a completed", "a destroyed"}));
  // The id may be another stream's when the turn comes.
  OpenEvents(7);
  sequence_.Run();
  EXPECT_EQ(TakeEvents(), Events());
}

// Each by itself, so that others are served in between.
// The new stream is not taken for the one that has ended.
TEST_F(StreamsTest, AnIdThatIsUsedAgainIsThatOfAnOpenStream) {
  ProbeStream& first = OpenEvents(1);
  OpenEvents(2).meanwhile = [&] {
    first.Finish();
    streams_->OnClientEnd(1);
    OpenEvents(1);
  };
  ListenMore(2);
  EXPECT_EQ(TakeEvents(),
            (Events{"b next", "end 1 OK", "a completed", "a destroyed"}));
  sequence_.Run();
  ListenMore(1);
  EXPECT_EQ(TakeEvents(), Events{"c next"});
}

TEST_F(StreamsTest, StreamsThatCompleteTogetherAreFinishedOnTurnsOfTheirOwn) {
  ProbeStream& first = OpenEvents(1);
  OpenEvents(2).Finish();
  first.Finish();
  TakeEvents();
  EXPECT_TRUE(sequence_.RunOne());
  EXPECT_EQ(TakeEvents(), (Events{"b completed", "b destroyed"}));
  EXPECT_TRUE(sequence_.RunOne());
  EXPECT_EQ(TakeEvents(), (Events{"a completed", "a destroyed"}));
}

TEST_F(StreamsTest, AStreamThatCompletesWithinItsOwnCallOutlivesTheCall) {
  ProbeStream& stream = OpenEvents(7);
  const auto complete_and_run = [&] {
    stream.Finish();
    sequence_.Run();
    events_.emplace_back("back");
  };
  stream.meanwhile = complete_and_run;
  ListenMore(7);
  EXPECT_EQ(TakeEvents(), (Events{"a next", "end 7 OK", "back", "a completed",
                                  "a destroyed"}));
}

TEST_F(StreamsTest, AStreamThatCompletesWithinAnErrorOutlivesTheCall) {
  ProbeStream& stream = OpenEvents(7);
  stream.meanwhile = [&] {
    stream.Finish();
    sequence_.Run();
    events_.emplace_back("back");
  };
  Error(7);
  EXPECT_EQ(TakeEvents(), (Events{"a error", "end 7 OK", "back", "a completed",
                                  "a destroyed"}));
}

TEST_F(StreamsTest, AStreamThatCompletesWhileItIsOpenedIsFinishedAfterwards) {
  service_.on_open = [&](ProbeStream& stream) {
    stream.Finish();
    sequence_.Run();
    events_.emplace_back("back");
  };
  EXPECT_TRUE(TryOpen(7, "WhenBrowserWindowClosed").ok());
  EXPECT_EQ(TakeEvents(),
            (Events{"end 7 OK", "back", "a completed", "a destroyed"}));
}

TEST_F(StreamsTest, AStreamThatRunsTheSequenceWhileItCompletesDoesSoOnce) {
  ProbeStream& stream = OpenEvents(7);
  stream.Finish();
  stream.meanwhile = [&] {
    streams_->OnClientEnd(7);
    sequence_.Run();
    events_.emplace_back("back");
  };
  sequence_.Run();
  EXPECT_EQ(TakeEvents(),
            (Events{"end 7 OK", "a completed", "back", "a destroyed"}));
}

// The other stream may be on the stack below.
TEST_F(StreamsTest, NoStreamIsFinishedWhileAnotherOneHandlesAFrame) {
  ProbeStream& first = OpenEvents(7);
  ProbeStream& second = OpenEvents(8);
  first.meanwhile = [&] {
    second.meanwhile = [&] {
      first.Finish();
      sequence_.Run();
    };
    ListenMore(8);
    events_.emplace_back("back");
  };
  ListenMore(7);
  EXPECT_EQ(TakeEvents(), (Events{"a next", "b next", "end 7 OK", "back",
                                  "a completed", "a destroyed"}));
}

TEST_F(StreamsTest, AStreamThatEndsAnotherOneWhileItCompletesFinishesIt) {
  ProbeStream& first = OpenEvents(7);
  ProbeStream& second = OpenEvents(8);
  first.meanwhile = [&] { second.Finish(); };
  streams_->OnClientEnd(7);
  EXPECT_EQ(TakeEvents(),
            (Events{"a completed", "end 8 OK", "end 7 OK", "a destroyed",
                    "b completed", "b destroyed"}));
}

using StreamsDeathTest = StreamsTest;

TEST_F(StreamsDeathTest, StreamsThatAreNotClosedEndTheProcess) {
  OpenEvents(7);
  EXPECT_DEATH(streams_.reset(), "streams would not see their OnCompleted");
}

}  // namespace
}  // namespace rpc::serving
