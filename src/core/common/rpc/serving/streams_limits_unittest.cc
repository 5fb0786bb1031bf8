// What is counted, bounded and refused of what passes on streams.

#include <gtest/gtest.h>

#include <cstddef>
#include <cstdint>
#include <string>

#include "core/common/rpc/serving/streams_test_support.h"
#include "core/common/rpc/testing/long_subscription.h"

namespace rpc::serving {
namespace {

using torvane::LongSubscription;

using StreamsLimitsTest = StreamsTest;

// Subscriptions.

TEST_F(StreamsLimitsTest, SubscriptionsOfBothKindsAreCountedTillTheyEnd) {
  OpenEvents(1);
  OpenQuestions(2);
  Listen(1, 10);
  Listen(1, 10);
  Listen(1, 11);
  AnswerFor(2, 10);
  EXPECT_EQ(counters_.subscriptions_now, 3u);
  Listen(1, 11, false);
  Listen(1, 12, false);
  EXPECT_EQ(counters_.subscriptions_now, 2u);
  AnswerFor(2, 10, false);
  EXPECT_EQ(counters_.subscriptions_now, 1u);
  streams_->OnClientEnd(1);
  EXPECT_EQ(counters_.subscriptions_now, 0u);
}

TEST_F(StreamsLimitsTest, TheStreamThatSubscribesTooOftenIsEnded) {
  Serve({.max_subscriptions = 2});
  OpenEvents(1);
  OpenQuestions(2);
  Listen(1, 10);
  AnswerFor(2, 10);
  Listen(1, 10);
  EXPECT_EQ(TakeEvents(), (Events{"a next", "b next"}));
  Listen(1, 11);
  EXPECT_EQ(TakeEvents(),
            (Events{"end 1 RESOURCE_EXHAUSTED: max_subscriptions, 2, are in "
                    "place",
                    "a completed", "a destroyed"}));
  EXPECT_EQ(counters_.limit_hits.max_subscriptions, 1u);
  EXPECT_EQ(counters_.subscriptions_now, 1u);
  AnswerFor(2, 11);
  EXPECT_EQ(TakeEvents(), Events{"b next"});
}

TEST_F(StreamsLimitsTest, TheStreamThatSubscribesTooOftenForTheServerIsEnded) {
  Serve({.max_server_subscriptions = 2});
  counters_.subscriptions_now = 1;  // of another client
  OpenEvents(1);
  OpenEvents(2);
  Listen(1, 10);
  EXPECT_EQ(TakeEvents(), Events{"a next"});
  EXPECT_EQ(counters_.limit_hits.max_server_subscriptions, 0u);
  Listen(2, 11);
  EXPECT_EQ(TakeEvents(),
            (Events{"end 2 RESOURCE_EXHAUSTED: max_server_subscriptions, 2, of "
                    "all clients together, are in place",
                    "b completed", "b destroyed"}));
  EXPECT_EQ(counters_.limit_hits.max_server_subscriptions, 1u);
  EXPECT_EQ(counters_.limit_hits.max_subscriptions, 0u);
  counters_.subscriptions_now -= 1;
}

// As large as `bytes`, by a field that nobody knows.
std::string Padded(google::protobuf::Message& message, size_t bytes) {
  // Its tag and its length.
  constexpr size_t kOverhead = 2;
  message.GetReflection()->MutableUnknownFields(&message)->AddLengthDelimited(
      9, std::string(bytes - kOverhead - message.ByteSizeLong(), 'x'));
  EXPECT_EQ(message.ByteSizeLong(), bytes);
  return message.SerializeAsString();
}

TEST_F(StreamsLimitsTest, AStreamWhoseSubscriptionIsTooLargeIsEnded) {
  constexpr size_t kBytes = 100;
  Serve({.max_subscription_bytes = kBytes});
  for (const size_t bytes : {kBytes, kBytes + 1}) {
    OpenEvents(1);
    OpenQuestions(2);
    OpenQuestions(3);
    TakeEvents();
    EventSubscription subscription;
    subscription.mutable_subscribe_to()->set_value(1);
    Data(1, LongSubscription(subscription, bytes));
    CloseWindow subscribe = About(1);
    subscribe.set_subscribe(true);
    Data(2, LongSubscription(subscribe, bytes));
    CloseWindow unsubscribe = About(1);
    unsubscribe.set_subscribe(false);
    Data(3, LongSubscription(unsubscribe, bytes));
    if (bytes == kBytes) {
      EXPECT_EQ(TakeEvents(), (Events{"a next", "b next", "c next"}));
      for (const uint64_t id : {1, 2, 3}) {
        streams_->OnClientEnd(id);
      }
    }
  }
  const std::string why =
      "RESOURCE_EXHAUSTED: a subscription takes 101 bytes, more than "
      "max_subscription_bytes, 100";
  EXPECT_EQ(TakeEvents(),
            (Events{"end 1 " + why, "d completed", "d destroyed",
                    "end 2 " + why, "e completed", "e destroyed",
                    "end 3 " + why, "f completed", "f destroyed"}));
  EXPECT_EQ(counters_.limit_hits.max_subscription_bytes, 3u);
  EXPECT_EQ(counters_.subscriptions_now, 0u);
}

TEST_F(StreamsLimitsTest, AnAnswerMayBeLargerThanASubscription) {
  Serve({.max_subscription_bytes = 10});
  OpenQuestions(1);
  CloseWindow answer = About(1);
  answer.mutable_response();
  Data(1, Padded(answer, 100));
  Error(1, Padded(answer, 120));
  EXPECT_EQ(TakeEvents(), (Events{"a next", "a error"}));
}

// Messages that no stream gets.

TEST_F(StreamsLimitsTest, ASubscriptionWithUnknownFieldsEndsItsStream) {
  const std::string why =
      "INVALID_ARGUMENT: a subscription has fields that its message type does "
      "not know";
  const auto add_field = [](google::protobuf::Message& message) {
    message.GetReflection()->MutableUnknownFields(&message)->AddVarint(9, 1);
  };
  EventSubscription listen;
  listen.mutable_subscribe_to()->set_value(7);
  add_field(listen);
  EventSubscription listen_no_more;
  add_field(*listen_no_more.mutable_unsubscribe_from());
  CloseWindow decide = About(7);
  decide.set_subscribe(true);
  add_field(decide);
  CloseWindow decide_no_more = About(7);
  decide_no_more.set_subscribe(false);
  add_field(*decide_no_more.mutable_browser_id());

  OpenEvents(1);
  OpenEvents(2);
  OpenQuestions(3);
  OpenQuestions(4);
  Data(1, listen.SerializeAsString());
  Data(2, listen_no_more.SerializeAsString());
  Data(3, decide.SerializeAsString());
  Data(4, decide_no_more.SerializeAsString());
  EXPECT_EQ(
      TakeEvents(),
      (Events{"end 1 " + why, "a completed", "a destroyed", "end 2 " + why,
              "b completed", "b destroyed", "end 3 " + why, "c completed",
              "c destroyed", "end 4 " + why, "d completed", "d destroyed"}));
  EXPECT_EQ(counters_.messages_refused, 4u);
  EXPECT_EQ(counters_.subscriptions_now, 0u);
}

TEST_F(StreamsLimitsTest, WhatChangesNothingIsKeptFromAnEventStream) {
  OpenEvents(1);
  Listen(1, 7);
  TakeEvents();
  Listen(1, 7);
  Listen(1, 8, false);
  Data(1);
  Data(1, "\xff");
  EXPECT_EQ(TakeEvents(), Events());
  EXPECT_EQ(counters_.messages_refused, 0u);
  // What changes something is not.
  Listen(1, 7, false);
  Listen(1, 7);
  Listen(1, 8);
  EXPECT_EQ(TakeEvents(), (Events{"a next", "a next", "a next"}));
  EXPECT_EQ(counters_.subscriptions_now, 2u);
}

TEST_F(StreamsLimitsTest, WhatChangesNothingReachesAStreamOfQuestions) {
  OpenQuestions(1);
  AnswerFor(1, 7);
  AnswerFor(1, 7);
  AnswerFor(1, 8, false);
  EXPECT_EQ(TakeEvents(), (Events{"a next", "a next", "a next"}));
}

TEST_F(StreamsLimitsTest,
       AMessageThatNeitherSubscribesNorAnswersEndsItsStream) {
  const std::string why =
      "INVALID_ARGUMENT: a message on a stream of questions neither subscribes "
      "nor answers";
  CloseWindow question = About(7);
  question.mutable_question();
  const std::string unclear[] = {"", "\xff", About(7).SerializeAsString(),
                                 question.SerializeAsString()};
  uint64_t refused = 0;
  for (const std::string& payload : unclear) {
    const std::string name(1, static_cast<char>('a' + service_.streams.size()));
    OpenQuestions(1);
    Data(1, payload);
    EXPECT_EQ(TakeEvents(), (Events{"end 1 " + why, name + " completed",
                                    name + " destroyed"}));
    EXPECT_EQ(counters_.messages_refused, ++refused);
  }
}

TEST_F(StreamsLimitsTest, AServerMayHandUnclearMessagesOn) {
  streams_ =
      std::make_shared<Streams>(*endings_, *this, methods_, limits_, client_,
                                counters_, UnclearMessages::kHandOn);
  OpenQuestions(1);
  ListenMore(1);
  EXPECT_EQ(TakeEvents(), Events{"a next"});
  EXPECT_EQ(counters_.messages_refused, 0u);
}

// What streams send.

TEST_F(StreamsLimitsTest, EachStreamRemembersItsLastSharedMessage) {
  ProbeStream& first = OpenEvents(7);
  ProbeStream& second = OpenEvents(8);
  EXPECT_TRUE(first.Say());
  EXPECT_EQ(outgoing_->last_shared_message, 0u);
  outgoing_->last_shared_message = 17;
  EXPECT_TRUE(second.Say());
  EXPECT_EQ(outgoing_->last_shared_message, 0u);
  EXPECT_TRUE(first.Say());
  EXPECT_EQ(outgoing_->last_shared_message, 17u);
}

TEST_F(StreamsLimitsTest, AMessageThatTheClientCannotTakeEndsItsStream) {
  ProbeStream& stream = OpenEvents(7);
  OpenEvents(8);
  sent_ = absl::ResourceExhaustedError("a message is too long");
  EXPECT_FALSE(stream.Say());
  sent_ = absl::OkStatus();
  EXPECT_FALSE(stream.Say());
  EXPECT_EQ(TakeEvents(),
            (Events{"message 7 call 0",
                    "end 7 RESOURCE_EXHAUSTED: a message is too long"}));
  sequence_.Run();
  EXPECT_EQ(TakeEvents(), (Events{"a completed", "a destroyed"}));
  EXPECT_EQ(counters_.streams_now, 1u);
}

TEST_F(StreamsLimitsTest,
       AConnectionThatTakesNothingMoreMerelyDropsTheMessage) {
  ProbeStream& stream = OpenQuestions(7);
  sent_ = absl::UnavailableError("the connection is being closed");
  EXPECT_FALSE(Ask(stream, 1, 1));
  EXPECT_EQ(Report().questions, 0u);
  sent_ = absl::OkStatus();
  EXPECT_TRUE(Ask(stream, 1, 2));
  EXPECT_EQ(TakeEvents(), (Events{"message 7 call 1", "message 7 call 2"}));
  EXPECT_EQ(sequence_.Run(), 0u);
  EXPECT_EQ(Report().questions, 1u);
}

// Questions.

TEST_F(StreamsLimitsTest, QuestionsOfAllStreamsAreBoundedTogether) {
  Serve({.max_questions = 2});
  ProbeStream& first = OpenQuestions(7);
  ProbeStream& second = OpenQuestions(8);
  EXPECT_TRUE(Ask(first, 1, 1));
  EXPECT_TRUE(Ask(second, 1, 1));
  EXPECT_EQ(TakeEvents(), (Events{"message 7 call 1", "message 8 call 1"}));
  EXPECT_FALSE(Ask(first, 1, 2));
  EXPECT_EQ(TakeEvents(), Events());
  EXPECT_EQ(counters_.limit_hits.max_questions, 1u);
  EXPECT_EQ(Report().questions, 2u);
  // An answer makes room before the stream hears of it.
  first.meanwhile = [&] { EXPECT_TRUE(Ask(first, 1, 3)); };
  Answer(7, 1, 1);
  EXPECT_EQ(TakeEvents(), (Events{"a next", "message 7 call 3"}));
}

TEST_F(StreamsLimitsTest, WhatEndsAQuestionMakesRoomForAnother) {
  Serve({.max_questions = 1});
  ProbeStream& stream = OpenQuestions(7);
  EXPECT_TRUE(Ask(stream, 1, 1));
  Answer(7, 2, 1);
  Answer(7, 1, 2);
  EXPECT_FALSE(Ask(stream, 1, 2));
  Answer(7, 1, 1);
  EXPECT_TRUE(Ask(stream, 1, 2));
  Error(7, About(1).SerializeAsString(), 2);
  EXPECT_TRUE(Ask(stream, 1, 3));
  AnswerFor(7, 1, false);
  EXPECT_TRUE(Ask(stream, 1, 4));
  streams_->OnClientEnd(7);
  EXPECT_TRUE(Ask(OpenQuestions(8), 1, 1));
}

TEST_F(StreamsLimitsTest, AMessageWithoutACallIdIsNoQuestion) {
  Serve({.max_questions = 1});
  ProbeStream& stream = OpenQuestions(7);
  EXPECT_TRUE(Ask(stream, 1, 0));
  EXPECT_EQ(Report().questions, 0u);
  EXPECT_TRUE(Ask(stream, 1, 1));
  EXPECT_TRUE(Ask(stream, 1, 0));
  EXPECT_EQ(Report().questions, 1u);
  EXPECT_EQ(counters_.limit_hits.max_questions, 0u);
}

TEST_F(StreamsLimitsTest, AnEventStreamAsksNoQuestions) {
  Serve({.max_questions = 1});
  ProbeStream& stream = OpenEvents(7);
  EXPECT_TRUE(stream.Say(1));
  EXPECT_TRUE(stream.Say(2));
  EXPECT_EQ(Report().questions, 0u);
}

TEST_F(StreamsLimitsTest, AReportShowsTheOldestQuestionsOfAllStreams) {
  ProbeStream& first = OpenQuestions(8);
  ProbeStream& second = OpenQuestions(7);
  OpenEvents(9);
  for (int64_t id = 1; id <= 4; ++id) {
    EXPECT_TRUE(Ask(first, 10 + id, id));
    EXPECT_TRUE(Ask(second, 20 + id, id));
    EXPECT_TRUE(Ask(first, 30 + id, 10 + id));
  }
  const ConnectionReport report = Report();
  EXPECT_EQ(report.streams, 3u);
  EXPECT_EQ(report.questions, 12u);
  ASSERT_EQ(report.oldest_questions.size(), 10u);
  for (size_t i = 1; i < report.oldest_questions.size(); ++i) {
    EXPECT_GE(report.oldest_questions[i - 1].age,
              report.oldest_questions[i].age);
  }
  EXPECT_EQ(report.oldest_questions[0].method,
            "rpc.BrowserWindow.OnCloseWindow");
}

}  // namespace
}  // namespace rpc::serving
