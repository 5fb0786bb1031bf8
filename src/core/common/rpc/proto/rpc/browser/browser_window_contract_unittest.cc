// The proto file and its descriptors, held against the contract.

#include <gmock/gmock.h>
#include <google/protobuf/descriptor.h>
#include <google/protobuf/empty.pb.h>
#include <google/protobuf/wrappers.pb.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <barrier>
#include <string>
#include <thread>
#include <vector>

#include "rpc/browser/browser_window.pb.h"
#include "rpc/browser/browser_window.rpc.h"
#include "rpc/browser/browser_window_method_table.h"

namespace rpc {
namespace {

using google::protobuf::Descriptor;
using google::protobuf::DescriptorPool;
using google::protobuf::FieldDescriptor;
using google::protobuf::FileDescriptor;
using google::protobuf::MethodDescriptor;
using google::protobuf::OneofDescriptor;
using google::protobuf::ServiceDescriptor;

constexpr char kFileName[] = "rpc/browser/browser_window.proto";

const FileDescriptor* File() {
  return DescriptorPool::generated_pool()->FindFileByName(kFileName);
}

TEST(BrowserWindowContract, TheFileDeclaresThisOneServiceInPackageRpc) {
  ASSERT_NE(File(), nullptr);
  EXPECT_EQ(File()->package(), "rpc");
  EXPECT_EQ(File()->service_count(), 1);
}

TEST(BrowserWindowContract, EveryMethodIsInItsPlaceWithItsTypes) {
  const ServiceDescriptor* service = BrowserWindowRpc::descriptor();
  ASSERT_EQ(service->method_count(), kMethodCount);
  for (int i = 0; i < kMethodCount; ++i) {
    const MethodDescriptor* method = service->method(i);
    EXPECT_EQ(method->index(), i);
    EXPECT_EQ(method->name(), kMethodTable[i].name);
    EXPECT_EQ(method->input_type()->full_name(), kMethodTable[i].request);
    EXPECT_EQ(method->output_type()->full_name(), kMethodTable[i].response);
  }
}

TEST(BrowserWindowContract, TheLastFourMethodsAreTheStreams) {
  const ServiceDescriptor* service = BrowserWindowRpc::descriptor();
  EXPECT_EQ(service->method(37)->name(), "WhenBrowserWindowClosed");
  EXPECT_EQ(service->method(40)->name(), "OnCloseWindow");
  for (int i = 0; i < kMethodCount; ++i) {
    const bool streams = kMethodTable[i].kind != MethodKind::kUnary;
    EXPECT_EQ(streams, i >= kUnaryMethodCount);
    EXPECT_EQ(service->method(i)->client_streaming(), streams);
    EXPECT_EQ(service->method(i)->server_streaming(), streams);
  }
}

TEST(BrowserWindowContract, QueriesNamedIsAndCloseAloneAnswerABool) {
  int bools = 0;
  const ServiceDescriptor* service = BrowserWindowRpc::descriptor();
  for (int i = 0; i < kMethodCount; ++i) {
    const std::string& name = service->method(i)->name();
    const bool answers_bool = service->method(i)->output_type() ==
                              google::protobuf::BoolValue::descriptor();
    EXPECT_EQ(answers_bool, name.starts_with("Is") || name == "Close") << name;
    bools += answers_bool;
  }
  EXPECT_EQ(bools, 10);
}

TEST(BrowserWindowContract, MostMethodsNeedOnlyTheWindowOrAnswerNothing) {
  int windows = 0;
  int empties = 0;
  const ServiceDescriptor* service = BrowserWindowRpc::descriptor();
  for (int i = 0; i < kMethodCount; ++i) {
    windows += service->method(i)->input_type() == BrowserId::descriptor();
    empties += service->method(i)->output_type() ==
               google::protobuf::Empty::descriptor();
  }
  EXPECT_EQ(windows, 24);
  EXPECT_EQ(empties, 23);
}

TEST(BrowserWindowContract, BrowserIdBelongsToNoPackage) {
  EXPECT_EQ(BrowserId::descriptor()->full_name(), "BrowserId");
  EXPECT_EQ(BrowserId::descriptor()->file()->package(), "");
}

TEST(BrowserWindowContract, EventSubscriptionsHaveTheActionsThatStreamsRead) {
  const OneofDescriptor* action =
      EventSubscription::descriptor()->FindOneofByName("action");
  ASSERT_NE(action, nullptr);
  ASSERT_EQ(action->field_count(), 2);
  EXPECT_EQ(action->field(0)->name(), "subscribe_to");
  EXPECT_EQ(action->field(0)->number(), 1);
  EXPECT_EQ(action->field(0)->type(), FieldDescriptor::TYPE_MESSAGE);
  EXPECT_EQ(action->field(1)->name(), "unsubscribe_from");
  EXPECT_EQ(action->field(1)->number(), 2);
  EXPECT_EQ(action->field(1)->type(), FieldDescriptor::TYPE_MESSAGE);
}

class CallbackMessage : public testing::TestWithParam<int> {};

TEST_P(CallbackMessage, HasTheEnvelopeThatStreamsRead) {
  const Descriptor* message =
      BrowserWindowRpc::descriptor()->method(GetParam())->input_type();
  const FieldDescriptor* browser_id = message->FindFieldByName("browser_id");
  ASSERT_NE(browser_id, nullptr);
  EXPECT_EQ(browser_id->message_type(), BrowserId::descriptor());
  EXPECT_FALSE(browser_id->is_repeated());
  EXPECT_EQ(browser_id->containing_oneof(), nullptr);

  const OneofDescriptor* body = message->FindOneofByName("body");
  ASSERT_NE(body, nullptr);
  const FieldDescriptor* subscribe = message->FindFieldByNumber(2);
  ASSERT_NE(subscribe, nullptr);
  EXPECT_EQ(subscribe->name(), "subscribe");
  EXPECT_EQ(subscribe->type(), FieldDescriptor::TYPE_BOOL);
  EXPECT_EQ(subscribe->containing_oneof(), body);
  const FieldDescriptor* response = message->FindFieldByNumber(4);
  ASSERT_NE(response, nullptr);
  EXPECT_EQ(response->name(), "response");
  EXPECT_EQ(response->containing_oneof(), body);
}

INSTANTIATE_TEST_SUITE_P(Methods,
                         CallbackMessage,
                         testing::Range(kUnaryMethodCount + 1, kMethodCount));

TEST(BrowserWindowDescriptor, IsTheServiceOfTheRegisteredFile) {
  const ServiceDescriptor* descriptor = BrowserWindowRpc::descriptor();
  ASSERT_NE(descriptor, nullptr);
  EXPECT_EQ(descriptor, File()->service(0));
  EXPECT_EQ(BrowserWindowRpc::descriptor(), descriptor);
}

TEST(BrowserWindowDescriptor, IsWhatEveryServiceObjectAnswers) {
  BrowserWindowRpc first;
  BrowserWindowRpc second;
  torvane::Service& service = second;
  EXPECT_EQ(first.GetDescriptor(), BrowserWindowRpc::descriptor());
  EXPECT_EQ(service.GetDescriptor(), BrowserWindowRpc::descriptor());
}

// Either way of asking may come first: run alone, each of the tests below finds
// the array still empty.
TEST(BrowserWindowDescriptor, CanBeAskedForBeforeThereIsAService) {
  EXPECT_EQ(BrowserWindowRpc::descriptor()->full_name(), "rpc.BrowserWindow");
}

TEST(BrowserWindowDescriptor, CanFirstBeAskedForThroughAService) {
  BrowserWindowRpc service;
  EXPECT_EQ(service.GetDescriptor()->full_name(), "rpc.BrowserWindow");
}

TEST(BrowserWindowDescriptor, IsTheSameInThreadsThatAskForItFirstAtOnce) {
  constexpr int kThreads = 8;
  std::vector<const ServiceDescriptor*> found(kThreads);
  std::barrier start(kThreads);
  std::vector<std::thread> threads;
  for (int i = 0; i < kThreads; ++i) {
    threads.emplace_back([&, i] {
      BrowserWindowRpc service;
      start.arrive_and_wait();
      found[i] =
          i % 2 == 0 ? BrowserWindowRpc::descriptor() : service.GetDescriptor();
    });
  }
  for (std::thread& thread : threads)
    thread.join();
  EXPECT_THAT(found, testing::Each(File()->service(0)));
}

// The descriptor that the message code of the file has for its first message.
// Null until somebody has the file's descriptors assigned.
const Descriptor* FirstMessageDescriptor() {
  return descriptor_table_rpc_2fbrowser_2fbrowser_5fwindow_2eproto
      .file_level_metadata[0]
      .descriptor;
}

TEST(BrowserWindowDescriptor, ComesWithMessageDescriptorsAssigned) {
  ASSERT_NE(BrowserWindowRpc::descriptor(), nullptr);
  EXPECT_EQ(FirstMessageDescriptor(), File()->message_type(0));
}

TEST(BrowserWindowDescriptor,
     ComesWithMessageDescriptorsAssignedThroughAService) {
  BrowserWindowRpc service;
  ASSERT_NE(service.GetDescriptor(), nullptr);
  EXPECT_EQ(FirstMessageDescriptor(), File()->message_type(0));
}

}  // namespace
}  // namespace rpc
