// Each limit is kept to the number: what is accepted at it, what is refused
// beyond it and in which words, that it is counted under its own name, that the
// host's records name the client, and that another client notices nothing.

#include "core/common/rpc/transport/limits.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <map>
#include <optional>
#include <string>
#include <tuple>
#include <utility>
#include <vector>

#include "absl/strings/str_cat.h"
#include "base/logging.h"
#include "core/common/rpc/stream/callback_stream.h"
#include "core/common/rpc/stream/event_stream.h"
#include "core/common/rpc/transport/event_subscriber.h"
#include "core/common/rpc/transport/lab.h"

namespace rpc::transport {
namespace {

using lab::Lab_Stub;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

using Hits = std::map<std::string, uint64_t>;

// The limits that have bitten.
Hits HitsOf(const Counters& counters) {
  Hits hits;
  for (const NamedLimit& limit : kNamedLimits) {
    if (const uint64_t count = counters.limit_hits.*limit.hits; count > 0) {
      hits[limit.name] = count;
    }
  }
  return hits;
}

TEST(NamedLimits, AreTheLimitsInTheirOrder) {
  const auto& [a, b, c, d, e, f, g, h, i, j, k, l] = Limits();
  static_cast<void>(std::tie(a, b, c, d, e, f, g, h, i, j, k, l));
  std::vector<std::string> names;
  for (const NamedLimit& limit : kNamedLimits) {
    names.emplace_back(limit.name);
  }
  EXPECT_THAT(names, ElementsAre("max_frame_bytes", "max_outbox_bytes",
                                 "busy_outbox_bytes", "max_connections",
                                 "max_calls", "max_streams",
                                 "max_subscriptions", "max_subscription_bytes",
                                 "max_questions", "handshake_timeout",
                                 "goodbye_timeout", "accept_pause"));
}

TEST(NamedLimits, EachHasItsOwnCounter) {
  LimitHits hits;
  hits.max_frame_bytes = 1;
  hits.max_outbox_bytes = 2;
  hits.busy_outbox_bytes = 3;
  hits.max_connections = 4;
  hits.max_calls = 5;
  hits.max_streams = 6;
  hits.max_subscriptions = 7;
  hits.max_questions = 8;
  hits.handshake_timeout = 9;
  hits.goodbye_timeout = 10;
  hits.accept_pause = 11;
  hits.max_subscription_bytes = 12;
  Counters counters;
  counters.limit_hits = hits;
  EXPECT_EQ(HitsOf(counters), (Hits{{"max_frame_bytes", 1},
                                    {"max_outbox_bytes", 2},
                                    {"busy_outbox_bytes", 3},
                                    {"max_connections", 4},
                                    {"max_calls", 5},
                                    {"max_streams", 6},
                                    {"max_subscriptions", 7},
                                    {"max_questions", 8},
                                    {"handshake_timeout", 9},
                                    {"goodbye_timeout", 10},
                                    {"accept_pause", 11},
                                    {"max_subscription_bytes", 12}}));
}

// A server with small limits, and a client that must notice nothing of what
// others run into.
class LimitsTest : public ::testing::Test {
 protected:
  LimitsTest() {
    records_.clear();
    logging::SetLogMessageHandler(&Keep);
  }
  ~LimitsTest() override { logging::SetLogMessageHandler(nullptr); }

  void Serve(const Limits& limits) {
    ServerOptions options;
    options.limits = limits;
    lab_.emplace(options);
    ClientOptions bystander;
    bystander.name = "bystander";
    bystander_ = lab_->NewClient(bystander);
  }
  std::unique_ptr<Client> NewClient() {
    ClientOptions options;
    options.name = "tester";
    return lab_->NewClient(options);
  }

  // Texts of the host's records since the last time.
  std::vector<std::string> TakeRecords() { return std::exchange(records_, {}); }
  // How records name a client.
  static std::string Who(const std::string& name) {
    return absl::StrCat(name, " (", Process(), ")");
  }
  static std::string Process() {
    return absl::StrCat("pid ", getpid(), ", user ", getuid());
  }

  Hits hits() { return HitsOf(lab_->server->counters()); }

  void ExpectBystanderIsServed() {
    EXPECT_EQ(CallText(*bystander_, &Lab_Stub::Echo, "still here").value(),
              "still here");
  }

  std::optional<Lab> lab_;

 private:
  static bool Keep(int,
                   const char*,
                   int,
                   size_t message_start,
                   const std::string& record) {
    records_.push_back(
        record.substr(message_start, record.size() - message_start - 1));
    return true;
  }

  static inline std::vector<std::string> records_;
  std::unique_ptr<Client> bystander_;
};

TEST_F(LimitsTest, MaxConnections) {
  Serve({.max_connections = 2});
  auto last = NewClient();
  EXPECT_THAT(hits(), IsEmpty());
  const absl::Status refusal =
      absl::ResourceExhaustedError("max_connections, 2, are open");
  for (int i = 0; i < 2; ++i) {
    EXPECT_EQ(Client::Adopt(lab_->loop, lab_->Connect()).status(), refusal);
  }
  EXPECT_EQ(hits(), (Hits{{"max_connections", 2}}));
  const std::string record = absl::StrCat("Refused the connection of ",
                                          Process(), ": ", refusal.ToString());
  EXPECT_THAT(TakeRecords(), ElementsAre(record, record));
  ExpectBystanderIsServed();
  last.reset();
  lab_->RunReady();
  EXPECT_NE(NewClient(), nullptr);
}

TEST_F(LimitsTest, MaxCalls) {
  Serve({.max_calls = 2});
  const auto client = NewClient();
  TextCall calls[4];
  calls[0].Start(*client, &Lab_Stub::Park, "");
  calls[1].Start(*client, &Lab_Stub::Park, "");
  lab_->RunReady();
  EXPECT_EQ(lab_->service.parked.size(), 2u);
  EXPECT_THAT(hits(), IsEmpty());

  calls[2].Start(*client, &Lab_Stub::Park, "");
  calls[3].Start(*client, &Lab_Stub::Park, "");
  lab_->RunReady();
  const absl::Status refusal =
      absl::ResourceExhaustedError("max_calls, 2, are in flight");
  EXPECT_EQ(calls[2].controller.status(), refusal);
  EXPECT_EQ(calls[3].controller.status(), refusal);
  EXPECT_EQ(hits(), (Hits{{"max_calls", 2}}));
  // The second refusal of its kind is only counted.
  EXPECT_THAT(TakeRecords(),
              ElementsAre(absl::StrCat("Refused a request of ", Who("tester"),
                                       ": ", refusal.ToString())));
  ExpectBystanderIsServed();
  lab_->service.parked[0].Complete();
  lab_->service.parked[1].Complete();
  lab_->RunReady();
  EXPECT_TRUE(CallText(*client, &Lab_Stub::Echo, "").ok());
}

TEST_F(LimitsTest, MaxCallsCountsWhatMethodsStillDoForNobody) {
  Serve({.max_calls = 2});
  const auto client = NewClient();
  TextCall cancelled;
  cancelled.Start(*client, &Lab_Stub::Park, "");
  cancelled.controller.StartCancel();
  TextCall late;
  late.controller.set_timeout(std::chrono::milliseconds(1));
  late.Start(*client, &Lab_Stub::Park, "");
  lab_->RunUntil([&] {
    return lab_->server->counters().calls_expired +
               lab_->server->counters().calls_cancelled ==
           2;
  });
  EXPECT_EQ(lab_->server->counters().calls_now, 0u);
  EXPECT_EQ(lab_->server->counters().calls_abandoned_now, 2u);
  EXPECT_THAT(hits(), IsEmpty());

  const absl::Status refusal =
      absl::ResourceExhaustedError("max_calls, 2, are in flight");
  EXPECT_EQ(CallText(*client, &Lab_Stub::Echo, "").status(), refusal);
  EXPECT_EQ(hits(), (Hits{{"max_calls", 1}}));
  ExpectBystanderIsServed();
  lab_->service.parked[0].Complete();
  lab_->RunReady();
  EXPECT_EQ(lab_->server->counters().calls_abandoned_now, 1u);
  EXPECT_TRUE(CallText(*client, &Lab_Stub::Echo, "").ok());
  lab_->service.parked[1].Complete();
  lab_->RunReady();
  EXPECT_EQ(lab_->server->counters().calls_abandoned_now, 0u);
}

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
  void SendData(RawPeer& peer,
                uint64_t id,
                const google::protobuf::MessageLite& payload) {
    StreamDataFrame data;
    data.add_stream_ids(id);
    payload.SerializeToString(data.mutable_message()->mutable_payload());
    peer.Send(Frame::kStreamData, data);
    lab_->RunReady();
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
    BrowserId id;
    id.set_value(window);
    return torvane::EventStream<lab::Text>::Publish(id, lab::Text());
  }
  void ExpectEnd(RawPeer& peer, uint64_t id, const std::string& text) {
    const std::optional<Frame> end = peer.Receive();
    ASSERT_TRUE(end && end->has_stream_end());
    EXPECT_EQ(end->stream_end().stream_id(), id);
    EXPECT_EQ(end->stream_end().status().code(), 8);
    EXPECT_EQ(end->stream_end().status().text(), text);
  }
  uint64_t subscriptions() {
    return lab_->server->counters().subscriptions_now;
  }
};

TEST_F(StreamLimits, MaxSubscriptions) {
  Serve({.max_subscriptions = 3});
  const auto peer = lab_->NewPeer();
  Open(*peer, 1);
  Open(*peer, 2);
  Open(*peer, 3, "Decide");
  Listen(*peer, 1, 10);
  Listen(*peer, 2, 10);
  AnswerFor(*peer, 3, 10, true);
  EXPECT_EQ(subscriptions(), 3u);
  // What is in place already is nothing new.
  Listen(*peer, 1, 10);
  AnswerFor(*peer, 3, 10, true);
  EXPECT_EQ(subscriptions(), 3u);
  EXPECT_THAT(hits(), IsEmpty());

  // Of all streams, the one that goes too far is ended.
  Listen(*peer, 1, 11);
  ExpectEnd(*peer, 1, "max_subscriptions, 3, are in place");
  EXPECT_EQ(hits(), (Hits{{"max_subscriptions", 1}}));
  EXPECT_THAT(TakeRecords(),
              ElementsAre(absl::StrCat(
                  "Refused a request of ", Who("raw"),
                  ": RESOURCE_EXHAUSTED: max_subscriptions, 3, are in place")));
  ExpectBystanderIsServed();
  EXPECT_EQ(subscriptions(), 2u);
  EXPECT_EQ(Publish(11), 0u);
  EXPECT_EQ(Publish(10), 1u);
  EXPECT_TRUE(Ask(10));
}

TEST_F(StreamLimits, MaxSubscriptionsHoldsForWindowsToAnswerFor) {
  Serve({.max_subscriptions = 1});
  const auto peer = lab_->NewPeer();
  Open(*peer, 1, "Decide");
  AnswerFor(*peer, 1, 10, true);
  AnswerFor(*peer, 1, 11, true);
  ExpectEnd(*peer, 1, "max_subscriptions, 1, are in place");
  EXPECT_EQ(subscriptions(), 0u);
  EXPECT_FALSE(Ask(10));
  EXPECT_FALSE(Ask(11));
  ExpectBystanderIsServed();
}

TEST_F(StreamLimits, MaxSubscriptionsLeavesRoomForOnesThatReplaceOthers) {
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

TEST_F(StreamLimits, MaxSubscriptionsTellsWindowsApartAsTheStreamsDo) {
  Serve({.max_subscriptions = 2});
  const auto peer = lab_->NewPeer();
  const auto& registry = torvane::EventStream<lab::Text>::stream_map_;
  const size_t before = registry.size();
  Open(*peer, 1);
  EventSubscription subscription;
  BrowserId& window = *subscription.mutable_subscribe_to();
  window.GetReflection()->MutableUnknownFields(&window)->AddVarint(9, 1);
  SendData(*peer, 1, subscription);
  window.GetReflection()->MutableUnknownFields(&window)->AddVarint(9, 2);
  SendData(*peer, 1, subscription);
  EXPECT_EQ(subscriptions(), 2u);
  EXPECT_EQ(registry.size(), before + 2);
  window.GetReflection()->MutableUnknownFields(&window)->AddVarint(9, 3);
  SendData(*peer, 1, subscription);
  ExpectEnd(*peer, 1, "max_subscriptions, 2, are in place");
}

TEST_F(StreamLimits, MaxSubscriptionsTakesWhatDoesNotParseAsTheStreamsDo) {
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

TEST_F(StreamLimits, MaxSubscriptionsIsFreedWithTheConnection) {
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

TEST_F(StreamLimits, MaxSubscriptionBytes) {
  Serve({.max_subscription_bytes = 100});
  const auto peer = lab_->NewPeer();
  Open(*peer, 1);
  Open(*peer, 2, "Decide");
  // A field that the receiver does not know makes up the length.
  const auto fill = [](google::protobuf::Message& message, size_t size) {
    google::protobuf::UnknownFieldSet& fields =
        *message.GetReflection()->MutableUnknownFields(&message);
    fields.AddLengthDelimited(
        99, std::string(size - message.ByteSizeLong() - 3, 'x'));
    EXPECT_EQ(message.ByteSizeLong(), size);
  };
  EventSubscription listen;
  listen.mutable_subscribe_to()->set_value(10);
  lab::Decision decide;
  decide.mutable_browser_id()->set_value(10);
  decide.set_subscribe(true);
  fill(listen, 100);
  fill(decide, 100);
  SendData(*peer, 1, listen);
  SendData(*peer, 2, decide);
  EXPECT_EQ(subscriptions(), 2u);
  EXPECT_THAT(hits(), IsEmpty());

  // To unsubscribe takes no more; to answer may.
  EventSubscription listen_no_more;
  listen_no_more.mutable_unsubscribe_from()->set_value(10);
  fill(listen_no_more, 101);
  SendData(*peer, 1, listen_no_more);
  ExpectEnd(*peer, 1,
            "a subscription takes 101 bytes, more than max_subscription_bytes, "
            "100");
  lab::Decision answer;
  answer.mutable_browser_id()->set_value(10);
  answer.mutable_response()->set_text(std::string(200, 'x'));
  SendData(*peer, 2, answer);
  EXPECT_EQ(hits(), (Hits{{"max_subscription_bytes", 1}}));
  decide.set_subscribe(false);
  fill(decide, 201);
  SendData(*peer, 2, decide);
  ExpectEnd(*peer, 2,
            "a subscription takes 201 bytes, more than max_subscription_bytes, "
            "100");
  EXPECT_EQ(hits(), (Hits{{"max_subscription_bytes", 2}}));
  EXPECT_THAT(TakeRecords(),
              ElementsAre(absl::StrCat(
                  "Refused a request of ", Who("raw"),
                  ": RESOURCE_EXHAUSTED: a subscription takes 101 bytes, more "
                  "than max_subscription_bytes, 100")));
  ExpectBystanderIsServed();
}

// Any message on a stream of events is kept for good.
TEST_F(StreamLimits, MaxSubscriptionBytesHoldsForEventsWhateverTheMessageSays) {
  Serve({.max_subscription_bytes = 100});
  const auto peer = lab_->NewPeer();
  Open(*peer, 1);
  StreamDataFrame data;
  data.add_stream_ids(1);
  data.mutable_message()->set_payload(std::string(101, '\xff'));
  peer->Send(Frame::kStreamData, data);
  lab_->RunReady();
  ExpectEnd(*peer, 1,
            "a subscription takes 101 bytes, more than max_subscription_bytes, "
            "100");
  ExpectBystanderIsServed();
}

TEST_F(StreamLimits, MaxQuestions) {
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

TEST_F(StreamLimits, MaxFrameBytesOfTheClientHoldsForEvents) {
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
  EXPECT_EQ(hits(), (Hits{{"max_frame_bytes", 1}}));
  lab_->RunReady();
  EXPECT_EQ(end.code(), absl::StatusCode::kResourceExhausted);
  EXPECT_THAT(std::string(end.message()),
              ::testing::EndsWith(
                  " bytes, more than the client's max_frame_bytes, 10000"));
  EXPECT_THAT(TakeRecords(), ElementsAre(absl::StrCat(
                                 "Refused a request of ", Who("small"),
                                 ": RESOURCE_EXHAUSTED: ", end.message())));
  ExpectBystanderIsServed();
}

TEST_F(StreamLimits, MaxStreams) {
  Serve({.max_streams = 2});
  const auto peer = lab_->NewPeer();
  Open(*peer, 1);
  Open(*peer, 2);
  EXPECT_EQ(lab_->server->counters().streams_now, 2u);
  EXPECT_THAT(hits(), IsEmpty());

  Open(*peer, 3);
  const std::optional<Frame> end = peer->Receive();
  ASSERT_TRUE(end && end->has_stream_end());
  EXPECT_EQ(end->stream_end().stream_id(), 3u);
  EXPECT_EQ(end->stream_end().status().code(), 8);
  EXPECT_EQ(end->stream_end().status().text(), "max_streams, 2, are open");
  EXPECT_EQ(lab_->server->counters().streams_now, 2u);
  EXPECT_EQ(hits(), (Hits{{"max_streams", 1}}));
  EXPECT_THAT(TakeRecords(),
              ElementsAre(absl::StrCat(
                  "Refused a request of ", Who("raw"),
                  ": RESOURCE_EXHAUSTED: max_streams, 2, are open")));
  ExpectBystanderIsServed();
}

TEST_F(LimitsTest, MaxFrameBytesOfTheServer) {
  Serve({.max_frame_bytes = 10'000});
  const auto client = NewClient();
  // A frame of 10,000 bytes holds a text of 9,989.
  const std::string longest(9'989, 'x');
  EXPECT_TRUE(CallText(*client, &Lab_Stub::Echo, longest).ok());
  EXPECT_THAT(hits(), IsEmpty());

  // Our client does not even send it,
  EXPECT_EQ(CallText(*client, &Lab_Stub::Echo, longest + 'x').status(),
            absl::ResourceExhaustedError(
                "the request takes a frame of 10001 bytes, more than the "
                "server's max_frame_bytes, 10000"));
  EXPECT_EQ(HitsOf(client->counters()), (Hits{{"max_frame_bytes", 1}}));

  // another one is closed for it.
  const auto peer = lab_->NewPeer();
  CallFrame call;
  call.set_request(std::string(10'000, 'x'));
  peer->Send(Frame::kCall, call);
  const absl::Status why = absl::ResourceExhaustedError(
      "a frame of 10006 bytes exceeds max_frame_bytes, 10000");
  EXPECT_EQ(peer->AwaitGoodbye(), why);
  EXPECT_EQ(hits(), (Hits{{"max_frame_bytes", 1}}));
  EXPECT_THAT(TakeRecords(),
              ElementsAre(absl::StrCat("Closed the connection of ", Who("raw"),
                                       ": ", why.ToString())));
  ExpectBystanderIsServed();
}

TEST_F(LimitsTest, MaxFrameBytesOfTheClient) {
  Serve({});
  ClientOptions options;
  options.name = "small";
  options.limits.max_frame_bytes = 10'000;
  const auto client = lab_->NewClient(options);
  const std::string longest(9'989, 'x');
  EXPECT_TRUE(CallText(*client, &Lab_Stub::Echo, longest).ok());
  EXPECT_THAT(hits(), IsEmpty());

  const absl::Status refusal = absl::ResourceExhaustedError(
      "the response takes a frame of 10001 bytes, more than the client's "
      "max_frame_bytes, 10000");
  EXPECT_EQ(CallText(*client, &Lab_Stub::Echo, longest + 'x').status(),
            refusal);
  EXPECT_EQ(hits(), (Hits{{"max_frame_bytes", 1}}));
  EXPECT_THAT(TakeRecords(),
              ElementsAre(absl::StrCat("Refused a request of ", Who("small"),
                                       ": ", refusal.ToString())));
  ExpectBystanderIsServed();
}

// A reply whose frame has `size` bytes.
void CallForFrameOf(RawPeer& peer, int64_t size) {
  lab::Number text_size;
  text_size.set_number(size - 12);
  CallFrame call;
  call.set_method_id(peer.IdOf("Make"));
  text_size.SerializeToString(call.mutable_request());
  peer.Send(Frame::kCall, call);
}

TEST_F(LimitsTest, MaxOutboxBytes) {
  Serve({.max_outbox_bytes = 100'000});
  const auto peer = lab_->NewPeer();
  CallForFrameOf(*peer, 100'000);
  const auto reply = peer->Receive();
  ASSERT_TRUE(reply && reply->has_reply());
  EXPECT_EQ(FrameSize(reply->reply()), 100'000u);
  EXPECT_THAT(hits(), IsEmpty());

  CallForFrameOf(*peer, 100'001);
  const absl::Status why = absl::ResourceExhaustedError(
      "the client reads too slowly: more than max_outbox_bytes, 100000, would "
      "wait for it");
  EXPECT_EQ(peer->AwaitGoodbye(), why);
  EXPECT_EQ(hits(), (Hits{{"max_outbox_bytes", 1}}));
  EXPECT_THAT(TakeRecords(),
              ElementsAre(absl::StrCat("Closed the connection of ", Who("raw"),
                                       ": ", why.ToString())));
  ExpectBystanderIsServed();
}

// A reply that has begun to leave counts whole, with its length of three bytes.
TEST_F(LimitsTest, BusyOutboxBytes) {
  Serve({.busy_outbox_bytes = 1'000'003});
  const auto peer = lab_->NewPeer();
  CallForFrameOf(*peer, 1'000'000);
  CallFrame park;
  park.set_call_id(1);
  park.set_method_id(peer->IdOf("Park"));
  peer->Send(Frame::kCall, park);
  lab_->RunReady();
  EXPECT_GT(lab_->server->Report().connections[1].queued_bytes, 0u);
  EXPECT_EQ(lab_->service.parked.size(), 1u);
  EXPECT_THAT(hits(), IsEmpty());
  lab_->service.parked[0].Complete();
}

TEST_F(LimitsTest, BusyOutboxBytesAndOneMore) {
  Serve({.busy_outbox_bytes = 1'000'002});
  const auto peer = lab_->NewPeer();
  CallForFrameOf(*peer, 1'000'000);
  CallFrame park;
  park.set_call_id(1);
  park.set_method_id(peer->IdOf("Park"));
  peer->Send(Frame::kCall, park);
  lab_->RunReady();
  EXPECT_TRUE(lab_->service.parked.empty());
  EXPECT_EQ(hits(), (Hits{{"busy_outbox_bytes", 1}}));
  ExpectBystanderIsServed();
  // It goes on when the client reads.
  const auto reply = peer->Receive();
  EXPECT_TRUE(reply && reply->has_reply());
  lab_->RunReady();
  ASSERT_EQ(lab_->service.parked.size(), 1u);
  lab_->service.parked[0].Complete();
  EXPECT_THAT(TakeRecords(), IsEmpty());
}

TEST_F(LimitsTest, GoodbyeTimeout) {
  Serve({.max_outbox_bytes = 1'000'000,
         .busy_outbox_bytes = 2'000'000,
         .goodbye_timeout = std::chrono::milliseconds(5)});
  const auto peer = lab_->NewPeer();
  for (int i = 0; i < 20; ++i) {
    CallForFrameOf(*peer, 100'000);
  }
  lab_->RunUntil([&] { return hits().contains("goodbye_timeout"); });
  EXPECT_EQ(hits(), (Hits{{"goodbye_timeout", 1}, {"max_outbox_bytes", 1}}));
  ExpectBystanderIsServed();
  // It reads now, too late: there is no goodbye.
  EXPECT_EQ(peer->AwaitGoodbye(), absl::OkStatus());
}

TEST_F(LimitsTest, HandshakeTimeout) {
  Serve({.handshake_timeout = std::chrono::milliseconds(5)});
  EXPECT_THAT(hits(), IsEmpty());
  RawPeer silent(lab_->loop, lab_->Connect());
  const absl::Status why =
      absl::DeadlineExceededError("no hello within handshake_timeout, 5 ms");
  EXPECT_EQ(silent.AwaitGoodbye(), why);
  EXPECT_EQ(hits(), (Hits{{"handshake_timeout", 1}}));
  EXPECT_THAT(TakeRecords(),
              ElementsAre(absl::StrCat("Closed the connection of ", Process(),
                                       ": ", why.ToString())));
  ExpectBystanderIsServed();
}

}  // namespace
}  // namespace rpc::transport
