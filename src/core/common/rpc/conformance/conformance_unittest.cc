// What a client of the browser-window service can see, over each transport.

#include <gmock/gmock.h>
#include <google/protobuf/descriptor.h>
#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

#include "core/common/rpc/conformance/conformance_test_support.h"
#include "core/common/rpc/conformance/scripted_service.h"
#include "core/common/rpc/conformance/transport_under_test.h"
#include "core/common/rpc/testing/window_id.h"
#include "rpc/browser/browser_window.rpc.h"
#include "rpc/browser/browser_window_method_table.h"
#include "rpc/event_subscription.pb.h"

namespace rpc::conformance {
namespace {

using google::protobuf::Message;
using testing::ElementsAre;
using torvane::WindowId;

TEST_P(Conformance, EveryUnaryMethodAnswersWithWhatItWasAskedFor) {
  for (int i = 0; i < kUnaryMethodCount; ++i) {
    if (i == kHide || i == kClose || i == kSetTitle || i == kGetTitle)
      continue;
    const auto request = NewMessage(Method(i)->input_type());
    FillSample(*request, i);
    const auto response = NewMessage(Method(i)->output_type());
    FillSample(*response, i);
    LinkCall& call = link_->Call(i, *request);
    Await(call);
    EXPECT_EQ(call.failure, "");
    EXPECT_EQ(call.response->SerializeAsString(), response->SerializeAsString())
        << kMethodTable[i].name;
  }
  Await(SetTitle(1, "kept"));
  EXPECT_EQ(Title(1), "kept");
}

TEST_P(Conformance, EveryMethodThatIsNotImplementedSaysSo) {
  for (int i = 0; i < kUnaryMethodCount; ++i) {
    const auto request = NewMessage(Method(i)->input_type());
    if (auto* id = google::protobuf::DynamicCastToGenerated<BrowserId>(
            request.get())) {
      id->set_value(kUnimplemented);
    } else {
      const auto* field =
          request->GetDescriptor()->FindFieldByName("browser_id");
      static_cast<BrowserId*>(
          request->GetReflection()->MutableMessage(request.get(), field))
          ->set_value(kUnimplemented);
    }
    LinkCall& call = link_->Call(i, *request);
    Await(call);
    EXPECT_EQ(call.failure, "Method " + std::string(kMethodTable[i].name) +
                                "() not implemented.");
  }
}

TEST_P(Conformance, AFailureCarriesItsText) {
  LinkCall& call = link_->Call(kClose, WindowId(1));
  Await(call);
  EXPECT_EQ(call.failure, kCloseFailure);
}

TEST_P(Conformance, LargeMessagesArriveWhole) {
  std::string title(70'000, 'x');
  title.front() = 'a';
  title.back() = 'z';
  Await(SetTitle(1, title));
  EXPECT_EQ(Title(1), title);
}

TEST_P(Conformance, ManyCallsMayBeUnderWayAtOnce) {
  std::vector<LinkCall*> calls;
  for (int i = 0; i < 100; ++i)
    calls.push_back(&SetTitle(i, std::to_string(i)));
  for (const LinkCall* call : calls)
    Await(*call);
  for (int i = 0; i < 100; ++i)
    EXPECT_EQ(Title(i), std::to_string(i));
}

TEST_P(Conformance, EventsReachThoseWhoSubscribedInOrder) {
  LinkStream& stream = link_->Open(kWhenClosed);
  stream.Send(SubscribeToEvents(7));
  stream.Send(SubscribeToEvents(8));
  AwaitAllHandled();
  for (const int64_t window : {7, 9, 8, 7})
    Publish(window);
  Await(stream, 3);
  EXPECT_THAT(WindowsOf<BrowserWindowClosed>(stream), ElementsAre(7, 8, 7));
}

TEST_P(Conformance, OneEventReachesAllStreamsOfAllClients) {
  const auto other_link = host_->Connect();
  LinkStream* const streams[] = {&link_->Open(kWhenClosed),
                                 &link_->Open(kWhenClosed),
                                 &other_link->Open(kWhenClosed)};
  for (LinkStream* stream : streams)
    stream->Send(SubscribeToEvents(7));
  AwaitAllHandled();
  AwaitAllHandled(*other_link);
  Publish(7);
  for (const LinkStream* stream : streams)
    Await(*stream, 1);
}

TEST_P(Conformance, AnUnsubscribedWindowBringsNoMoreEvents) {
  LinkStream& stream = link_->Open(kWhenClosed);
  stream.Send(SubscribeToEvents(7));
  stream.Send(SubscribeToEvents(8));
  EventSubscription no_longer;
  *no_longer.mutable_unsubscribe_from() = WindowId(7);
  stream.Send(StreamMessageOf(no_longer));
  AwaitAllHandled();
  Publish(7);
  Publish(8);
  Await(stream, 1);
  EXPECT_THAT(WindowsOf<BrowserWindowClosed>(stream), ElementsAre(8));
}

TEST_P(Conformance, AClientsErrorDoesNotEndItsEvents) {
  LinkStream& stream = link_->Open(kWhenClosed);
  stream.Send(SubscribeToEvents(7));
  stream.SendError(transport::StreamMessage());
  AwaitAllHandled();
  Publish(7);
  Await(stream, 1);
  EXPECT_FALSE(stream.over);
}

TEST_P(Conformance, TheEndOfAStreamIsConfirmedAndStopsItsEvents) {
  LinkStream& stream = link_->Open(kWhenClosed);
  stream.Send(SubscribeToEvents(7));
  AwaitAllHandled();
  stream.End();
  AwaitEnd(stream);
  Publish(7);
  EXPECT_TRUE(stream.received.empty());
}

// The three methods on which the service asks.
struct Question {
  const char* title;
  int method;
};

constexpr Question kQuestions[] = {{"command", 38},
                                   {"menu", 39},
                                   {"close", 40}};

class QuestionConformance : public Conformance {
 protected:
  // A message of a callback method, about a window, with one member of its
  // body.
  static std::unique_ptr<Message> About(const Question& question,
                                        int64_t window,
                                        const char* member,
                                        bool subscribe = false) {
    auto message = NewMessage(Method(question.method)->input_type());
    const auto* type = message->GetDescriptor();
    const auto* reflection = message->GetReflection();
    *static_cast<BrowserId*>(reflection->MutableMessage(
        message.get(), type->FindFieldByName("browser_id"))) = WindowId(window);
    const auto* field = type->FindFieldByName(member);
    if (field->message_type())
      FillSample(*reflection->MutableMessage(message.get(), field), 3);
    else
      reflection->SetBool(message.get(), field, subscribe);
    return message;
  }

  static void Subscribe(LinkStream& stream,
                        const Question& question,
                        int64_t window,
                        bool subscribe = true) {
    stream.Send(
        StreamMessageOf(*About(question, window, "subscribe", subscribe)));
  }

  // How the service understands the answer that the tests give.
  static std::string Understood(const Question& question) {
    const auto answer = About(question, 1, "response");
    return answer->GetReflection()
        ->GetMessage(*answer,
                     answer->GetDescriptor()->FindFieldByName("response"))
        .ShortDebugString();
  }

  // The client's answer about a window to the latest question on the stream.
  static transport::StreamMessage Answer(const LinkStream& stream,
                                         const Question& question,
                                         int64_t window) {
    return StreamMessageOf(*About(question, window, "response"),
                           stream.received.back().call_id());
  }

  LinkStream& Subscribed(Link& link, const Question& question, int64_t window) {
    LinkStream& stream = link.Open(question.method);
    Subscribe(stream, question, window);
    AwaitAllHandled(link);
    return stream;
  }
};

TEST_P(QuestionConformance, AnAnswerReachesTheServiceOnEachMethod) {
  for (const Question& question : kQuestions) {
    LinkStream& stream = Subscribed(*link_, question, 7);
    LinkCall& call = SetTitle(7, question.title);
    Await(stream, 1);
    EXPECT_FALSE(call.over);

    const auto asked = NewMessage(Method(question.method)->input_type());
    ASSERT_TRUE(asked->ParseFromString(stream.received[0].payload()));
    const auto expected = About(question, 7, "question");
    FillSample(*expected->GetReflection()->MutableMessage(
                   expected.get(),
                   expected->GetDescriptor()->FindFieldByName("question")),
               1);
    EXPECT_EQ(asked->SerializeAsString(), expected->SerializeAsString());

    stream.Send(Answer(stream, question, 7));
    Await(call);
    EXPECT_EQ(Title(7), Understood(question));
    EXPECT_NE(Understood(question), "");
  }
}

TEST_P(QuestionConformance, AnErrorFrameIsARemoteErrorOnEachMethod) {
  for (const Question& question : kQuestions) {
    LinkStream& stream = Subscribed(*link_, question, 7);
    LinkCall& call = SetTitle(7, question.title);
    Await(stream, 1);
    stream.SendError(Answer(stream, question, 7));
    Await(call);
    EXPECT_EQ(Title(7), "error 2");
  }
}

TEST_P(QuestionConformance, WithoutASubscriberTheServiceLearnsAtOnce) {
  for (const Question& question : kQuestions) {
    Await(SetTitle(7, question.title));
    EXPECT_EQ(Title(7), "nobody");
  }
}

TEST_P(QuestionConformance, UnsubscribingCancelsWhatIsPending) {
  const Question& question = kQuestions[2];
  LinkStream& stream = Subscribed(*link_, question, 7);
  LinkCall& call = SetTitle(7, question.title);
  Await(stream, 1);
  Subscribe(stream, question, 7, false);
  Await(call);
  EXPECT_EQ(Title(7), "error 1");
}

TEST_P(QuestionConformance, TheEndOfTheStreamCancelsWhatIsPending) {
  const Question& question = kQuestions[2];
  LinkStream& stream = Subscribed(*link_, question, 7);
  LinkCall& call = SetTitle(7, question.title);
  Await(stream, 1);
  stream.End();
  Await(call);
  EXPECT_EQ(Title(7), "error 1");
  AwaitEnd(stream);
}

TEST_P(QuestionConformance, ALostConnectionCancelsWhatIsPending) {
  const Question& question = kQuestions[2];
  const auto other_link = host_->Connect();
  LinkStream& stream = Subscribed(*other_link, question, 7);
  LinkCall& call = SetTitle(7, question.title);
  Await(stream, 1);
  other_link->Break();
  Await(call);
  EXPECT_EQ(Title(7), "error 1");
}

TEST_P(QuestionConformance, AnswersMayComeInAnyOrder) {
  const Question& question = kQuestions[0];
  LinkStream& stream = Subscribed(*link_, question, 7);
  Subscribe(stream, question, 8);
  LinkCall& first = SetTitle(7, question.title);
  Await(stream, 1);
  const auto first_answer = Answer(stream, question, 7);
  LinkCall& second = SetTitle(8, question.title);
  Await(stream, 2);
  stream.Send(Answer(stream, question, 8));
  Await(second);
  EXPECT_FALSE(first.over);
  stream.SendError(first_answer);
  Await(first);
  EXPECT_EQ(Title(7), "error 2");
  EXPECT_EQ(Title(8), Understood(question));
}

TEST_P(QuestionConformance, AnswersToNothingAreDropped) {
  const Question& question = kQuestions[1];
  LinkStream& stream = Subscribed(*link_, question, 7);
  LinkCall& call = SetTitle(7, question.title);
  Await(stream, 1);
  stream.Send(Answer(stream, question, 8));
  auto unasked = Answer(stream, question, 7);
  unasked.set_call_id(unasked.call_id() + 1);
  stream.Send(unasked);
  AwaitAllHandled();
  EXPECT_FALSE(call.over);
  stream.Send(Answer(stream, question, 7));
  Await(call);
}

TEST_P(QuestionConformance, TheNewestSubscriberIsAsked) {
  const Question& question = kQuestions[2];
  const auto other_link = host_->Connect();
  LinkStream& first = Subscribed(*link_, question, 7);
  LinkStream& second = Subscribed(*other_link, question, 7);
  LinkCall& call = SetTitle(7, question.title);
  Await(second, 1);
  second.Send(Answer(second, question, 7));
  // The answer goes out before the other client waits for its effect.
  AwaitAllHandled(*other_link);
  Await(call);
  EXPECT_EQ(Title(7), Understood(question));
  EXPECT_TRUE(first.received.empty());
}

TEST_P(QuestionConformance, AHostThatStopsEndsCallsAndStreams) {
  const Question& question = kQuestions[2];
  LinkStream& stream = Subscribed(*link_, question, 7);
  LinkCall& call = SetTitle(7, question.title);
  Await(stream, 1);
  host_->Stop();
  Await(call);
  AwaitEnd(stream);
}

INSTANTIATE_TEST_SUITE_P(Over,
                         Conformance,
                         testing::ValuesIn(kTransports),
                         testing::PrintToStringParamName());
INSTANTIATE_TEST_SUITE_P(Over,
                         QuestionConformance,
                         testing::ValuesIn(kTransports),
                         testing::PrintToStringParamName());

}  // namespace
}  // namespace rpc::conformance
