// The limits of streams, each kept to the number; see limits_unittest.cc.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "absl/strings/str_cat.h"
#include "core/common/rpc/stream/callback_stream.h"
#include "core/common/rpc/stream/event_stream.h"
#include "core/common/rpc/testing/long_subscription.h"
#include "core/common/rpc/testing/window_id.h"
#include "core/common/rpc/transport/event_subscriber.h"
#include "core/common/rpc/transport/testing/limits_test_support.h"
#include "core/common/rpc/transport/wire/rpc_status.h"

namespace rpc::transport {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;
using torvane::LongSubscription;

// Streams that only the test's peer opens.
class StreamLimits : public LimitsTest {
 protected:
  void Open(RawPeer& peer, uint64_t id, const std::string& method = "Watch") {
    StreamOpenFrame open;
    open.set_stream_id(id);
    open.set_method_id(peer.IdOf(method));
    peer.Send(Frame::kStreamOpen, open);
    lab_->RunReady();
  }
  void SendPayload(RawPeer& peer, uint64_t id, const std::string& payload) {
    StreamDataFrame data;
    data.add_stream_ids(id);
    data.mutable_message()->set_payload(payload);
    peer.Send(Frame::kStreamData, data);
    lab_->RunReady();
  }
  void SendData(RawPeer& peer,
                uint64_t id,
                const google::protobuf::MessageLite& message) {
    SendPayload(peer, id, message.SerializeAsString());
  }
  void Listen(RawPeer& peer, uint64_t id, int64_t window) {
    EventSubscription subscription;
    subscription.mutable_subscribe_to()->set_value(window);
    SendData(peer, id, subscription);
  }
  void ListenNoMore(RawPeer& peer, uint64_t id, int64_t window) {
    EventSubscription subscription;
    subscription.mutable_unsubscribe_from()->set_value(window);
    SendData(peer, id, subscription);
  }
  void AnswerFor(RawPeer& peer, uint64_t id, int64_t window, bool answer) {
    lab::Decision subscription;
    subscription.mutable_browser_id()->set_value(window);
    subscription.set_subscribe(answer);
    SendData(peer, id, subscription);
  }
  static bool Ask(int64_t window) {
    lab::Decision question;
    question.mutable_browser_id()->set_value(window);
    question.mutable_question();
    return torvane::CallbackStream<lab::Decision>::Ask(
        question, {.response_callback = [](lab::Decision&) {},
                   .error_callback = [](torvane::StreamCallError) {}});
  }
  static size_t Publish(int64_t window) {
    return torvane::EventStream<lab::Text>::Publish(torvane::WindowId(window),
                                                    lab::Text());
  }
  // The next frame for the peer ends stream `id`; returns its status.
  static absl::Status AwaitEnd(RawPeer& peer, uint64_t id) {
    const std::optional<Frame> end = peer.Receive();
    if (!end || end->stream_end().stream_id() != id) {
      return absl::UnknownError("not the end of the stream");
    }
    return FromWire(end->stream_end().status());
  }
  uint64_t subscriptions() {
    return lab_->server->counters().subscriptions_now;
  }
};

TEST_F(StreamLimits, AnEventStreamThatSubscribesBeyondMaxSubscriptionsIsEnded) {
  Serve({.max_subscriptions = 3});
  const auto peer = lab_->NewPeer();
  Open(*peer, 1);
  Open(*peer, 2);
  Open(*peer, 3, "Decide");
  Listen(*peer, 1, 10);
  Listen(*peer, 2, 10);
  AnswerFor(*peer, 3, 10, true);
  EXPECT_EQ(subscriptions(), 3u);
  // Subscribing again to the same window counts nothing.
  Listen(*peer, 1, 10);
  AnswerFor(*peer, 3, 10, true);
  EXPECT_EQ(subscriptions(), 3u);
  EXPECT_THAT(hits(), IsEmpty());

  // Only the stream with the subscription too many ends.
  Listen(*peer, 1, 11);
  EXPECT_EQ(OutcomeOf(AwaitEnd(*peer, 1)),
            Refused(Who("raw"), "max_subscriptions",
                    absl::ResourceExhaustedError(
                        "max_subscriptions, 3, are in place")));
  ExpectBystanderIsServed();
  EXPECT_EQ(subscriptions(), 2u);
  EXPECT_EQ(Publish(11), 0u);
  EXPECT_EQ(Publish(10), 1u);
  EXPECT_TRUE(Ask(10));
}

TEST_F(StreamLimits,
       ACallbackStreamThatSubscribesBeyondMaxSubscriptionsIsEnded) {
  Serve({.max_subscriptions = 1});
  const auto peer = lab_->NewPeer();
  Open(*peer, 1, "Decide");
  AnswerFor(*peer, 1, 10, true);
  AnswerFor(*peer, 1, 11, true);
  EXPECT_EQ(AwaitEnd(*peer, 1),
            absl::ResourceExhaustedError("max_subscriptions, 1, are in place"));
  EXPECT_EQ(subscriptions(), 0u);
  EXPECT_FALSE(Ask(10));
  EXPECT_FALSE(Ask(11));
  ExpectBystanderIsServed();
}

TEST_F(StreamLimits, AStreamThatSubscribesBeyondMaxServerSubscriptionsIsEnded) {
  Serve({.max_server_subscriptions = 2});
  const auto first = lab_->NewPeer();
  const auto second = lab_->NewPeer();
  Open(*first, 1);
  Open(*first, 2);
  Open(*second, 1, "Decide");
  Open(*second, 2);
  Listen(*first, 1, 10);
  AnswerFor(*second, 1, 10, true);
  EXPECT_EQ(subscriptions(), 2u);
  EXPECT_THAT(hits(), IsEmpty());

  Listen(*second, 2, 10);
  EXPECT_EQ(OutcomeOf(AwaitEnd(*second, 2)),
            Refused(Who("raw"), "max_server_subscriptions",
                    absl::ResourceExhaustedError(
                        "max_server_subscriptions, 2, of all clients together, "
                        "are in place")));
  ExpectBystanderIsServed();
  EXPECT_EQ(Publish(10), 1u);
  EXPECT_TRUE(Ask(10));
}

TEST_F(StreamLimits, AClientThatLeavesMakesRoomAmongMaxServerSubscriptions) {
  Serve({.max_server_subscriptions = 2});
  const auto first = lab_->NewPeer();
  const auto second = lab_->NewPeer();
  Open(*first, 1);
  Listen(*first, 1, 10);
  Listen(*first, 1, 11);
  first->Close();
  lab_->RunReady();
  EXPECT_EQ(subscriptions(), 0u);
  Open(*second, 1);
  Listen(*second, 1, 12);
  Listen(*second, 1, 13);
  EXPECT_EQ(subscriptions(), 2u);
  EXPECT_THAT(hits(), IsEmpty());
}

TEST_F(StreamLimits, UnsubscribingMakesRoomAmongMaxSubscriptions) {
  Serve({.max_subscriptions = 2});
  const auto peer = lab_->NewPeer();
  Open(*peer, 1);
  Open(*peer, 2, "Decide");
  for (int64_t window = 1; window <= 100; ++window) {
    Listen(*peer, 1, window);
    AnswerFor(*peer, 2, window, true);
    ListenNoMore(*peer, 1, window);
    AnswerFor(*peer, 2, window, false);
  }
  EXPECT_EQ(subscriptions(), 0u);
  EXPECT_THAT(hits(), IsEmpty());
}

TEST_F(StreamLimits, ASubscriptionWithUnknownFieldsEndsItsStream) {
  Serve({});
  const auto peer = lab_->NewPeer();
  const auto& registry = torvane::EventStream<lab::Text>::stream_map_;
  const size_t before = registry.size();
  Open(*peer, 1);
  EventSubscription subscription;
  BrowserId& window = *subscription.mutable_subscribe_to();
  window.GetReflection()->MutableUnknownFields(&window)->AddVarint(9, 1);
  SendData(*peer, 1, subscription);
  const absl::Status why = absl::InvalidArgumentError(
      "a subscription has fields that its message type does not know");
  EXPECT_EQ(AwaitEnd(*peer, 1), why);
  EXPECT_EQ(lab_->server->counters().messages_refused, 1u);
  EXPECT_THAT(TakeRecords(),
              ElementsAre(absl::StrCat("Refused a request of ", Who("raw"),
                                       ": ", why.ToString())));
  EXPECT_EQ(subscriptions(), 0u);
  EXPECT_EQ(registry.size(), before);
  ExpectBystanderIsServed();
}

// Only the one that came last is asked, unless the other says it again.
TEST_F(StreamLimits, SubscribingAgainTakesAWindowBackOnAStreamOfQuestions) {
  Serve({});
  const auto first = lab_->NewPeer();
  const auto second = lab_->NewPeer();
  Open(*first, 1, "Decide");
  Open(*second, 1, "Decide");
  AnswerFor(*first, 1, 10, true);
  AnswerFor(*second, 1, 10, true);
  AnswerFor(*first, 1, 10, true);
  EXPECT_EQ(subscriptions(), 2u);
  EXPECT_TRUE(Ask(10));
  const std::optional<Frame> question = first->Receive();
  ASSERT_TRUE(question && question->has_stream_data());
}

TEST_F(StreamLimits, MaxSubscriptionsCountsWhatParsedOfABrokenMessage) {
  Serve({.max_subscriptions = 1});
  const auto peer = lab_->NewPeer();
  Open(*peer, 1, "Decide");
  lab::Decision subscription;
  subscription.mutable_browser_id()->set_value(10);
  subscription.set_subscribe(true);
  StreamDataFrame data;
  data.add_stream_ids(1);
  data.mutable_message()->set_payload(subscription.SerializeAsString() +
                                      "\xff");
  peer->Send(Frame::kStreamData, data);
  lab_->RunReady();
  EXPECT_TRUE(Ask(10));
  EXPECT_EQ(subscriptions(), 1u);
}

TEST_F(StreamLimits, AClosedConnectionKeepsNoneOfItsSubscriptions) {
  Serve({.max_subscriptions = 2});
  const auto peer = lab_->NewPeer();
  Open(*peer, 1);
  Open(*peer, 2, "Decide");
  Listen(*peer, 1, 10);
  AnswerFor(*peer, 2, 10, true);
  peer->Close();
  lab_->RunReady();
  EXPECT_EQ(subscriptions(), 0u);
}

TEST_F(StreamLimits,
       AStreamWhoseSubscriptionExceedsMaxSubscriptionBytesIsEnded) {
  Serve({.max_subscription_bytes = 100});
  const auto peer = lab_->NewPeer();
  Open(*peer, 1);
  Open(*peer, 2, "Decide");
  EventSubscription listen;
  listen.mutable_subscribe_to()->set_value(10);
  lab::Decision decide;
  decide.mutable_browser_id()->set_value(10);
  decide.set_subscribe(true);
  SendPayload(*peer, 1, LongSubscription(listen, 100));
  SendPayload(*peer, 2, LongSubscription(decide, 100));
  EXPECT_EQ(subscriptions(), 2u);
  EXPECT_THAT(hits(), IsEmpty());

  // The limit holds for unsubscribing, but not for answers.
  EventSubscription listen_no_more;
  listen_no_more.mutable_unsubscribe_from()->set_value(10);
  SendPayload(*peer, 1, LongSubscription(listen_no_more, 101));
  EXPECT_EQ(OutcomeOf(AwaitEnd(*peer, 1)),
            Refused(Who("raw"), "max_subscription_bytes",
                    absl::ResourceExhaustedError(
                        "a subscription takes 101 bytes, more than "
                        "max_subscription_bytes, 100")));
  lab::Decision answer;
  answer.mutable_browser_id()->set_value(10);
  answer.mutable_response()->set_text(std::string(200, 'x'));
  SendData(*peer, 2, answer);
  EXPECT_EQ(hits(), (Hits{{"max_subscription_bytes", 1}}));
  decide.set_subscribe(false);
  SendPayload(*peer, 2, LongSubscription(decide, 201));
  EXPECT_EQ(AwaitEnd(*peer, 2), absl::ResourceExhaustedError(
                                    "a subscription takes 201 bytes, more than "
                                    "max_subscription_bytes, 100"));
  EXPECT_EQ(hits(), (Hits{{"max_subscription_bytes", 2}}));
  // The second refusal of its kind is only counted.
  EXPECT_THAT(TakeRecords(), IsEmpty());
  ExpectBystanderIsServed();
}

// An event stream keeps every message that it is sent, even one without a
// subscription.
TEST_F(StreamLimits,
       AnEventStreamWithAnyMessageBeyondMaxSubscriptionBytesIsEnded) {
  Serve({.max_subscription_bytes = 100});
  const auto peer = lab_->NewPeer();
  Open(*peer, 1);
  StreamDataFrame data;
  data.add_stream_ids(1);
  data.mutable_message()->set_payload(std::string(101, '\xff'));
  peer->Send(Frame::kStreamData, data);
  lab_->RunReady();
  EXPECT_EQ(AwaitEnd(*peer, 1), absl::ResourceExhaustedError(
                                    "a subscription takes 101 bytes, more than "
                                    "max_subscription_bytes, 100"));
  ExpectBystanderIsServed();
}

TEST_F(StreamLimits, AMessageThatNeitherSubscribesNorAnswersEndsItsStream) {
  Serve({});
  const auto peer = lab_->NewPeer();
  Open(*peer, 1, "Decide");
  Open(*peer, 2, "Decide");
  AnswerFor(*peer, 1, 10, true);
  AnswerFor(*peer, 2, 20, true);
  SendData(*peer, 1, lab::Decision());
  const absl::Status why = absl::InvalidArgumentError(
      "a message on a stream of questions neither subscribes nor answers");
  EXPECT_EQ(AwaitEnd(*peer, 1), why);
  EXPECT_EQ(lab_->server->counters().messages_refused, 1u);
  EXPECT_THAT(TakeRecords(),
              ElementsAre(absl::StrCat("Refused a request of ", Who("raw"),
                                       ": ", why.ToString())));
  // The client's other stream goes on, and so does the host.
  EXPECT_FALSE(Ask(10));
  EXPECT_TRUE(Ask(20));
  ExpectBystanderIsServed();

  // The second one is only counted.
  const std::optional<Frame> question = peer->Receive();
  EXPECT_TRUE(question && question->has_stream_data());
  SendData(*peer, 2, lab::Decision());
  EXPECT_EQ(AwaitEnd(*peer, 2), why);
  EXPECT_EQ(lab_->server->counters().messages_refused, 2u);
  EXPECT_THAT(TakeRecords(), IsEmpty());
}

using StreamLimitsDeathTest = StreamLimits;

TEST_F(StreamLimitsDeathTest, AServerMayLetAnUnclearMessageEndTheProcess) {
  ServerOptions options;
  options.unclear_messages = serving::UnclearMessages::kHandOn;
  lab_.emplace(options);
  const auto peer = lab_->NewPeer();
  Open(*peer, 1, "Decide");
  EXPECT_DEATH(SendData(*peer, 1, lab::Decision()), "");
}

TEST_F(StreamLimits, NoQuestionIsAskedBeyondMaxQuestions) {
  Serve({.max_questions = 2});
  const auto peer = lab_->NewPeer();
  Open(*peer, 1, "Decide");
  Open(*peer, 2, "Decide");
  AnswerFor(*peer, 1, 10, true);
  AnswerFor(*peer, 2, 20, true);
  EXPECT_TRUE(Ask(10));
  EXPECT_TRUE(Ask(20));
  EXPECT_THAT(hits(), IsEmpty());

  EXPECT_FALSE(Ask(10));
  EXPECT_FALSE(Ask(20));
  EXPECT_EQ(hits(), (Hits{{"max_questions", 2}}));
  EXPECT_THAT(
      TakeRecords(),
      ElementsAre(absl::StrCat(
          "Refused a request of ", Who("raw"),
          ": RESOURCE_EXHAUSTED: max_questions, 2, wait for the client's "
          "answers, and no more are asked")));
  ExpectBystanderIsServed();

  // An answer makes room for another question,
  lab::Decision answer;
  answer.mutable_browser_id()->set_value(10);
  answer.mutable_response();
  StreamDataFrame data;
  data.add_stream_ids(1);
  data.mutable_message()->set_call_id(1);
  answer.SerializeToString(data.mutable_message()->mutable_payload());
  peer->Send(Frame::kStreamData, data);
  lab_->RunReady();
  EXPECT_TRUE(Ask(20));
  EXPECT_FALSE(Ask(10));
  // and so does a stream that ends with its questions.
  StreamEndFrame end;
  end.set_stream_id(2);
  peer->Send(Frame::kStreamEnd, end);
  lab_->RunReady();
  EXPECT_TRUE(Ask(10));
  EXPECT_TRUE(Ask(10));
  EXPECT_FALSE(Ask(10));
}

TEST_F(StreamLimits, AnEventBeyondTheClientsMaxFrameBytesEndsItsStream) {
  Serve({});
  ClientOptions options;
  options.name = "small";
  options.limits.max_frame_bytes = 10'000;
  const auto client = lab_->NewClient(options);
  std::vector<size_t> sizes;
  absl::Status end;
  EventSubscriber<lab::Text> subscriber(
      *client, lab::Lab::descriptor()->FindMethodByName("Watch"),
      [&](const lab::Text& event) { sizes.push_back(event.text().size()); },
      [&](const absl::Status& status) { end = status; });
  BrowserId window;
  subscriber.Subscribe(window);
  lab_->RunReady();
  lab::Text event;
  event.set_text(std::string(9'900, 'x'));
  EXPECT_EQ(torvane::EventStream<lab::Text>::Publish(window, event), 1u);
  lab_->RunReady();
  EXPECT_THAT(sizes, ElementsAre(9'900u));
  EXPECT_THAT(hits(), IsEmpty());

  event.set_text(std::string(9'990, 'x'));
  EXPECT_EQ(torvane::EventStream<lab::Text>::Publish(window, event), 0u);
  lab_->RunReady();
  EXPECT_EQ(OutcomeOf(end), Refused(Who("small"), "max_frame_bytes", end));
  EXPECT_EQ(end.code(), absl::StatusCode::kResourceExhausted);
  EXPECT_THAT(
      std::string(end.message()),
      ::testing::EndsWith(
          " bytes, more than the client's max_frame_bytes, 10000: it is "
          "lost, and so is what comes until the client opens the stream "
          "anew and subscribes again"));
  ExpectBystanderIsServed();
}

// Streams of the same client that do not get it go on, and so do those of
// others that can take it.
TEST_F(StreamLimits, AnEventThatOneClientCannotTakeCostsNoOtherStreamAnything) {
  Serve({});
  ClientOptions options;
  options.limits.max_frame_bytes = 10'000;
  const auto small = lab_->NewClient(options);
  const auto large = NewClient();
  struct Heard {
    Heard(Client& client, int64_t window)
        : subscriber(
              client,
              lab::Lab::descriptor()->FindMethodByName("Watch"),
              [this](const lab::Text& event) {
                sizes.push_back(event.text().size());
              },
              [this](const absl::Status& status) { end = status; }) {
      subscriber.Subscribe(torvane::WindowId(window));
    }
    std::vector<size_t> sizes;
    absl::Status end;
    EventSubscriber<lab::Text> subscriber;
  };
  const Heard too_long(*small, 1);
  const Heard beside(*small, 2);
  const Heard other(*large, 1);
  lab_->RunReady();

  for (const size_t size : {10u, 20'000u, 11u}) {
    lab::Text event;
    event.set_text(std::string(size, 'x'));
    torvane::EventStream<lab::Text>::Publish(torvane::WindowId(1), event);
    event.set_text(std::string(size == 20'000u ? 20 : size, 'x'));
    torvane::EventStream<lab::Text>::Publish(torvane::WindowId(2), event);
  }
  lab_->RunReady();
  EXPECT_THAT(too_long.sizes, ElementsAre(10u));
  EXPECT_EQ(too_long.end.code(), absl::StatusCode::kResourceExhausted);
  EXPECT_THAT(beside.sizes, ElementsAre(10u, 20u, 11u));
  EXPECT_TRUE(beside.end.ok());
  EXPECT_THAT(other.sizes, ElementsAre(10u, 20'000u, 11u));
  EXPECT_TRUE(other.end.ok());

  // The client gets events again on a stream that it opens anew.
  const Heard again(*small, 1);
  lab_->RunReady();
  EXPECT_EQ(Publish(1), 2u);
  lab_->RunReady();
  EXPECT_THAT(again.sizes, ElementsAre(0u));
}

TEST_F(StreamLimits, AStreamBeyondMaxStreamsIsEnded) {
  Serve({.max_streams = 2});
  const auto peer = lab_->NewPeer();
  Open(*peer, 1);
  Open(*peer, 2);
  EXPECT_EQ(lab_->server->counters().streams_now, 2u);
  EXPECT_THAT(hits(), IsEmpty());

  Open(*peer, 3);
  EXPECT_EQ(OutcomeOf(AwaitEnd(*peer, 3)),
            Refused(Who("raw"), "max_streams",
                    absl::ResourceExhaustedError("max_streams, 2, are open")));
  EXPECT_EQ(lab_->server->counters().streams_now, 2u);
  ExpectBystanderIsServed();
}

}  // namespace
}  // namespace rpc::transport
