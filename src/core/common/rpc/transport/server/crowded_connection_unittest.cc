// Calls, events, questions and answers that share one connection, with more to
// say on both sides than the sockets take: nothing waits for ever.

#include <gtest/gtest.h>

#include <chrono>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "core/common/rpc/serving/ask_within.h"
#include "core/common/rpc/stream/callback_stream.h"
#include "core/common/rpc/stream/event_stream.h"
#include "core/common/rpc/testing/window_id.h"
#include "core/common/rpc/transport/callback_answerer.h"
#include "core/common/rpc/transport/event_subscriber.h"
#include "core/common/rpc/transport/testing/lab.h"

namespace rpc::transport {
namespace {

using torvane::WindowId;

using Answerer = CallbackAnswerer<lab::Decision>;

lab::Decision QuestionAbout(int64_t window) {
  lab::Decision question;
  *question.mutable_browser_id() = WindowId(window);
  question.mutable_question();
  return question;
}

class CrowdedConnection : public ::testing::Test {
 protected:
  void Connect(const serving::Limits& limits = {}) {
    ServerOptions options;
    options.limits = limits;
    lab.emplace(options);
    client = lab->NewClient();
  }
  const serving::Counters& counters() { return lab->server->counters(); }

  static bool Publish(const std::string& text) {
    lab::Text event;
    event.set_text(text);
    return torvane::EventStream<lab::Text>::Publish(WindowId(1), event) > 0;
  }

  // Answers all questions about the windows at once.
  std::unique_ptr<Answerer> AnswerFor(const std::vector<int64_t>& windows) {
    auto answerer = std::make_unique<Answerer>(
        *client, lab::Lab::descriptor()->FindMethodByName("Decide"),
        [](const lab::Decision&, const Answerer::Reply& reply) {
          lab::Decision answer;
          answer.mutable_response();
          EXPECT_TRUE(reply.Answer(answer).ok());
        });
    for (const int64_t window : windows) {
      answerer->Subscribe(WindowId(window));
    }
    lab->RunReady();
    return answerer;
  }

  std::optional<Lab> lab;
  std::unique_ptr<Client> client;
};

TEST_F(CrowdedConnection, AnswersAllCallsAlthoughBothSidesAreFull) {
  Connect({.max_client_frame_bytes = 1'000'000, .busy_outbox_bytes = 500'000});
  constexpr int kCalls = 40;
  int over = 0;
  std::vector<std::unique_ptr<TextCall>> calls;
  for (int i = 0; i < kCalls; ++i) {
    calls.push_back(std::make_unique<TextCall>([&] { ++over; }));
    calls.back()->Start(*client, &lab::Lab_Stub::Echo,
                        std::string(300'000, 'x'));
  }
  lab->RunUntil([&] { return over == kCalls; });
  for (const auto& call : calls) {
    EXPECT_TRUE(call->controller.status().ok()) << call->controller.status();
    EXPECT_EQ(call->response.text().size(), 300'000u);
  }
  EXPECT_GT(counters().limit_hits.busy_outbox_bytes, 0u);
}

TEST_F(CrowdedConnection, AsksQuestionsFromInsideAnswers) {
  Connect();
  const auto answerer = AnswerFor({1, 2});
  // A callback may not ask about its own window: the two take turns.
  constexpr int kQuestions = 1'000;
  int answered = 0;
  std::function<void()> ask = [&] {
    EXPECT_TRUE(torvane::CallbackStream<lab::Decision>::Ask(
        QuestionAbout(1 + answered % 2),
        {.response_callback =
             [&](lab::Decision&) {
               if (++answered < kQuestions) {
                 ask();
               }
             },
         .error_callback = [](torvane::StreamCallError) { FAIL(); }}));
  };
  ask();
  lab->RunUntil([&] { return answered == kQuestions; });
}

TEST_F(CrowdedConnection, AsksQuestionsFromInsideAnswersWhileBothSidesAreFull) {
  Connect({.max_client_frame_bytes = 1'000'000, .busy_outbox_bytes = 500'000});
  const auto answerer = AnswerFor({1});
  size_t events = 0;
  EventSubscriber<lab::Text> subscriber(
      *client, lab::Lab::descriptor()->FindMethodByName("Watch"),
      [&](const lab::Text&) { ++events; });
  subscriber.Subscribe(WindowId(1));
  lab->RunReady();

  // Each answer brings the next question and a bulk of events, and the client
  // has a bulk of calls on the way at any time.
  constexpr int kQuestions = 50;
  int answered = 0;
  int calls_over = 0;
  std::vector<std::unique_ptr<TextCall>> calls;
  std::function<void()> call = [&] {
    calls.push_back(std::make_unique<TextCall>([&] {
      ++calls_over;
      if (answered < kQuestions) {
        call();
      }
    }));
    calls.back()->Start(*client, &lab::Lab_Stub::Echo,
                        std::string(200'000, 'x'));
  };
  std::function<void()> ask = [&] {
    for (int i = 0; i < 10; ++i) {
      EXPECT_TRUE(Publish(std::string(100'000, 'x')));
    }
    serving::AskWithin<lab::Decision>(
        lab->loop, std::chrono::hours(1), QuestionAbout(1),
        [&](serving::QuestionOutcome outcome, const lab::Decision&) {
          EXPECT_EQ(outcome, serving::QuestionOutcome::kAnswered);
          if (++answered < kQuestions) {
            ask();
          }
        });
  };
  for (int i = 0; i < 10; ++i) {
    call();
  }
  ask();
  lab->RunUntil([&] {
    return answered == kQuestions &&
           calls_over == static_cast<int>(calls.size());
  });
  EXPECT_EQ(events, 10u * kQuestions);
}

// A client that reads no events, but sends answers.
class UnreadEvents : public CrowdedConnection {
 protected:
  void Send(uint64_t stream,
            const google::protobuf::MessageLite& payload,
            int64_t call_id = 0) {
    StreamDataFrame data;
    data.add_stream_ids(stream);
    data.mutable_message()->set_call_id(call_id);
    payload.SerializeToString(data.mutable_message()->mutable_payload());
    peer->Send(Frame::kStreamData, data);
    lab->RunReady();
  }
  void Open(uint64_t stream, const std::string& method) {
    StreamOpenFrame open;
    open.set_stream_id(stream);
    open.set_method_id(peer->IdOf(method));
    peer->Send(Frame::kStreamOpen, open);
  }

  // Subscribes to events and to questions about window 1.
  void Subscribe() {
    peer = lab->NewPeer();
    Open(1, "Watch");
    Open(2, "Decide");
    EventSubscription events;
    *events.mutable_subscribe_to() = WindowId(1);
    Send(1, events);
    lab::Decision questions;
    *questions.mutable_browser_id() = WindowId(1);
    questions.set_subscribe(true);
    Send(2, questions);
  }

  std::unique_ptr<RawPeer> peer;
};

TEST_F(UnreadEvents, AnswersAreReadWhileEventsAreUnread) {
  Connect({.busy_outbox_bytes = 100'000});
  Subscribe();
  bool answered = false;
  EXPECT_TRUE(torvane::CallbackStream<lab::Decision>::Ask(
      QuestionAbout(1),
      {.response_callback = [&](lab::Decision&) { answered = true; },
       .error_callback = [](torvane::StreamCallError) { FAIL(); }}));
  for (int i = 0; i < 100; ++i) {
    EXPECT_TRUE(Publish(std::string(50'000, 'x')));
  }
  lab->RunReady();
  EXPECT_GT(lab->server->Report().connections[1].queued_bytes, 4'000'000u);
  lab::Decision answer = QuestionAbout(1);
  answer.mutable_response();
  Send(2, answer, /*call_id=*/1);
  EXPECT_TRUE(answered);
  EXPECT_EQ(counters().limit_hits.busy_outbox_bytes, 0u);
}

TEST_F(UnreadEvents, RepliesThatAreNotReadAreNoticedAmongUnreadEvents) {
  Connect({.busy_outbox_bytes = 500'000});
  Subscribe();
  for (int i = 0; i < 20; ++i) {
    EXPECT_TRUE(Publish(std::string(50'000, 'x')));
  }
  CallFrame call;
  call.set_method_id(peer->IdOf("Make"));
  lab::Number size;
  size.set_number(100'000);
  size.SerializeToString(call.mutable_request());
  for (int i = 0; i < 20; ++i) {
    peer->Send(Frame::kCall, call);
  }
  lab->RunReady();
  EXPECT_EQ(counters().limit_hits.busy_outbox_bytes, 1u);
  EXPECT_EQ(counters().calls_started, 5u);
  // The server reads the other calls once the client reads the replies.
  int replies = 0;
  while (replies < 20) {
    const auto frame = peer->Receive();
    ASSERT_TRUE(frame);
    replies += frame->has_reply() ? 1 : 0;
  }
}

TEST_F(UnreadEvents, AQuestionWaitsForNoMoreThanTheEventsBeforeIt) {
  Connect();
  Subscribe();
  for (int i = 0; i < 100; ++i) {
    EXPECT_TRUE(Publish(std::string(50'000, 'x')));
  }
  EXPECT_TRUE(torvane::CallbackStream<lab::Decision>::Ask(
      QuestionAbout(1), {.response_callback = [](lab::Decision&) {},
                         .error_callback = [](torvane::StreamCallError) {}}));
  // Each event that is read is followed by another one, so that only the order
  // of the frames can bring the question.
  int events = 0;
  for (;;) {
    const auto frame = peer->Receive();
    ASSERT_TRUE(frame && frame->has_stream_data());
    if (frame->stream_data().stream_ids(0) == 2) {
      break;
    }
    ++events;
    EXPECT_TRUE(Publish(std::string(50'000, 'x')));
  }
  EXPECT_EQ(events, 100);
}

}  // namespace
}  // namespace rpc::transport
