// What a server tells of its clients while it serves them.

#include "core/common/rpc/serving/trace.h"

#include <gtest/gtest.h>

#include <array>
#include <chrono>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "absl/strings/str_cat.h"
#include "core/common/rpc/stream/callback_stream.h"
#include "core/common/rpc/stream/event_stream.h"
#include "core/common/rpc/testing/window_id.h"
#include "core/common/rpc/transport/callback_answerer.h"
#include "core/common/rpc/transport/event_subscriber.h"
#include "core/common/rpc/transport/testing/lab.h"

namespace rpc::transport {
namespace {

using lab::Lab_Stub;
using serving::Span;
using serving::SpanKind;
using torvane::WindowId;
using Lines = std::vector<std::string>;

// Keeps what it is told as lines of text, without the ids: those it checks
// itself. Every span has to end once, under the name that it began with.
class Recorder final : public serving::Trace {
 public:
  void Begin(const Span& span) override {
    Add("begin", span, "");
    EXPECT_TRUE(open_.insert(KeyOf(span)).second) << KeyOf(span);
  }
  void End(const Span& span, const absl::Status& status) override {
    Add("end", span, absl::StrCat(" ", status.ToString()));
    EXPECT_EQ(open_.erase(KeyOf(span)), 1u) << KeyOf(span);
  }
  void Event(const Span& stream, size_t bytes) override {
    Add("event", stream, absl::StrCat(" ", bytes));
    EXPECT_TRUE(open_.contains(KeyOf(stream))) << KeyOf(stream);
  }

  // Those of one kind, since the last time.
  Lines Take(SpanKind kind) { return std::exchange(lines_[kind], {}); }

  size_t open() const { return open_.size(); }

 private:
  static std::string KeyOf(const Span& span) {
    return absl::StrCat(static_cast<int>(span.kind), " ", span.connection, " ",
                        span.name, " ", span.id);
  }
  void Add(const char* what, const Span& span, const std::string& rest) {
    lines_[span.kind].push_back(absl::StrCat(what, " ", span.name, rest));
  }

  std::map<SpanKind, Lines> lines_;
  std::set<std::string> open_;
};

class ServerTrace : public ::testing::Test {
 protected:
  using Answerer = CallbackAnswerer<lab::Decision>;

  static ServerOptions Options(serving::Trace* trace) {
    ServerOptions options;
    options.limits.max_calls = 2;
    options.limits.max_streams = 2;
    options.trace = trace;
    return options;
  }

  static ClientOptions Named(const char* name) {
    ClientOptions options;
    options.name = name;
    return options;
  }

  static const google::protobuf::MethodDescriptor* Method(const char* name) {
    return lab::Lab::descriptor()->FindMethodByName(name);
  }

  Lines Calls() { return trace.Take(SpanKind::kCall); }
  Lines Streams() { return trace.Take(SpanKind::kStream); }
  Lines Questions() { return trace.Take(SpanKind::kQuestion); }
  Lines Connections() { return trace.Take(SpanKind::kConnection); }

  void Park(TextCall& call) {
    const size_t before = lab.service.parked.size();
    call.Start(*client, &Lab_Stub::Park, "parked");
    lab.RunUntil([&] { return lab.service.parked.size() > before; });
  }

  // A client that answers for window 7, and keeps what it is asked.
  void Answer() {
    answerer.emplace(
        *client, Method("Decide"),
        [this](const lab::Decision&, const Answerer::Reply& reply) {
          asked.push_back(reply);
        });
    answerer->Subscribe(WindowId(7));
    lab.RunUntil([&] { return SubscribersOfSeven() > 0; });
  }
  static size_t SubscribersOfSeven() {
    const BrowserId seven = WindowId(7);
    return torvane::CallbackStream<lab::Decision>::stream_map_.count(&seven);
  }
  void Ask() {
    lab::Decision question;
    *question.mutable_browser_id() = WindowId(7);
    question.mutable_question()->set_text("may it?");
    const size_t before = asked.size();
    ASSERT_TRUE(torvane::CallbackStream<lab::Decision>::Ask(
        question, {.response_callback = [](lab::Decision&) {},
                   .error_callback = [](torvane::StreamCallError) {}}));
    lab.RunUntil([&] { return asked.size() > before; });
  }

  Recorder trace;
  Lab lab{Options(&trace)};
  TextCall first;
  TextCall second;
  TextCall third;
  std::unique_ptr<Client> client = lab.NewClient(Named("tester"));
  std::optional<Answerer> answerer;
  std::vector<Answerer::Reply> asked;
};

TEST_F(ServerTrace, ACallLastsUntilItsMethodIsDone) {
  Park(first);
  EXPECT_EQ(Calls(), Lines{"begin Park"});
  lab.service.parked[0].Complete();
  lab.RunReady();
  EXPECT_EQ(Calls(), Lines{"end Park OK"});
}

TEST_F(ServerTrace, AFailedCallEndsWithItsStatus) {
  EXPECT_FALSE(CallText(*client, &Lab_Stub::Fail, "no").ok());
  EXPECT_EQ(Calls(), (Lines{"begin Fail", "end Fail UNKNOWN: no"}));
}

TEST_F(ServerTrace, ACancelledCallEndsThen) {
  Park(first);
  first.controller.StartCancel();
  lab.RunUntil([&] { return lab.server->counters().calls_cancelled > 0; });
  EXPECT_EQ(
      Calls(),
      (Lines{"begin Park", "end Park CANCELLED: the client has cancelled it"}));
  lab.service.parked[0].Complete();
  lab.RunReady();
  EXPECT_EQ(Calls(), Lines());
}

// Of a client that does not keep the deadline itself, and so does not cancel
// the call before the server finds it too late.
TEST_F(ServerTrace, ACallThatIsTooLateEndsThen) {
  const auto peer = lab.NewPeer();
  CallFrame park = peer->CallOf("Park", 3);
  park.set_timeout_ms(1);
  peer->Send(Frame::kCall, park);
  ASSERT_TRUE(peer->Receive());
  EXPECT_EQ(Calls(),
            (Lines{"begin Park",
                   "end Park DEADLINE_EXCEEDED: the deadline has passed"}));
  lab.service.parked[0].Complete();
}

TEST_F(ServerTrace, ARefusedCallIsShownWithTheReason) {
  Park(first);
  Park(second);
  Calls();
  EXPECT_FALSE(CallText(*client, &Lab_Stub::Echo, "x").ok());
  EXPECT_EQ(Calls(), (Lines{"begin Echo",
                            "end Echo RESOURCE_EXHAUSTED: max_calls, 2, are "
                            "in flight"}));
  for (const LabService::Parked& parked : lab.service.parked) {
    parked.Complete();
  }
}

TEST_F(ServerTrace, ACallOfNoMethodHasAName) {
  const auto peer = lab.NewPeer();
  CallFrame call;
  call.set_method_id(4711);
  peer->Send(Frame::kCall, call);
  peer->Receive();
  EXPECT_EQ(Calls(), (Lines{"begin unknown method",
                            "end unknown method UNIMPLEMENTED: no method has "
                            "the id 4711"}));
}

TEST_F(ServerTrace, AConnectionBearsItsClientsName) {
  const Lines begun = Connections();
  ASSERT_EQ(begun.size(), 1u);
  EXPECT_TRUE(begun[0].starts_with("begin tester (pid ")) << begun[0];
}

TEST_F(ServerTrace, NothingOfAClientThatHasLeftIsStillUnderWay) {
  Answer();
  Ask();
  Park(first);
  EXPECT_EQ(trace.open(), 4u);
  Connections();
  Calls();
  client.reset();
  lab.RunUntil([&] { return lab.server->counters().connections_now == 0; });
  EXPECT_EQ(trace.open(), 0u);
  EXPECT_EQ(Calls(), Lines{"end Park CANCELLED: the client is gone"});
  const Lines ended = Connections();
  ASSERT_EQ(ended.size(), 1u);
  EXPECT_TRUE(
      ended[0].ends_with(") UNAVAILABLE: the other side closed the connection"))
      << ended[0];
  lab.service.parked[0].Complete();
}

// Who never says hello has no name, and nothing of it is shown.
TEST_F(ServerTrace, AClientThatIsNotWelcomeIsNotShown) {
  Connections();
  { const loop::ScopedFd stranger = lab.Connect(); }
  lab.RunUntil([&] { return lab.server->counters().connections_now == 1; });
  EXPECT_EQ(Connections(), Lines());
}

TEST_F(ServerTrace, AnEventIsAMomentOfItsStream) {
  EventSubscriber<lab::Text> subscriber(*client, Method("Watch"),
                                        [](const lab::Text&) {});
  subscriber.Subscribe(WindowId(7));
  lab::Text event;
  event.set_text("gone");
  lab.RunUntil([&] {
    return torvane::EventStream<lab::Text>::Publish(WindowId(7), event) > 0;
  });
  EXPECT_EQ(Streams(), (Lines{"begin Watch", "event Watch 6"}));
  subscriber.End();
  lab.RunUntil([&] { return lab.server->counters().streams_now == 0; });
  EXPECT_EQ(Streams(), Lines{"end Watch OK"});
}

TEST_F(ServerTrace, ARefusedStreamIsShownWithTheReason) {
  std::array<std::unique_ptr<EventSubscriber<lab::Text>>, 3> subscribers;
  for (auto& subscriber : subscribers) {
    subscriber = std::make_unique<EventSubscriber<lab::Text>>(
        *client, Method("Watch"), [](const lab::Text&) {});
  }
  lab.RunUntil([&] { return lab.server->counters().streams_refused > 0; });
  EXPECT_EQ(Streams(),
            (Lines{"begin Watch", "begin Watch", "begin Watch",
                   "end Watch RESOURCE_EXHAUSTED: max_streams, 2, are open"}));
}

TEST_F(ServerTrace, AQuestionLastsUntilItIsAnswered) {
  Answer();
  Ask();
  EXPECT_EQ(Questions(), Lines{"begin Decide"});
  // A question is no event.
  EXPECT_EQ(Streams(), Lines{"begin Decide"});
  lab::Decision answer;
  answer.mutable_response()->set_text("it may");
  ASSERT_TRUE(asked[0].Answer(answer).ok());
  lab.RunReady();
  EXPECT_EQ(Questions(), Lines{"end Decide OK"});
}

TEST_F(ServerTrace, AQuestionEndsWithTheReleaseOfItsWindow) {
  Answer();
  Ask();
  answerer->Unsubscribe(WindowId(7));
  lab.RunUntil([&] { return SubscribersOfSeven() == 0; });
  EXPECT_EQ(
      Questions(),
      (Lines{"begin Decide", "end Decide CANCELLED: the window is released"}));
}

TEST_F(ServerTrace, AQuestionEndsWithItsStream) {
  Answer();
  Ask();
  answerer.reset();
  lab.RunUntil([&] { return lab.server->counters().streams_now == 0; });
  EXPECT_EQ(Questions(), (Lines{"begin Decide",
                                "end Decide CANCELLED: the stream has ended"}));
}

}  // namespace
}  // namespace rpc::transport
