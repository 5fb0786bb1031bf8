// A program that uses a method, a controller or a message for what it is not.

#include <google/protobuf/descriptor.h>
#include <google/protobuf/descriptor.pb.h>
#include <google/protobuf/dynamic_message.h>
#include <gtest/gtest.h>

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "core/common/rpc/testing/log_capture.h"
#include "core/common/rpc/testing/recording_call.h"
#include "core/common/rpc/testing/window_id.h"
#include "core/common/rpc/transport/callback_answerer.h"
#include "core/common/rpc/transport/event_subscriber.h"
#include "core/common/rpc/transport/testing/lab.h"
#include "rpc/browser/browser_window.pb.h"

namespace rpc::transport {
namespace {

using google::protobuf::MethodDescriptor;
using Statuses = std::vector<absl::Status>;

const MethodDescriptor* Method(const char* name) {
  return lab::Lab::descriptor()->FindMethodByName(name);
}

class Misuse : public ::testing::Test {
 protected:
  // Opens a stream by `open`, which gets its end callback. Returns how it ends,
  // which is on a later turn and without a word to the server.
  template <typename Stream, typename... Callback>
  absl::Status EndOf(const MethodDescriptor* method, Callback... on_message) {
    Statuses ends;
    Stream stream(*client, method, on_message...,
                  [&](const absl::Status& status) { ends.push_back(status); });
    EXPECT_TRUE(ends.empty());
    EXPECT_FALSE(stream.Subscribe(torvane::WindowId(1)));
    lab.RunReady();
    EXPECT_EQ(lab.server->counters().streams_opened, 0u);
    EXPECT_EQ(ends.size(), 1u);
    return ends.empty() ? absl::OkStatus() : ends[0];
  }

  template <typename T>
  absl::Status EndOfSubscriber(const MethodDescriptor* method) {
    return EndOf<EventSubscriber<T>>(method, [](const T&) {});
  }
  template <typename T>
  absl::Status EndOfAnswerer(const MethodDescriptor* method) {
    using Stream = CallbackAnswerer<T>;
    return EndOf<Stream>(method, [](const T&, typename Stream::Reply) {});
  }

  // Calls in both ways, blocking and not, and expects the same of them.
  absl::Status Call(const MethodDescriptor* method,
                    const google::protobuf::Message* request,
                    google::protobuf::Message* response) {
    ClientController blocking;
    client->CallMethod(method, &blocking, request, response, nullptr);
    ClientController controller;
    torvane::CountingClosure done;
    client->CallMethod(method, &controller, request, response, &done);
    EXPECT_EQ(done.runs(), 0);
    lab.RunReady();
    EXPECT_EQ(done.runs(), 1);
    EXPECT_EQ(controller.status(), blocking.status());
    EXPECT_EQ(lab.server->counters().calls_started, 0u);
    EXPECT_TRUE(client->status().ok());
    return controller.status();
  }

  absl::Status OneCall(const google::protobuf::Message& request) {
    ClientController controller;
    client->CallMethod(Method("Echo"), &controller, &request, &text, nullptr);
    return controller.status();
  }

  Lab lab;
  std::unique_ptr<Client> client = lab.NewClient();
  lab::Text text;
  lab::Number number;
};

TEST_F(Misuse, AnEventSubscriberOpensNoCallbackStream) {
  EXPECT_EQ(EndOfSubscriber<lab::Decision>(Method("Decide")),
            absl::InvalidArgumentError(
                "lab.Lab.Decide is a callback stream, not an event stream"));
}

TEST_F(Misuse, ACallbackAnswererOpensNoEventStream) {
  EXPECT_EQ(EndOfAnswerer<lab::Decision>(Method("Watch")),
            absl::InvalidArgumentError(
                "lab.Lab.Watch is an event stream, not a callback stream"));
}

TEST_F(Misuse, AUnaryMethodIsOpenedByNeither) {
  EXPECT_EQ(EndOfSubscriber<lab::Text>(Method("Echo")),
            absl::InvalidArgumentError(
                "lab.Lab.Echo is a unary method, not an event stream"));
  EXPECT_EQ(EndOfAnswerer<lab::Decision>(Method("Echo")),
            absl::InvalidArgumentError(
                "lab.Lab.Echo is a unary method, not a callback stream"));
}

TEST_F(Misuse, ANullMethodIsOpenedByNeither) {
  EXPECT_EQ(
      EndOfSubscriber<lab::Text>(Method("Wacht")),
      absl::InvalidArgumentError("the method is null, not an event stream"));
  EXPECT_EQ(
      EndOfAnswerer<lab::Decision>(nullptr),
      absl::InvalidArgumentError("the method is null, not a callback stream"));
}

TEST_F(Misuse, AStreamOfAnotherTypeIsNotOpened) {
  EXPECT_EQ(EndOfSubscriber<lab::Number>(Method("Watch")),
            absl::InvalidArgumentError("the event of lab.Lab.Watch is a "
                                       "lab.Text, not a lab.Number"));
  EXPECT_EQ(EndOfAnswerer<rpc::CloseWindow>(Method("Decide")),
            absl::InvalidArgumentError("the message of lab.Lab.Decide is a "
                                       "lab.Decision, not a rpc.CloseWindow"));
}

TEST_F(Misuse, ANullMethodFailsItsCall) {
  EXPECT_EQ(
      Call(nullptr, &text, &text),
      absl::InvalidArgumentError("the method is null, not a unary method"));
}

TEST_F(Misuse, AStreamFailsItsCall) {
  EXPECT_EQ(Call(Method("Watch"), &text, &text),
            absl::InvalidArgumentError(
                "lab.Lab.Watch is an event stream, not a unary method"));
  EXPECT_EQ(Call(Method("Decide"), &text, &text),
            absl::InvalidArgumentError(
                "lab.Lab.Decide is a callback stream, not a unary method"));
}

TEST_F(Misuse, AStreamOfNoKnownKindFailsItsCall) {
  google::protobuf::FileDescriptorProto file;
  file.set_name("odd.proto");
  file.add_dependency(lab::Text::descriptor()->file()->name());
  auto* service = file.add_service();
  service->set_name("Odd");
  auto* method = service->add_method();
  method->set_name("Upload");
  method->set_input_type(".lab.Text");
  method->set_output_type(".lab.Text");
  method->set_client_streaming(true);
  google::protobuf::DescriptorPool pool(
      google::protobuf::DescriptorPool::generated_pool());
  EXPECT_EQ(Call(pool.BuildFile(file)->service(0)->method(0), &text, &text),
            absl::InvalidArgumentError("Odd.Upload is a stream of no known "
                                       "kind, not a unary method"));
}

TEST_F(Misuse, ARequestOfAnotherTypeFailsItsCall) {
  EXPECT_EQ(Call(Method("Echo"), &number, &text),
            absl::InvalidArgumentError("the request of lab.Lab.Echo is a "
                                       "lab.Text, not a lab.Number"));
  EXPECT_EQ(Call(Method("Echo"), nullptr, &text),
            absl::InvalidArgumentError("the request of lab.Lab.Echo is null"));
}

TEST_F(Misuse, AResponseOfAnotherTypeFailsItsCall) {
  EXPECT_EQ(Call(Method("Echo"), &text, &number),
            absl::InvalidArgumentError("the response of lab.Lab.Echo is a "
                                       "lab.Text, not a lab.Number"));
  EXPECT_EQ(Call(Method("Echo"), &text, nullptr),
            absl::InvalidArgumentError("the response of lab.Lab.Echo is null"));
}

// What was right once is not looked up again, whatever the types are then.
TEST_F(Misuse, AWrongTypeFailsItsCallAfterARightOneToo) {
  EXPECT_EQ(OneCall(text), absl::OkStatus());
  EXPECT_EQ(OneCall(number),
            absl::InvalidArgumentError("the request of lab.Lab.Echo is a "
                                       "lab.Text, not a lab.Number"));
  EXPECT_EQ(OneCall(text), absl::OkStatus());
}

TEST_F(Misuse, AnotherCallAfterARightOneIsCheckedAnew) {
  const auto call = [this](const MethodDescriptor* method,
                           const google::protobuf::Message* request,
                           google::protobuf::Message* response) {
    ClientController controller;
    client->CallMethod(method, &controller, request, response, nullptr);
    return controller.status();
  };
  EXPECT_EQ(OneCall(text), absl::OkStatus());
  EXPECT_EQ(call(Method("Echo"), nullptr, &text),
            absl::InvalidArgumentError("the request of lab.Lab.Echo is null"));
  EXPECT_EQ(call(Method("Echo"), &text, nullptr),
            absl::InvalidArgumentError("the response of lab.Lab.Echo is null"));
  EXPECT_EQ(call(Method("Echo"), &text, &number),
            absl::InvalidArgumentError("the response of lab.Lab.Echo is a "
                                       "lab.Text, not a lab.Number"));
  EXPECT_EQ(
      call(nullptr, &text, &text),
      absl::InvalidArgumentError("the method is null, not a unary method"));
}

// Messages that are made at run time have one class, whatever their types.
TEST_F(Misuse, AWrongTypeMadeAtRunTimeFailsItsCallAfterARightOneToo) {
  google::protobuf::DynamicMessageFactory factory;
  const std::unique_ptr<google::protobuf::Message> right(
      factory.GetPrototype(lab::Text::descriptor())->New());
  const std::unique_ptr<google::protobuf::Message> wrong(
      factory.GetPrototype(lab::Number::descriptor())->New());
  EXPECT_EQ(OneCall(*right), absl::OkStatus());
  EXPECT_EQ(OneCall(*wrong),
            absl::InvalidArgumentError("the request of lab.Lab.Echo is a "
                                       "lab.Text, not a lab.Number"));
}

TEST_F(Misuse, ACallWithoutAControllerIsRecordedAndOver) {
  torvane::LogCapture log;
  torvane::CountingClosure done;
  client->CallMethod(Method("Echo"), nullptr, &text, &text, &done);
  EXPECT_EQ(done.runs(), 0);
  lab.RunReady();
  EXPECT_EQ(done.runs(), 1);
  client->CallMethod(nullptr, nullptr, &text, &text, nullptr);
  lab.RunReady();
  ASSERT_EQ(log.records().size(), 2u);
  EXPECT_EQ(log.records()[0].severity, logging::LOGGING_ERROR);
  EXPECT_EQ(log.records()[0].text, "A call of lab.Lab.Echo has no controller.");
  EXPECT_EQ(log.records()[1].text,
            "A call of a null method has no controller.");
  EXPECT_EQ(lab.server->counters().calls_started, 0u);
}

TEST_F(Misuse, AForeignControllerIsToldSo) {
  constexpr char kText[] =
      "the controller for lab.Lab.Echo is no ClientController";
  torvane::RecordingController foreign;
  torvane::CountingClosure done;
  client->CallMethod(Method("Echo"), &foreign, &text, &text, &done);
  EXPECT_EQ(foreign.ErrorText(), kText);
  EXPECT_EQ(done.runs(), 0);
  lab.RunReady();
  EXPECT_EQ(done.runs(), 1);

  torvane::RecordingController blocking;
  client->CallMethod(Method("Echo"), &blocking, &text, &text, nullptr);
  EXPECT_EQ(blocking.ErrorText(), kText);
  lab.RunReady();
  EXPECT_EQ(lab.server->counters().calls_started, 0u);
}

using MisuseDeathTest = Misuse;

TEST_F(MisuseDeathTest, AControllerUsesNothingOfTheServersSide) {
  ClientController controller;
  torvane::CountingClosure closure;
  EXPECT_DEATH(controller.SetFailed("x"),
               "SetFailed\\(\\) belongs to the server's side");
  EXPECT_DEATH(static_cast<void>(controller.IsCanceled()),
               "IsCanceled\\(\\) belongs to the server's side");
  EXPECT_DEATH(controller.NotifyOnCancel(&closure),
               "NotifyOnCancel\\(\\) belongs to the server's side");
}

TEST_F(MisuseDeathTest, AControllerOfACallUnderWayIsNotReset) {
  TextCall call;
  call.Start(*client, &lab::Lab_Stub::Echo, "x");
  EXPECT_DEATH(call.controller.Reset(),
               "Reset\\(\\) while the call is under way");
  lab.RunUntil([&] { return call.over(); });
}

TEST_F(MisuseDeathTest, AControllerInUseEndsTheProcessWithAText) {
  TextCall call;
  call.Start(*client, &lab::Lab_Stub::Echo, "x");
  EXPECT_DEATH(
      client->CallMethod(Method("Fail"), &call.controller, &text, &text,
                         nullptr),
      "the controller for lab.Lab.Fail is that of another call, which is under "
      "way");
  lab.RunUntil([&] { return call.over(); });
  EXPECT_TRUE(call.controller.status().ok());
}

}  // namespace
}  // namespace rpc::transport
