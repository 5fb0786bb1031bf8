// How the service opens its streams.

#include <google/protobuf/descriptor.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <csignal>
#include <memory>
#include <set>
#include <string>
#include <vector>

#include "core/common/rpc/stream/callback_stream.h"
#include "core/common/rpc/stream/event_stream.h"
#include "core/common/rpc/testing/fake_endpoint.h"
#include "core/common/rpc/testing/fatal_record.h"
#include "core/common/rpc/testing/forged_method.h"
#include "rpc/browser/browser_window.rpc.h"
#include "rpc/browser/browser_window_method_table.h"

namespace rpc {
namespace {

using google::protobuf::MethodDescriptor;
using torvane::AbstractStream;
using torvane::FakeClient;
using torvane::FatalRecord;
using torvane::FatalRecordOf;
using torvane::MakeChannel;

constexpr char kSourceFile[] =
    "src/core/common/rpc/proto/rpc/browser/browser_window.rpc.cc";

const MethodDescriptor* Method(int index) {
  return BrowserWindowRpc::descriptor()->method(index);
}

std::string SubscriptionTo(int64_t window) {
  EventSubscription subscription;
  subscription.mutable_subscribe_to()->set_value(window);
  return subscription.SerializeAsString();
}

template <typename T>
std::string CallbackSubscription(int64_t window) {
  T message;
  message.mutable_browser_id()->set_value(window);
  message.set_subscribe(true);
  return message.SerializeAsString();
}

void Deliver(AbstractStream& stream, const std::string& payload) {
  transport::StreamMessage frame;
  frame.set_payload(payload);
  stream.OnNext(&frame);
}

// How many entries each of the four registries has, in method order.
std::vector<size_t> RegistrySizes() {
  return {torvane::EventStream<BrowserWindowClosed>::stream_map_.size(),
          torvane::CallbackStream<CanExecuteCommand>::stream_map_.size(),
          torvane::CallbackStream<ShowContextMenu>::stream_map_.size(),
          torvane::CallbackStream<CloseWindow>::stream_map_.size()};
}

// Opens the stream of a method and checks, by what its subscription does, that
// it is of the type that belongs to the method.
void ExpectStreamOfRegistry(int method,
                            const std::string& subscription,
                            const std::vector<size_t>& subscribed) {
  BrowserWindowRpc service;
  const auto client = std::make_shared<FakeClient>();
  const auto stream = service.OpenStream(Method(method), MakeChannel(client));
  ASSERT_NE(stream, nullptr);
  EXPECT_EQ(RegistrySizes(), (std::vector<size_t>{0, 0, 0, 0}));
  Deliver(*stream, subscription);
  EXPECT_EQ(RegistrySizes(), subscribed);
  stream->OnCompleted();
  EXPECT_EQ(RegistrySizes(), (std::vector<size_t>{0, 0, 0, 0}));
  EXPECT_EQ(client->completions, 1);
}

TEST(OpenStream, GivesWhenBrowserWindowClosedAnEventStream) {
  ExpectStreamOfRegistry(37, SubscriptionTo(7), {1, 0, 0, 0});
}

TEST(OpenStream, GivesEachCallbackMethodTheStreamOfItsOwnMessage) {
  ExpectStreamOfRegistry(38, CallbackSubscription<CanExecuteCommand>(7),
                         {0, 1, 0, 0});
  ExpectStreamOfRegistry(39, CallbackSubscription<ShowContextMenu>(7),
                         {0, 0, 1, 0});
  ExpectStreamOfRegistry(40, CallbackSubscription<CloseWindow>(7),
                         {0, 0, 0, 1});
}

TEST(OpenStream, MakesAFurtherIndependentStreamEachTime) {
  BrowserWindowRpc service;
  const auto first = service.OpenStream(Method(40), MakeChannel());
  const auto second = service.OpenStream(Method(40), MakeChannel());
  EXPECT_NE(first, second);
  EXPECT_EQ(RegistrySizes(), (std::vector<size_t>{0, 0, 0, 0}));

  using Stream = torvane::CallbackStream<CloseWindow>;
  Deliver(*first, CallbackSubscription<CloseWindow>(1));
  Deliver(*second, CallbackSubscription<CloseWindow>(2));
  std::set<AbstractStream*> bound;
  for (const auto& [key, stream] : Stream::stream_map_)
    bound.insert(stream);
  EXPECT_EQ(bound, (std::set<AbstractStream*>{first.get(), second.get()}));
  first->OnCompleted();
  second->OnCompleted();
}

class Hooked : public BrowserWindowRpc {
 public:
  void WhenBrowserWindowClosed() override { ++hook_calls; }
  void OnCanExecuteCommand() override { ++hook_calls; }
  void OnShowContextMenu() override { ++hook_calls; }
  void OnCloseWindow() override { ++hook_calls; }
  int hook_calls = 0;
};

TEST(OpenStream, NeitherNeedsNorCallsTheHooks) {
  Hooked hooked;
  for (int i = kUnaryMethodCount; i < kMethodCount; ++i)
    EXPECT_NE(hooked.OpenStream(Method(i), MakeChannel()), nullptr);
  EXPECT_EQ(hooked.hook_calls, 0);
}

template <typename T>
void AskAndAnswer(AbstractStream& stream) {
  Deliver(stream, CallbackSubscription<T>(7));
  T question;
  question.mutable_browser_id()->set_value(7);
  question.mutable_question();
  EXPECT_TRUE(torvane::CallbackStream<T>::Ask(
      question, {.response_callback = [](T&) {},
                 .error_callback = [](torvane::StreamCallError) {}}));
  T answer;
  answer.mutable_browser_id()->set_value(7);
  answer.mutable_response();
  Deliver(stream, answer.SerializeAsString());
}

TEST(OpenStream, NoHookIsCalledInTheLifeOfAStream) {
  Hooked hooked;
  std::vector<std::unique_ptr<AbstractStream>> streams;
  for (int i = kUnaryMethodCount; i < kMethodCount; ++i)
    streams.push_back(hooked.OpenStream(Method(i), MakeChannel()));
  Deliver(*streams[0], SubscriptionTo(7));
  BrowserId window;
  window.set_value(7);
  EXPECT_EQ(torvane::EventStream<BrowserWindowClosed>::Publish(window, {}), 1u);
  AskAndAnswer<CanExecuteCommand>(*streams[1]);
  AskAndAnswer<ShowContextMenu>(*streams[2]);
  AskAndAnswer<CloseWindow>(*streams[3]);
  for (const auto& stream : streams) {
    transport::StreamMessage error;
    stream->OnError(&error);
    stream->OnCompleted();
  }
  streams.clear();
  EXPECT_EQ(hooked.hook_calls, 0);
}

// The stream asks its service for prototypes with the descriptor that it keeps.
TEST(OpenStream, KeepsTheVeryDescriptorThatItWasGiven) {
  class Noted : public BrowserWindowRpc {
   public:
    const google::protobuf::Message& GetRequestPrototype(
        const MethodDescriptor* method) const override {
      asked = method;
      return BrowserWindowRpc::GetRequestPrototype(method);
    }
    const google::protobuf::Message& GetResponsePrototype(
        const MethodDescriptor* method) const override {
      asked = method;
      return BrowserWindowRpc::GetResponsePrototype(method);
    }
    mutable const MethodDescriptor* asked = nullptr;
  };
  const std::string subscriptions[] = {
      SubscriptionTo(7), CallbackSubscription<CanExecuteCommand>(7),
      CallbackSubscription<ShowContextMenu>(7),
      CallbackSubscription<CloseWindow>(7)};
  for (int index = kUnaryMethodCount; index < kMethodCount; ++index) {
    // One of another service: only its index counts for what is opened.
    const torvane::ForgedMethod foreign(Method(0), index);
    for (const MethodDescriptor* given : {Method(index), foreign.get()}) {
      Noted service;
      const auto stream = service.OpenStream(given, MakeChannel());
      Deliver(*stream, subscriptions[index - kUnaryMethodCount]);
      EXPECT_EQ(service.asked, given);
      stream->OnCompleted();
    }
  }
}

TEST(OpenStream, DestroysOnlyEmptyShellsOfTheChannel) {
  BrowserWindowRpc service;
  const auto client = std::make_shared<FakeClient>();
  auto stream = service.OpenStream(Method(37), MakeChannel(client));
  EXPECT_EQ(client->endpoints_destroyed, 0);
  stream.reset();
  EXPECT_EQ(client->endpoints_destroyed, 1);
}

// The child leaves with a status instead of a signal where the channel is
// touched.
FatalRecord RefusedStream(const MethodDescriptor* method) {
  return FatalRecordOf([method] {
    class Untouchable : public torvane::StreamChannel::Endpoint {
     public:
      ~Untouchable() override { _exit(1); }
      bool Send(const transport::StreamMessage&) override { _exit(1); }
      void Complete() override { _exit(1); }
    };
    BrowserWindowRpc service;
    service.OpenStream(method,
                       torvane::StreamChannel(std::make_unique<Untouchable>()));
  });
}

void ExpectFatal(const FatalRecord& record, const char* text) {
  EXPECT_EQ(record.text, text);
  EXPECT_EQ(record.file, kSourceFile);
  EXPECT_EQ(record.signal, SIGABRT);
}

TEST(OpenStreamDeathTest, RefusesEachUnaryMethodOnALineOfItsOwn) {
  std::set<int> lines;
  for (int i = 0; i < kUnaryMethodCount; ++i) {
    const FatalRecord record = RefusedStream(Method(i));
    ExpectFatal(record, "Cannot open a stream for a non-streaming method.");
    lines.insert(record.line);
  }
  EXPECT_EQ(lines.size(), 37u);
}

TEST(OpenStreamDeathTest, RefusesIndicesThatTheServiceDoesNotHave) {
  for (const int index : {-1, kMethodCount, 1 << 20}) {
    const torvane::ForgedMethod method(Method(0), index);
    ExpectFatal(RefusedStream(method.get()),
                "Bad method index; this should never happen.");
  }
}

TEST(StreamHooksDeathTest, EndTheProcessWhereTheyAreNotOverridden) {
  std::set<int> lines;
  const auto expect_fatal = [&lines](void (BrowserWindowRpc::*hook)()) {
    const FatalRecord record = FatalRecordOf([hook] {
      BrowserWindowRpc service;
      (service.*hook)();
    });
    ExpectFatal(record, "Not implemented.");
    lines.insert(record.line);
  };
  expect_fatal(&BrowserWindowRpc::WhenBrowserWindowClosed);
  expect_fatal(&BrowserWindowRpc::OnCanExecuteCommand);
  expect_fatal(&BrowserWindowRpc::OnShowContextMenu);
  expect_fatal(&BrowserWindowRpc::OnCloseWindow);
  EXPECT_EQ(lines.size(), 4u);
}

}  // namespace
}  // namespace rpc
