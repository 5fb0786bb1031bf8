// What a client of the browser-window service can see, over each transport.

#include <gmock/gmock.h>
#include <google/protobuf/descriptor.h>
#include <google/protobuf/wrappers.pb.h>
#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

#include "core/common/rpc/conformance/link.h"
#include "core/common/rpc/conformance/scripted_service.h"
#include "rpc/browser/browser_window.rpc.h"
#include "rpc/browser/browser_window_method_table.h"

namespace rpc::conformance {
namespace {

using google::protobuf::Message;
using google::protobuf::MessageFactory;

constexpr int kHide = 2;
constexpr int kClose = 15;
constexpr int kSetTitle = 21;
constexpr int kGetTitle = 22;
constexpr int kWhenClosed = 37;

struct Transport {
  const char* name;
  std::unique_ptr<Host> (*make_host)();
};

class Conformance : public testing::TestWithParam<Transport> {
 protected:
  static std::unique_ptr<Message> New(
      const google::protobuf::Descriptor* type) {
    return std::unique_ptr<Message>(
        MessageFactory::generated_factory()->GetPrototype(type)->New());
  }

  static const google::protobuf::MethodDescriptor* Method(int index) {
    return BrowserWindowRpc::descriptor()->method(index);
  }

  static BrowserId Window(int64_t value) {
    BrowserId id;
    id.set_value(value);
    return id;
  }

  static void Await(Link& link, const UnaryCall& call) {
    link.RunUntil([&call] { return call.over; });
  }

  static void Await(Link& link, const ClientStream& stream, size_t frames) {
    link.RunUntil([&] { return stream.received.size() >= frames; });
  }

  static std::shared_ptr<UnaryCall> SetTitle(Link& link,
                                             int64_t window,
                                             const std::string& title) {
    WindowTitle request;
    *request.mutable_browser_id() = Window(window);
    request.set_title(title);
    return link.Call(kSetTitle, request);
  }

  static std::string Title(Link& link, int64_t window) {
    const auto call = link.Call(kGetTitle, Window(window));
    Await(link, *call);
    EXPECT_EQ(call->failure, "");
    return static_cast<google::protobuf::StringValue&>(*call->response).value();
  }

  // Has the service publish that a window has closed.
  static void Publish(Link& link, int64_t window) {
    const auto call = link.Call(kHide, Window(window));
    Await(link, *call);
    EXPECT_EQ(call->failure, "");
  }

  // Returns once everything that was sent on the link before has been handled.
  static void Settle(Link& link) { Title(link, 1); }

  static transport::StreamMessage Frame(const Message& message,
                                        int64_t call_id = 0) {
    transport::StreamMessage frame;
    message.SerializeToString(frame.mutable_payload());
    frame.set_call_id(call_id);
    return frame;
  }

  static EventSubscription EventsOf(int64_t window) {
    EventSubscription subscription;
    *subscription.mutable_subscribe_to() = Window(window);
    return subscription;
  }

  static int64_t WindowOfEvent(const transport::StreamMessage& frame) {
    BrowserWindowClosed event;
    EXPECT_TRUE(event.ParseFromString(frame.payload()));
    return event.browser_id().value();
  }

  const std::unique_ptr<Host> host_ = GetParam().make_host();
  const std::unique_ptr<Link> link_ = host_->Connect();
};

TEST_P(Conformance, EveryUnaryMethodAnswersWithWhatItWasAskedFor) {
  for (int i = 0; i < kUnaryMethodCount; ++i) {
    if (i == kHide || i == kClose || i == kSetTitle || i == kGetTitle)
      continue;
    const auto request = New(Method(i)->input_type());
    FillSample(*request, i);
    const auto response = New(Method(i)->output_type());
    FillSample(*response, i);
    const auto call = link_->Call(i, *request);
    Await(*link_, *call);
    EXPECT_EQ(call->failure, "");
    EXPECT_EQ(call->response->SerializeAsString(),
              response->SerializeAsString())
        << kMethodTable[i].name;
  }
  Await(*link_, *SetTitle(*link_, 1, "kept"));
  EXPECT_EQ(Title(*link_, 1), "kept");
}

TEST_P(Conformance, EveryMethodThatIsNotImplementedSaysSo) {
  for (int i = 0; i < kUnaryMethodCount; ++i) {
    const auto request = New(Method(i)->input_type());
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
    const auto call = link_->Call(i, *request);
    Await(*link_, *call);
    EXPECT_EQ(call->failure, "Method " + std::string(kMethodTable[i].name) +
                                 "() not implemented.");
  }
}

TEST_P(Conformance, AFailureCarriesItsText) {
  const auto call = link_->Call(kClose, Window(1));
  Await(*link_, *call);
  EXPECT_EQ(call->failure, kCloseFailure);
}

TEST_P(Conformance, LargeMessagesArriveWhole) {
  std::string title(70'000, 'x');
  title.front() = 'a';
  title.back() = 'z';
  Await(*link_, *SetTitle(*link_, 1, title));
  EXPECT_EQ(Title(*link_, 1), title);
}

TEST_P(Conformance, ManyCallsMayBeUnderWayAtOnce) {
  std::vector<std::shared_ptr<UnaryCall>> calls;
  for (int i = 0; i < 100; ++i)
    calls.push_back(SetTitle(*link_, i, std::to_string(i)));
  for (const auto& call : calls)
    Await(*link_, *call);
  for (int i = 0; i < 100; ++i)
    EXPECT_EQ(Title(*link_, i), std::to_string(i));
}

TEST_P(Conformance, EventsReachThoseWhoSubscribedInOrder) {
  const auto stream = link_->Open(kWhenClosed);
  stream->Send(Frame(EventsOf(7)));
  stream->Send(Frame(EventsOf(8)));
  Settle(*link_);
  for (const int64_t window : {7, 9, 8, 7})
    Publish(*link_, window);
  Await(*link_, *stream, 3);
  EXPECT_EQ(WindowOfEvent(stream->received[0]), 7);
  EXPECT_EQ(WindowOfEvent(stream->received[1]), 8);
  EXPECT_EQ(WindowOfEvent(stream->received[2]), 7);
}

TEST_P(Conformance, OneEventReachesAllStreamsOfAllClients) {
  const auto other_link = host_->Connect();
  const std::shared_ptr<ClientStream> streams[] = {
      link_->Open(kWhenClosed), link_->Open(kWhenClosed),
      other_link->Open(kWhenClosed)};
  for (const auto& stream : streams)
    stream->Send(Frame(EventsOf(7)));
  Settle(*link_);
  Settle(*other_link);
  Publish(*link_, 7);
  Await(*link_, *streams[0], 1);
  Await(*link_, *streams[1], 1);
  Await(*other_link, *streams[2], 1);
}

TEST_P(Conformance, AnUnsubscribedWindowBringsNoMoreEvents) {
  const auto stream = link_->Open(kWhenClosed);
  stream->Send(Frame(EventsOf(7)));
  stream->Send(Frame(EventsOf(8)));
  EventSubscription no_longer;
  *no_longer.mutable_unsubscribe_from() = Window(7);
  stream->Send(Frame(no_longer));
  Settle(*link_);
  Publish(*link_, 7);
  Publish(*link_, 8);
  Await(*link_, *stream, 1);
  EXPECT_EQ(WindowOfEvent(stream->received[0]), 8);
}

TEST_P(Conformance, AClientsErrorDoesNotEndItsEvents) {
  const auto stream = link_->Open(kWhenClosed);
  stream->Send(Frame(EventsOf(7)));
  stream->SendError(transport::StreamMessage());
  Settle(*link_);
  Publish(*link_, 7);
  Await(*link_, *stream, 1);
  EXPECT_FALSE(stream->over);
}

TEST_P(Conformance, TheEndOfAStreamIsConfirmedAndStopsItsEvents) {
  const auto stream = link_->Open(kWhenClosed);
  stream->Send(Frame(EventsOf(7)));
  Settle(*link_);
  stream->End();
  link_->RunUntil([&] { return stream->over; });
  Publish(*link_, 7);
  EXPECT_TRUE(stream->received.empty());
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
    auto message = New(Method(question.method)->input_type());
    const auto* type = message->GetDescriptor();
    const auto* reflection = message->GetReflection();
    *static_cast<BrowserId*>(reflection->MutableMessage(
        message.get(), type->FindFieldByName("browser_id"))) = Window(window);
    const auto* field = type->FindFieldByName(member);
    if (field->message_type())
      FillSample(*reflection->MutableMessage(message.get(), field), 3);
    else
      reflection->SetBool(message.get(), field, subscribe);
    return message;
  }

  static void Subscribe(ClientStream& stream,
                        const Question& question,
                        int64_t window,
                        bool subscribe = true) {
    stream.Send(Frame(*About(question, window, "subscribe", subscribe)));
  }

  // How the service understands the answer that the tests give.
  static std::string Understood(const Question& question) {
    const auto answer = About(question, 1, "response");
    return answer->GetReflection()
        ->GetMessage(*answer,
                     answer->GetDescriptor()->FindFieldByName("response"))
        .ShortDebugString();
  }

  std::shared_ptr<ClientStream> Subscribed(Link& link,
                                           const Question& question,
                                           int64_t window) {
    const auto stream = link.Open(question.method);
    Subscribe(*stream, question, window);
    Settle(link);
    return stream;
  }
};

TEST_P(QuestionConformance, AnAnswerReachesTheServiceOnEachMethod) {
  for (const Question& question : kQuestions) {
    const auto stream = Subscribed(*link_, question, 7);
    const auto call = SetTitle(*link_, 7, question.title);
    Await(*link_, *stream, 1);
    EXPECT_FALSE(call->over);

    const auto asked = New(Method(question.method)->input_type());
    ASSERT_TRUE(asked->ParseFromString(stream->received[0].payload()));
    const auto expected = About(question, 7, "question");
    FillSample(*expected->GetReflection()->MutableMessage(
                   expected.get(),
                   expected->GetDescriptor()->FindFieldByName("question")),
               1);
    EXPECT_EQ(asked->SerializeAsString(), expected->SerializeAsString());

    stream->Send(
        Frame(*About(question, 7, "response"), stream->received[0].call_id()));
    Await(*link_, *call);
    EXPECT_EQ(Title(*link_, 7), Understood(question));
    EXPECT_NE(Understood(question), "");
  }
}

TEST_P(QuestionConformance, AnErrorFrameIsARemoteErrorOnEachMethod) {
  for (const Question& question : kQuestions) {
    const auto stream = Subscribed(*link_, question, 7);
    const auto call = SetTitle(*link_, 7, question.title);
    Await(*link_, *stream, 1);
    stream->SendError(
        Frame(*About(question, 7, "response"), stream->received[0].call_id()));
    Await(*link_, *call);
    EXPECT_EQ(Title(*link_, 7), "error 2");
  }
}

TEST_P(QuestionConformance, WithoutASubscriberTheServiceLearnsAtOnce) {
  for (const Question& question : kQuestions) {
    Await(*link_, *SetTitle(*link_, 7, question.title));
    EXPECT_EQ(Title(*link_, 7), "nobody");
  }
}

TEST_P(QuestionConformance, UnsubscribingCancelsWhatIsPending) {
  const Question& question = kQuestions[2];
  const auto stream = Subscribed(*link_, question, 7);
  const auto call = SetTitle(*link_, 7, question.title);
  Await(*link_, *stream, 1);
  Subscribe(*stream, question, 7, false);
  Await(*link_, *call);
  EXPECT_EQ(Title(*link_, 7), "error 1");
}

TEST_P(QuestionConformance, TheEndOfTheStreamCancelsWhatIsPending) {
  const Question& question = kQuestions[2];
  const auto stream = Subscribed(*link_, question, 7);
  const auto call = SetTitle(*link_, 7, question.title);
  Await(*link_, *stream, 1);
  stream->End();
  Await(*link_, *call);
  EXPECT_EQ(Title(*link_, 7), "error 1");
  link_->RunUntil([&] { return stream->over; });
}

TEST_P(QuestionConformance, ALostConnectionCancelsWhatIsPending) {
  const Question& question = kQuestions[2];
  const auto other_link = host_->Connect();
  const auto stream = Subscribed(*other_link, question, 7);
  const auto call = SetTitle(*link_, 7, question.title);
  Await(*other_link, *stream, 1);
  other_link->Break();
  Await(*link_, *call);
  EXPECT_EQ(Title(*link_, 7), "error 1");
}

TEST_P(QuestionConformance, AnswersMayComeInAnyOrder) {
  const Question& question = kQuestions[0];
  const auto stream = Subscribed(*link_, question, 7);
  Subscribe(*stream, question, 8);
  const auto first = SetTitle(*link_, 7, question.title);
  const auto second = SetTitle(*link_, 8, question.title);
  Await(*link_, *stream, 2);
  stream->Send(
      Frame(*About(question, 8, "response"), stream->received[1].call_id()));
  Await(*link_, *second);
  EXPECT_FALSE(first->over);
  stream->SendError(
      Frame(*About(question, 7, "response"), stream->received[0].call_id()));
  Await(*link_, *first);
  EXPECT_EQ(Title(*link_, 7), "error 2");
  EXPECT_EQ(Title(*link_, 8), Understood(question));
}

TEST_P(QuestionConformance, AnswersToNothingAreDropped) {
  const Question& question = kQuestions[1];
  const auto stream = Subscribed(*link_, question, 7);
  const auto call = SetTitle(*link_, 7, question.title);
  Await(*link_, *stream, 1);
  const int64_t id = stream->received[0].call_id();
  stream->Send(Frame(*About(question, 8, "response"), id));
  stream->Send(Frame(*About(question, 7, "response"), id + 1));
  Settle(*link_);
  EXPECT_FALSE(call->over);
  stream->Send(Frame(*About(question, 7, "response"), id));
  Await(*link_, *call);
}

TEST_P(QuestionConformance, TheNewestSubscriberIsAsked) {
  const Question& question = kQuestions[2];
  const auto other_link = host_->Connect();
  const auto first = Subscribed(*link_, question, 7);
  const auto second = Subscribed(*other_link, question, 7);
  const auto call = SetTitle(*link_, 7, question.title);
  Await(*other_link, *second, 1);
  second->Send(
      Frame(*About(question, 7, "response"), second->received[0].call_id()));
  // The answer goes out before the other client waits for its effect.
  Settle(*other_link);
  Await(*link_, *call);
  EXPECT_EQ(Title(*link_, 7), Understood(question));
  EXPECT_TRUE(first->received.empty());
}

constexpr Transport kTransports[] = {
    {"InProcess", &InProcessHost},
    {"SocketPair", &SocketPairHost},
    {"ByteByByte", &ByteByByteHost},
    {"TwoProcesses", &ProcessHost},
};

std::string NameOf(const testing::TestParamInfo<Transport>& transport) {
  return transport.param.name;
}

INSTANTIATE_TEST_SUITE_P(Over,
                         Conformance,
                         testing::ValuesIn(kTransports),
                         NameOf);
INSTANTIATE_TEST_SUITE_P(Over,
                         QuestionConformance,
                         testing::ValuesIn(kTransports),
                         NameOf);

}  // namespace
}  // namespace rpc::conformance
