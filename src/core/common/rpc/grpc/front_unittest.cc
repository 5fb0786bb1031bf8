// What a gRPC client sees of services in this process.

#include "core/common/rpc/grpc/front.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "absl/strings/str_cat.h"
#include "core/common/rpc/grpc/server.h"
#include "core/common/rpc/grpc/testing/silent_peer.h"
#include "core/common/rpc/grpc/testing/test_client.h"
#include "core/common/rpc/loop/loop.h"
#include "core/common/rpc/serving/ending_queue.h"
#include "core/common/rpc/stream/callback_stream.h"
#include "core/common/rpc/stream/event_stream.h"
#include "core/common/rpc/testing/window_id.h"
#include "core/common/rpc/transport/testing/lab.h"
#include "rpc/event_subscription.pb.h"

namespace rpc::grpc {
namespace {

using std::chrono::milliseconds;
using testing::HasSubstr;
using torvane::WindowId;

std::string Text(const std::string& text) {
  lab::Text message;
  message.set_text(text);
  return message.SerializeAsString();
}

std::string EventsOf(int64_t window) {
  EventSubscription subscription;
  *subscription.mutable_subscribe_to() = WindowId(window);
  return subscription.SerializeAsString();
}

lab::Decision About(int64_t window) {
  lab::Decision message;
  *message.mutable_browser_id() = WindowId(window);
  return message;
}

std::string QuestionsOf(int64_t window, bool subscribe = true) {
  lab::Decision subscription = About(window);
  subscription.set_subscribe(subscribe);
  return subscription.SerializeAsString();
}

// The bytes of a field of the derived contract.
std::string CallId(int call_id) {
  return {15 << 3, static_cast<char>(call_id)};
}
const std::string kDeclined = {14 << 3, 1};

std::string Answer(int64_t window, const std::string& text) {
  lab::Decision answer = About(window);
  answer.mutable_response()->set_text(text);
  return answer.SerializeAsString();
}

// Of grpc.reflection.v1: which file has it.
std::string SymbolRequest(const std::string& name) {
  return std::string{4 << 3 | 2, static_cast<char>(name.size())} + name;
}

constexpr char kEcho[] = "/lab.Lab/Echo";
constexpr char kPark[] = "/lab.Lab/Park";
constexpr char kWatch[] = "/lab.Lab/Watch";
constexpr char kDecide[] = "/lab.Lab/Decide";
constexpr char kReflection[] =
    "/grpc.reflection.v1.ServerReflection/ServerReflectionInfo";

class FrontTest : public testing::Test {
 protected:
  ~FrontTest() override {
    client_.reset();
    server_.reset();
  }

  // Before anything else, where the defaults do not do.
  void Serve(const ServerOptions& options) {
    server_.emplace(loop_, options);
    server_->AddService(&service_);
    const auto port = server_->Listen("127.0.0.1:0");
    ASSERT_EQ(port.status(), absl::OkStatus());
    port_ = *port;
    address_ = absl::StrCat("127.0.0.1:", port_);
  }
  TestClient& client() {
    if (!server_) {
      Serve({});
    }
    if (!client_) {
      client_.emplace(loop_, address_);
    }
    return *client_;
  }

  template <typename Condition>
  void RunUntil(const Condition& condition) {
    EXPECT_TRUE(loop_.RunUntil(condition));
  }
  void Await(const std::shared_ptr<TestCall>& call) {
    RunUntil([&] { return call->over; });
  }
  void Await(const std::shared_ptr<TestStream>& stream, size_t messages) {
    RunUntil([&] { return stream->received.size() >= messages; });
  }
  void AwaitEnd(const std::shared_ptr<TestStream>& stream) {
    RunUntil([&] { return stream->over; });
  }
  void AwaitSubscriptions(size_t count) {
    RunUntil([&] { return server_->counters().subscriptions_now == count; });
  }

  // Returns once a stream has subscribed to window 1.
  std::shared_ptr<TestStream> Watch() {
    auto stream = client().Open(kWatch);
    stream->Send(EventsOf(1));
    AwaitSubscriptions(1);
    return stream;
  }
  std::shared_ptr<TestStream> AnswerFor() {
    auto stream = client().Open(kDecide);
    stream->Send(QuestionsOf(1));
    AwaitSubscriptions(1);
    return stream;
  }

  void Publish(int64_t window, const std::string& text) {
    lab::Text event;
    event.set_text(text);
    torvane::EventStream<lab::Text>::Publish(WindowId(window), event);
  }

  // Asks about window 1, and notes how that ends.
  void Ask(int64_t window = 1) {
    lab::Decision question = About(window);
    question.mutable_question()->set_text("why?");
    EXPECT_TRUE(torvane::CallbackStream<lab::Decision>::Ask(
        question, {.response_callback =
                       [this](lab::Decision& answer) {
                         outcomes_.push_back("=" + answer.response().text());
                       },
                   .error_callback =
                       [this](torvane::StreamCallError error) {
                         outcomes_.emplace_back(
                             error == torvane::StreamCallError::kRemoteError
                                 ? "declined"
                                 : "cancelled");
                       }}));
  }
  // Answers for windows 1 to `windows`, each on a stream of its own on which a
  // question waits; the end of a stream takes longer than a slice of time.
  void AnswerSlowlyFor(int windows) {
    const auto note_slowly = [this](torvane::StreamCallError) {
      outcomes_.emplace_back("cancelled");
      const loop::Clock::time_point end =
          loop_.Now() + 10 * serving::kEndingSlice;
      while (loop_.Now() < end) {
      }
    };
    for (int window = 1; window <= windows; ++window) {
      client().Open(kDecide)->Send(QuestionsOf(window));
      AwaitSubscriptions(window);
      EXPECT_TRUE(torvane::CallbackStream<lab::Decision>::Ask(
          About(window), {.response_callback = [](lab::Decision&) {},
                          .error_callback = note_slowly}));
    }
  }
  void AwaitOutcome(const std::string& outcome) {
    RunUntil([&] { return !outcomes_.empty(); });
    EXPECT_EQ(outcomes_, std::vector<std::string>{outcome});
  }

  loop::Loop loop_;
  transport::LabService service_;
  std::optional<Server> server_;
  int port_ = 0;
  std::string address_;
  std::optional<TestClient> client_;
  std::vector<std::string> outcomes_;
};

TEST_F(FrontTest, ACallIsAnswered) {
  const auto call = client().Call(kEcho, Text("hello"));
  Await(call);
  EXPECT_EQ(call->status, absl::OkStatus());
  EXPECT_EQ(call->response, Text("hello"));
}

TEST_F(FrontTest, AnEmptyRequestIsARequest) {
  const auto call = client().Call(kEcho, "");
  Await(call);
  EXPECT_EQ(call->status, absl::OkStatus());
}

TEST_F(FrontTest, ACallFailsWithItsCodeAndText) {
  service_.on_echo = [](serving::CallContext* context) {
    context->Fail(absl::FailedPreconditionError("not now: \xc3\xa4\n%"));
  };
  const auto call = client().Call(kEcho, Text("hello"));
  Await(call);
  EXPECT_EQ(call->status,
            absl::FailedPreconditionError("not now: \xc3\xa4\n%"));
}

TEST_F(FrontTest, EveryCodeArrives) {
  for (int code = 1; code <= 16; ++code) {
    const absl::Status failure(static_cast<absl::StatusCode>(code),
                               absl::StrCat("code ", code));
    service_.on_echo = [&](serving::CallContext* context) {
      context->Fail(failure);
    };
    const auto call = client().Call(kEcho, Text("hello"));
    Await(call);
    EXPECT_EQ(call->status, failure);
  }
}

// Of 2,048 bytes, the most that arrives as it is, and of more.
TEST_F(FrontTest, ALongTextIsShortenedAndItsCodeArrives) {
  const std::string longest(2'048, '\n');
  const std::string umlauts = std::string(2'047, '\n') + "\xc3\xa4";
  for (const auto& [text, arrives] :
       {std::pair{longest, longest},
        {longest + "x", longest + "..."},
        {umlauts, std::string(2'047, '\n') + "..."},
        {std::string(20'000, '\n'), longest + "..."}}) {
    service_.on_echo = [&text = text](serving::CallContext* context) {
      context->Fail(absl::NotFoundError(text));
    };
    const auto call = client().Call(kEcho, Text("hello"));
    Await(call);
    EXPECT_EQ(call->status, absl::NotFoundError(arrives));
  }
}

TEST_F(FrontTest, WhatIsNotThereIsUnimplemented) {
  for (const auto& [path, text] :
       {std::pair{"/lab.Lab/Sing", "the server has no method lab.Lab.Sing"},
        {"/lab.Bar/Echo", "the server has no method lab.Bar.Echo"},
        {"/lab.Lab/Forget", "Method Forget() not implemented."}}) {
    const auto call = client().Call(path, Text("x"));
    Await(call);
    EXPECT_EQ(call->status, absl::UnimplementedError(text));
  }
}

TEST_F(FrontTest, ARequestThatDoesNotParseIsInvalid) {
  const auto call = client().Call(kEcho, "\377");
  Await(call);
  EXPECT_TRUE(absl::IsInvalidArgument(call->status)) << call->status;
}

TEST_F(FrontTest, ACallWithoutARequestIsInvalid) {
  const auto stream = client().Open(kEcho);
  stream->HalfClose();
  AwaitEnd(stream);
  EXPECT_EQ(stream->status,
            absl::InvalidArgumentError("a call without a request"));
}

TEST_F(FrontTest, TheMethodLearnsThatTheClientCancels) {
  const auto call = client().Call(kPark, Text("x"));
  RunUntil([&] { return service_.parked.size() == 1; });
  call->Cancel();
  RunUntil([&] { return service_.parked[0].controller->IsCanceled(); });
  service_.parked[0].Complete();
  Await(call);
  EXPECT_TRUE(absl::IsCancelled(call->status));
  EXPECT_EQ(server_->counters().calls_cancelled, 1u);
}

TEST_F(FrontTest, TheMethodLearnsOfTheDeadline) {
  const auto call =
      client().Call(kPark, Text("x"), {.timeout = std::chrono::hours(1)});
  RunUntil([&] { return service_.parked.size() == 1; });
  const auto deadline = service_.parked[0].controller->deadline();
  ASSERT_TRUE(deadline.has_value());
  const auto left = *deadline - std::chrono::steady_clock::now();
  EXPECT_GT(left, std::chrono::minutes(59));
  // gRPC rounds what it sends.
  EXPECT_LE(left, std::chrono::minutes(61));
  service_.parked[0].Complete();
  Await(call);
}

TEST_F(FrontTest, ACallIsOverWhenItsTimeIs) {
  const auto call =
      client().Call(kPark, Text("x"), {.timeout = milliseconds(200)});
  Await(call);
  EXPECT_TRUE(absl::IsDeadlineExceeded(call->status)) << call->status;
  RunUntil([&] { return service_.parked[0].controller->IsCanceled(); });
  service_.parked[0].Complete();
  RunUntil([&] { return server_->counters().calls_abandoned_now == 0; });
}

TEST_F(FrontTest, ThePeerIsNamedToTheMethod) {
  std::string peer;
  service_.on_echo = [&](serving::CallContext* context) {
    peer = context->peer();
  };
  Await(client().Call(kEcho, Text("x")));
  EXPECT_EQ(peer.substr(0, 15), "ipv4:127.0.0.1:");
}

TEST_F(FrontTest, EventsCome) {
  const auto stream = Watch();
  Publish(1, "first");
  Publish(2, "another window's");
  Publish(1, "second");
  Await(stream, 2);
  EXPECT_EQ(stream->received, (std::vector{Text("first"), Text("second")}));
}

TEST_F(FrontTest, EventsGoOnAfterTheClientHasClosedItsHalf) {
  const auto stream = client().Open(kWatch);
  stream->Send(EventsOf(1));
  stream->HalfClose();
  AwaitSubscriptions(1);
  // What is sent on the same connection afterwards has come later.
  Await(client().Call(kEcho, Text("x")));
  Publish(1, "still");
  Await(stream, 1);
  EXPECT_FALSE(stream->over);
}

TEST_F(FrontTest, AStreamThatIsCancelledIsGone) {
  const auto stream = Watch();
  stream->Cancel();
  RunUntil([&] { return server_->counters().streams_now == 0; });
  AwaitEnd(stream);
  EXPECT_TRUE(absl::IsCancelled(stream->status));
}

TEST_F(FrontTest, AStreamIsOverWhenItsTimeIs) {
  const auto stream = client().Open(kWatch, {.timeout = milliseconds(200)});
  AwaitEnd(stream);
  EXPECT_TRUE(absl::IsDeadlineExceeded(stream->status));
  RunUntil([&] { return server_->counters().streams_now == 0; });
}

TEST_F(FrontTest, AStreamIsTakenBeforeItsFirstMessage) {
  const auto stream = client().Open(kWatch);
  RunUntil([&] { return stream->accepted; });
  EXPECT_EQ(server_->counters().streams_now, 1u);
}

TEST_F(FrontTest, AClientMayNotSendMessagesOfEventsForEver) {
  ServerOptions options;
  options.front.max_event_messages = 2;
  Serve(options);
  const auto stream = client().Open(kWatch);
  for (const int64_t window : {1, 2, 3}) {
    stream->Send(EventsOf(window));
  }
  AwaitEnd(stream);
  EXPECT_EQ(stream->status, absl::ResourceExhaustedError(
                                "more messages on one stream of events than "
                                "max_event_messages, 2: open another"));
  EXPECT_EQ(server_->counters().streams_now, 0u);
}

TEST_F(FrontTest, AQuestionCarriesItsNumberAndTheAnswerRepeatsIt) {
  const auto stream = AnswerFor();
  Ask();
  Await(stream, 1);
  lab::Decision question = About(1);
  question.mutable_question()->set_text("why?");
  EXPECT_EQ(stream->received[0], question.SerializeAsString() + CallId(1));
  stream->Send(Answer(1, "therefore") + CallId(1));
  AwaitOutcome("=therefore");
}

TEST_F(FrontTest, AnOldStubAnswersTheOnlyQuestion) {
  const auto stream = AnswerFor();
  Ask();
  Await(stream, 1);
  stream->Send(Answer(1, "therefore"));
  AwaitOutcome("=therefore");
}

TEST_F(FrontTest, AnOldStubAnswersOneQuestionAfterTheOther) {
  const auto stream = AnswerFor();
  for (size_t i = 1; i <= 2; ++i) {
    outcomes_.clear();
    Ask();
    Await(stream, i);
    stream->Send(Answer(1, "therefore"));
    AwaitOutcome("=therefore");
  }
}

TEST_F(FrontTest, AnOldStubCannotTellSeveralQuestionsApart) {
  const auto stream = AnswerFor();
  Ask();
  Ask();
  Await(stream, 2);
  stream->Send(Answer(1, "therefore"));
  AwaitEnd(stream);
  EXPECT_EQ(stream->status,
            absl::InvalidArgumentError(
                "an answer without call_id, while several questions about its "
                "window wait: repeat the call_id of the question, field 15"));
  EXPECT_EQ(outcomes_, (std::vector<std::string>{"cancelled", "cancelled"}));
}

TEST_F(FrontTest, QuestionsAboutOtherWindowsDoNotConfuseAnOldStub) {
  const auto stream = AnswerFor();
  stream->Send(QuestionsOf(2));
  AwaitSubscriptions(2);
  Ask(1);
  Ask(2);
  Await(stream, 2);
  stream->Send(Answer(1, "therefore"));
  AwaitOutcome("=therefore");
}

TEST_F(FrontTest, AnOldStubThatAnswersNothingIsTold) {
  const auto stream = AnswerFor();
  stream->Send(Answer(1, "therefore"));
  AwaitEnd(stream);
  EXPECT_EQ(stream->status,
            absl::InvalidArgumentError("an answer without call_id, while no "
                                       "question about its window waits"));
}

TEST_F(FrontTest, AQuestionIsDeclined) {
  const auto stream = AnswerFor();
  Ask();
  Await(stream, 1);
  lab::Decision refusal = About(1);
  stream->Send(refusal.SerializeAsString() + kDeclined + CallId(1));
  AwaitOutcome("declined");
}

TEST_F(FrontTest, TheOnlyQuestionIsDeclinedWithoutItsNumber) {
  const auto stream = AnswerFor();
  Ask();
  Await(stream, 1);
  stream->Send(About(1).SerializeAsString() + kDeclined);
  AwaitOutcome("declined");
}

TEST_F(FrontTest, WhatUnsubscribingCancelsWaitsForAnOldStubNoLonger) {
  const auto stream = AnswerFor();
  Ask();
  Await(stream, 1);
  stream->Send(QuestionsOf(1, false));
  AwaitOutcome("cancelled");
  stream->Send(QuestionsOf(1));
  AwaitSubscriptions(1);
  outcomes_.clear();
  Ask();
  Await(stream, 2);
  stream->Send(Answer(1, "therefore"));
  AwaitOutcome("=therefore");
}

TEST_F(FrontTest, HalfAClosedStreamOfQuestionsIsOver) {
  const auto stream = AnswerFor();
  Ask();
  Await(stream, 1);
  stream->HalfClose();
  AwaitOutcome("cancelled");
  AwaitEnd(stream);
  EXPECT_EQ(stream->status, absl::OkStatus());
}

TEST_F(FrontTest, AMessageThatWouldEndTheProcessEndsItsStream) {
  for (const std::string& message :
       {std::string(), std::string("\377"), std::string("\x78\x01")}) {
    const auto stream = client().Open(kDecide);
    stream->Send(message);
    AwaitEnd(stream);
    EXPECT_TRUE(absl::IsInvalidArgument(stream->status)) << stream->status;
  }
  EXPECT_EQ(server_->counters().messages_refused, 3u);
}

TEST_F(FrontTest, AMessageThatIsTooLongIsRefused) {
  const auto call = client().Call(kEcho, Text(std::string(100'000, 'x')));
  Await(call);
  EXPECT_TRUE(absl::IsResourceExhausted(call->status)) << call->status;
  const auto stream = client().Open(kWatch);
  stream->Send(std::string(100'000, 'x'));
  AwaitEnd(stream);
  EXPECT_TRUE(absl::IsResourceExhausted(stream->status)) << stream->status;
}

TEST_F(FrontTest, AResponseThatIsTooLongFailsTheCall) {
  ServerOptions options;
  options.front.limits.max_frame_bytes = 10'000;
  Serve(options);
  lab::Number bytes;
  bytes.set_number(20'000);
  const auto call = client().Call("/lab.Lab/Make", bytes.SerializeAsString());
  Await(call);
  EXPECT_EQ(call->status,
            absl::ResourceExhaustedError("the response takes 20004 bytes, more "
                                         "than max_frame_bytes, 10000"));
  EXPECT_EQ(server_->counters().limit_hits.max_frame_bytes, 1u);
}

TEST_F(FrontTest, AnEventThatIsTooLongEndsItsStream) {
  ServerOptions options;
  options.front.limits.max_frame_bytes = 10'000;
  Serve(options);
  const auto stream = Watch();
  Publish(1, std::string(20'000, 'x'));
  AwaitEnd(stream);
  EXPECT_TRUE(absl::IsResourceExhausted(stream->status)) << stream->status;
}

TEST_F(FrontTest, WhoDoesNotReadIsCutOff) {
  ServerOptions options;
  options.front.limits.max_frame_bytes = 1 << 20;
  options.front.limits.max_outbox_bytes = 1 << 20;
  Serve(options);
  // Nothing is taken from the client's side while the loop is not run.
  const auto stream = Watch();
  const std::string event(512 << 10, 'x');
  for (int i = 0; i < 100; ++i) {
    Publish(1, event);
  }
  EXPECT_EQ(server_->counters().limit_hits.max_outbox_bytes, 1u);
  RunUntil([&] { return server_->counters().streams_now == 0; });
}

TEST_F(FrontTest, WhoDoesNotReadWhatReflectionTellsIsCutOff) {
  ServerOptions options;
  options.front.limits.max_outbox_bytes = 1 << 10;
  options.front.limits.busy_outbox_bytes = 1 << 10;
  Serve(options);
  const auto waiting = [this] {
    const serving::ServerReport report = server_->Report();
    return report.connections.empty() ? 0 : report.connections[0].queued_bytes;
  };
  SilentPeer peer(port_, kReflection);
  peer.Say(SymbolRequest("lab.Lab"));
  RunUntil([&] { return waiting() > 0; });
  const size_t one_answer = waiting();
  ASSERT_GT(2 * one_answer, options.front.limits.max_outbox_bytes);
  peer.Say(SymbolRequest("lab.Lab"));
  // Nothing else is under way: the next turn is that of the second request.
  int turns = 0;
  RunUntil([&] { return turns++ == 1; });
  EXPECT_EQ(waiting(), one_answer);
}

TEST_F(FrontTest, WhoHasNotReadItsReplyIsNotForgotten) {
  ServerOptions options;
  options.front.limits.max_connections = 1;
  options.front.idle_peer = milliseconds(1);
  Serve(options);
  std::optional<SilentPeer> peer(std::in_place, port_, kEcho);
  peer->Say(Text("x"));
  RunUntil([&] { return server_->counters().calls_started == 1; });
  const auto refused = client().Call(kEcho, Text("x"));
  Await(refused);
  EXPECT_TRUE(absl::IsResourceExhausted(refused->status)) << refused->status;
  // It goes, and the reply with it.
  peer.reset();
  RunUntil([&] { return server_->counters().connections_now == 0; });
}

TEST_F(FrontTest, LimitsHoldForEachPeer) {
  ServerOptions options;
  options.front.limits.max_streams = 1;
  Serve(options);
  const auto first = Watch();
  const auto second = client().Open(kWatch);
  AwaitEnd(second);
  EXPECT_TRUE(absl::IsResourceExhausted(second->status)) << second->status;
  TestClient other(loop_, address_);
  const auto third = other.Open(kWatch);
  RunUntil([&] { return third->accepted; });
  EXPECT_EQ(server_->Report().connections.size(), 2u);
}

TEST_F(FrontTest, TooManyPeersAreRefused) {
  ServerOptions options;
  options.front.limits.max_connections = 1;
  Serve(options);
  const auto stream = Watch();
  TestClient other(loop_, address_);
  const auto refused = other.Call(kEcho, Text("x"));
  Await(refused);
  EXPECT_EQ(refused->status,
            absl::ResourceExhaustedError(
                "max_connections, 1, peers have something under way"));
  // One that has nothing under way makes room.
  stream->Cancel();
  RunUntil([&] { return server_->counters().streams_now == 0; });
  const auto taken = other.Call(kEcho, Text("x"));
  Await(taken);
  EXPECT_EQ(taken->status, absl::OkStatus());
}

TEST_F(FrontTest, APeerWithNothingUnderWayIsForgotten) {
  ServerOptions options;
  options.front.idle_peer = milliseconds(1);
  Serve(options);
  const auto stream = Watch();
  Await(client().Call(kEcho, Text("x")));
  EXPECT_EQ(server_->counters().connections_now, 1u);
  stream->Cancel();
  RunUntil([&] { return server_->counters().connections_now == 0; });
}

TEST_F(FrontTest, TheStatusReportTellsOfPeers) {
  const auto stream = AnswerFor();
  const auto call = client().Call(kPark, Text("x"));
  RunUntil([&] { return service_.parked.size() == 1; });
  Ask();
  const serving::ServerReport report = server_->Report();
  ASSERT_EQ(report.connections.size(), 1u);
  EXPECT_EQ(report.connections[0].calls, 1u);
  EXPECT_EQ(report.connections[0].streams, 1u);
  EXPECT_EQ(report.connections[0].questions, 1u);
  EXPECT_EQ(report.connections[0].name.substr(0, 15), "ipv4:127.0.0.1:");
  service_.parked[0].Complete();
  Await(call);
}

TEST_F(FrontTest, AClientThatGoesLeavesNothing) {
  const auto stream = AnswerFor();
  const auto call = client().Call(kPark, Text("x"));
  RunUntil([&] { return service_.parked.size() == 1; });
  Ask();
  client_.reset();
  AwaitOutcome("cancelled");
  RunUntil([&] { return server_->counters().streams_now == 0; });
  RunUntil([&] { return service_.parked[0].controller->IsCanceled(); });
  service_.parked[0].Complete();
}

TEST_F(FrontTest, APeerThatAnswersNoPingIsLost) {
  ServerOptions options;
  options.front.keepalive_time = milliseconds(50);
  options.front.keepalive_timeout = milliseconds(50);
  Serve(options);
  const SilentPeer peer(port_, kWatch);
  RunUntil([&] { return server_->counters().streams_now == 1; });
  RunUntil([&] { return server_->counters().streams_now == 0; });
}

TEST_F(FrontTest, StoppingEndsStreamsAndLetsCallsComplete) {
  const auto stream = AnswerFor();
  const auto call = client().Call(kPark, Text("x"));
  RunUntil([&] { return service_.parked.size() == 1; });
  Ask();
  bool stopped = false;
  server_->Stop(std::chrono::hours(1), [&] { stopped = true; });
  AwaitOutcome("cancelled");
  AwaitEnd(stream);
  EXPECT_EQ(stream->status, absl::UnavailableError("the server is stopping"));
  const auto late = client().Call(kEcho, Text("x"));
  Await(late);
  EXPECT_EQ(late->status, absl::UnavailableError("the server is stopping"));
  EXPECT_FALSE(call->over);
  EXPECT_FALSE(stopped);
  service_.parked[0].Complete();
  Await(call);
  EXPECT_EQ(call->response, Text("x"));
  RunUntil([&] { return stopped; });
}

TEST_F(FrontTest, StoppingWaitsForNobodyWhoWatchesItsHealth) {
  const auto health = client().Open("/grpc.health.v1.Health/Watch");
  health->Send(Text("lab.Lab"));
  Await(health, 1);
  bool stopped = false;
  server_->Stop(std::chrono::hours(1), [&] { stopped = true; });
  RunUntil([&] { return stopped; });
}

TEST_F(FrontTest, ACallThatBeginsWhileStoppingIsToldBeforeItsRequest) {
  Await(client().Call(kEcho, Text("x")));
  const auto parked = client().Call(kPark, Text("x"));
  RunUntil([&] { return service_.parked.size() == 1; });
  server_->Stop(std::chrono::hours(1), [] {});
  const auto late = client().Open(kEcho);
  AwaitEnd(late);
  EXPECT_EQ(late->status, absl::UnavailableError("the server is stopping"));
  service_.parked[0].Complete();
  Await(parked);
}

// No slice has time for two streams.
TEST_F(FrontTest, StoppingServesOthersBetweenTheEndsOfStreams) {
  AnswerSlowlyFor(3);
  server_->Stop(std::chrono::hours(1), [] {});
  loop_.Post([this] { outcomes_.emplace_back("another's turn"); });
  RunUntil([&] { return outcomes_.size() == 4; });
  EXPECT_EQ(outcomes_, (std::vector<std::string>{"cancelled", "another's turn",
                                                 "cancelled", "cancelled"}));
}

TEST_F(FrontTest, AClientThatGoesLetsOthersBeServedBetweenTheEndsOfItsStreams) {
  AnswerSlowlyFor(3);
  client().CancelAll();
  RunUntil([&] { return !outcomes_.empty(); });
  loop_.Post([this] { outcomes_.emplace_back("another's turn"); });
  RunUntil([&] { return outcomes_.size() == 4; });
  EXPECT_NE(outcomes_.back(), "another's turn");
}

TEST_F(FrontTest, StoppingCancelsCallsWhenItsGraceIsOver) {
  const auto call = client().Call(kPark, Text("x"));
  RunUntil([&] { return service_.parked.size() == 1; });
  bool stopped = false;
  server_->Stop(milliseconds(1), [&] { stopped = true; });
  RunUntil([&] { return stopped; });
  Await(call);
  EXPECT_FALSE(call->status.ok());
  RunUntil([&] { return service_.parked[0].controller->IsCanceled(); });
  service_.parked[0].Complete();
}

TEST_F(FrontTest, DestroyingTheServerEndsWhatIsUnderWay) {
  const auto stream = AnswerFor();
  const auto call = client().Call(kPark, Text("x"));
  RunUntil([&] { return service_.parked.size() == 1; });
  Ask();
  server_.reset();
  EXPECT_EQ(outcomes_, std::vector<std::string>{"cancelled"});
  EXPECT_TRUE(service_.parked[0].controller->IsCanceled());
  Await(call);
  AwaitEnd(stream);
  EXPECT_TRUE(absl::IsUnavailable(call->status)) << call->status;
  EXPECT_TRUE(absl::IsUnavailable(stream->status)) << stream->status;
  service_.parked[0].Complete();
}

TEST_F(FrontTest, TheServerTellsOfItsServices) {
  // Of grpc.health.v1: the name is field 1, as it is of a Text, and so is the
  // answer, 1 if the service is served.
  const auto health =
      client().Call("/grpc.health.v1.Health/Check", Text("lab.Lab"));
  Await(health);
  EXPECT_EQ(health->status, absl::OkStatus());
  EXPECT_EQ(health->response, (std::string{1 << 3, 1}));
  const auto reflection = client().Open(kReflection);
  reflection->Send(SymbolRequest("lab.Echo"));
  reflection->Send(SymbolRequest("lab.Lab"));
  Await(reflection, 2);
  EXPECT_THAT(reflection->received[0],
              HasSubstr("there is no symbol lab.Echo"));
  EXPECT_THAT(reflection->received[1], HasSubstr("lab.proto"));
}

TEST_F(FrontTest, APortThatIsTakenIsNotShared) {
  client();
  Server other(loop_);
  EXPECT_TRUE(absl::IsUnavailable(other.Listen(address_).status()));
}

TEST_F(FrontTest, ThatItMayNotListenIsSaid) {
  Server server(loop_);
  EXPECT_TRUE(absl::IsPermissionDenied(server.Listen("0.0.0.0:0").status()));
}

}  // namespace
}  // namespace rpc::grpc
