// How calls reach the methods of the generated base class.

#include <gmock/gmock.h>
#include <google/protobuf/descriptor.h>
#include <google/protobuf/descriptor.pb.h>
#include <google/protobuf/empty.pb.h>
#include <google/protobuf/wrappers.pb.h>
#include <gtest/gtest.h>

#include <unistd.h>

#include <csignal>
#include <memory>
#include <set>
#include <string>
#include <type_traits>
#include <vector>

#include "core/common/rpc/testing/allocation_counter.h"
#include "core/common/rpc/testing/fake_endpoint.h"
#include "core/common/rpc/testing/fatal_record.h"
#include "core/common/rpc/testing/forged_method.h"
#include "core/common/rpc/testing/recording_call.h"
#include "rpc/browser/browser_window.rpc.h"
#include "rpc/browser/browser_window_every_unary_method.h"
#include "rpc/browser/browser_window_method_table.h"

namespace rpc {
namespace {

using google::protobuf::Message;
using google::protobuf::MethodDescriptor;
using torvane::CountAllocations;
using torvane::CountingClosure;
using torvane::FatalRecord;
using torvane::FatalRecordOf;
using torvane::ForgedMethod;
using torvane::RecordingController;

constexpr char kStreamingText[] =
    "Streaming method can't be called with this call.";
constexpr char kBadIndexText[] = "Bad method index; this should never happen.";
constexpr char kSourceFile[] =
    "src/core/common/rpc/proto/rpc/browser/browser_window.rpc.cc";

const MethodDescriptor* Method(int index) {
  return BrowserWindowRpc::descriptor()->method(index);
}

// A method of another service, of which the given index is all that counts.
class ForeignService {
 public:
  ForeignService() {
    google::protobuf::FileDescriptorProto file;
    file.set_name("foreign.proto");
    file.add_message_type()->set_name("Nothing");
    auto* service = file.add_service();
    service->set_name("Foreign");
    for (int i = 0; i < kMethodCount + 2; ++i) {
      auto* method = service->add_method();
      method->set_name("Method" + std::to_string(i));
      method->set_input_type("Nothing");
      method->set_output_type("Nothing");
    }
    service_ = pool_.BuildFile(file)->service(0);
  }

  const MethodDescriptor* method(int index) const {
    return service_->method(index);
  }

 private:
  google::protobuf::DescriptorPool pool_;
  const google::protobuf::ServiceDescriptor* service_;
};

TEST(Dispatch, EachUnaryIndexReachesItsOwnMethodWithTheVeryPointersPassed) {
  EveryUnaryMethod service;
  for (int i = 0; i < kUnaryMethodCount; ++i) {
    const std::unique_ptr<Message> request(
        service.GetRequestPrototype(Method(i)).New());
    const std::unique_ptr<Message> response(
        service.GetResponsePrototype(Method(i)).New());
    RecordingController controller;
    CountingClosure done;
    service.CallMethod(Method(i), &controller, request.get(), response.get(),
                       &done);
    ASSERT_EQ(service.calls.size(), 1u);
    const EveryUnaryMethod::Call call = service.calls.front();
    EXPECT_STREQ(call.name, kMethodTable[i].name);
    EXPECT_EQ(call.controller, &controller);
    EXPECT_EQ(call.request, request.get());
    EXPECT_EQ(call.response, response.get());
    EXPECT_EQ(call.done, &done);
    // Completion is the method's own duty: this one has not run the closure.
    EXPECT_EQ(done.runs(), 0);
    EXPECT_FALSE(controller.Failed());
    service.calls.clear();
  }
}

TEST(Dispatch, AMethodOfAnotherServiceIsDispatchedByItsIndexAlone) {
  const ForeignService foreign;
  EveryUnaryMethod service;
  BrowserId request;
  google::protobuf::Empty response;
  RecordingController controller;
  CountingClosure done;
  service.CallMethod(foreign.method(3), &controller, &request, &response,
                     &done);
  ASSERT_EQ(service.calls.size(), 1u);
  EXPECT_STREQ(service.calls.front().name, "Activate");
  EXPECT_EQ(&service.GetRequestPrototype(foreign.method(28)),
            &WindowButton::default_instance());
  EXPECT_EQ(&service.GetResponsePrototype(foreign.method(19)),
            &Rect::default_instance());
}

TEST(Dispatch, AllocatesNothing) {
  EveryUnaryMethod service;
  service.calls.reserve(kUnaryMethodCount);
  RecordingController controller;
  CountingClosure done;
  const MethodDescriptor* methods[kUnaryMethodCount];
  std::vector<std::unique_ptr<Message>> responses;
  for (int i = 0; i < kUnaryMethodCount; ++i) {
    methods[i] = Method(i);
    responses.emplace_back(service.GetResponsePrototype(methods[i]).New());
  }

  const size_t before = CountAllocations().allocations;
  for (int i = 0; i < kUnaryMethodCount; ++i) {
    service.CallMethod(methods[i], &controller,
                       &service.GetRequestPrototype(methods[i]),
                       responses[i].get(), &done);
  }
  EXPECT_EQ(CountAllocations().allocations, before);
  EXPECT_EQ(service.calls.size(), static_cast<size_t>(kUnaryMethodCount));
}

TEST(DefaultMethods, FailWithTheirNameAndThenComplete) {
  BrowserWindowRpc service;
  for (int i = 0; i < kUnaryMethodCount; ++i) {
    const std::unique_ptr<Message> response(
        service.GetResponsePrototype(Method(i)).New());
    RecordingController controller;
    std::string text_at_completion;
    CountingClosure done([&] { text_at_completion = controller.ErrorText(); });
    service.CallMethod(Method(i), &controller,
                       &service.GetRequestPrototype(Method(i)), response.get(),
                       &done);
    const std::string text =
        "Method " + std::string(kMethodTable[i].name) + "() not implemented.";
    EXPECT_EQ(controller.ErrorText(), text);
    EXPECT_EQ(controller.failures(), 1);
    EXPECT_EQ(text_at_completion, text);
    EXPECT_EQ(done.runs(), 1);
  }
}

TEST(DefaultMethods, LeaveTheResponseAsItCame) {
  BrowserWindowRpc service;
  BrowserId request;
  google::protobuf::BoolValue response;
  response.set_value(true);
  RecordingController controller;
  CountingClosure done;
  service.CallMethod(Method(15), &controller, &request, &response, &done);
  EXPECT_EQ(controller.ErrorText(), "Method Close() not implemented.");
  EXPECT_TRUE(response.value());
}

TEST(DefaultMethods, LogNothing) {
  BrowserWindowRpc service;
  RecordingController controller;
  CountingClosure done;
  testing::internal::CaptureStderr();
  service.Show(&controller, nullptr, nullptr, &done);
  EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
}

TEST(DefaultMethods, DoNotReadTheRequest) {
  BrowserWindowRpc service;
  RecordingController controller;
  CountingClosure done;
  service.Show(&controller, nullptr, nullptr, &done);
  EXPECT_EQ(controller.ErrorText(), "Method Show() not implemented.");
  EXPECT_EQ(done.runs(), 1);
}

TEST(Prototypes, AreTheDefaultInstancesOfTheContractsTypes) {
  BrowserWindowRpc service;
  auto* factory = google::protobuf::MessageFactory::generated_factory();
  for (int i = 0; i < kMethodCount; ++i) {
    const Message& request = service.GetRequestPrototype(Method(i));
    const Message& response = service.GetResponsePrototype(Method(i));
    EXPECT_EQ(request.GetTypeName(), kMethodTable[i].request);
    EXPECT_EQ(response.GetTypeName(), kMethodTable[i].response);
    EXPECT_EQ(&request, factory->GetPrototype(request.GetDescriptor()));
    EXPECT_EQ(&response, factory->GetPrototype(response.GetDescriptor()));
  }
}

TEST(Prototypes, AreThoseOfTheMethodAndNotOfItsNeighbours) {
  BrowserWindowRpc service;
  EXPECT_EQ(&service.GetRequestPrototype(Method(28)),
            &WindowButton::default_instance());
  EXPECT_EQ(&service.GetResponsePrototype(Method(19)),
            &Rect::default_instance());
  EXPECT_EQ(&service.GetResponsePrototype(Method(22)),
            &google::protobuf::StringValue::default_instance());
  EXPECT_EQ(&service.GetResponsePrototype(Method(15)),
            &google::protobuf::BoolValue::default_instance());
}

TEST(Prototypes, AreServedForStreamingMethodsToo) {
  BrowserWindowRpc service;
  EXPECT_EQ(&service.GetRequestPrototype(Method(37)),
            &EventSubscription::default_instance());
  EXPECT_EQ(&service.GetResponsePrototype(Method(37)),
            &BrowserWindowClosed::default_instance());
  EXPECT_EQ(&service.GetRequestPrototype(Method(40)),
            &CloseWindow::default_instance());
  EXPECT_EQ(&service.GetResponsePrototype(Method(40)),
            &CloseWindow::default_instance());
}

TEST(Prototypes, AreTheSameObjectsEachTimeAndCostNoAllocation) {
  BrowserWindowRpc service;
  const Message* requests[kMethodCount];
  const Message* responses[kMethodCount];
  const MethodDescriptor* methods[kMethodCount];
  for (int i = 0; i < kMethodCount; ++i) {
    methods[i] = Method(i);
    requests[i] = &service.GetRequestPrototype(methods[i]);
    responses[i] = &service.GetResponsePrototype(methods[i]);
  }
  const size_t before = CountAllocations().allocations;
  bool same = true;
  for (int i = 0; i < kMethodCount; ++i) {
    same &= requests[i] == &service.GetRequestPrototype(methods[i]);
    same &= responses[i] == &service.GetResponsePrototype(methods[i]);
  }
  EXPECT_EQ(CountAllocations().allocations, before);
  EXPECT_TRUE(same);
}

// Calls a method that is refused. The child leaves with a status instead of a
// signal where the controller or the closure is touched.
FatalRecord RefusedCall(const MethodDescriptor* method) {
  return FatalRecordOf([method] {
    class Untouchable : public google::protobuf::RpcController {
      void Reset() override { _exit(1); }
      bool Failed() const override { _exit(1); }
      std::string ErrorText() const override { _exit(1); }
      void StartCancel() override { _exit(1); }
      void SetFailed(const std::string&) override { _exit(1); }
      bool IsCanceled() const override { _exit(1); }
      void NotifyOnCancel(google::protobuf::Closure*) override { _exit(1); }
    } controller;
    CountingClosure done([] { _exit(1); });
    BrowserWindowRpc service;
    service.CallMethod(method, &controller, nullptr, nullptr, &done);
  });
}

FatalRecord RefusedRequestPrototype(const MethodDescriptor* method) {
  return FatalRecordOf(
      [method] { BrowserWindowRpc().GetRequestPrototype(method); });
}

FatalRecord RefusedResponsePrototype(const MethodDescriptor* method) {
  return FatalRecordOf(
      [method] { BrowserWindowRpc().GetResponsePrototype(method); });
}

void ExpectFatal(const FatalRecord& record, const char* text) {
  EXPECT_EQ(record.text, text);
  EXPECT_EQ(record.file, kSourceFile);
  EXPECT_EQ(record.signal, SIGABRT);
}

TEST(DispatchDeathTest, RefusesToCallStreamingMethods) {
  for (int i = kUnaryMethodCount; i < kMethodCount; ++i)
    ExpectFatal(RefusedCall(Method(i)), kStreamingText);
}

TEST(DispatchDeathTest, RefusesIndicesThatTheServiceDoesNotHave) {
  for (const int index : {-1, kMethodCount, kMethodCount + 1, 1 << 20}) {
    const ForgedMethod method(Method(0), index);
    ExpectFatal(RefusedCall(method.get()), kBadIndexText);
    ExpectFatal(RefusedRequestPrototype(method.get()), kBadIndexText);
    ExpectFatal(RefusedResponsePrototype(method.get()), kBadIndexText);
  }
}

TEST(DispatchDeathTest, RefusesTheFirstIndexPastTheEndOfAnotherService) {
  const ForeignService foreign;
  const MethodDescriptor* method = foreign.method(kMethodCount);
  ExpectFatal(RefusedCall(method), kBadIndexText);
  ExpectFatal(RefusedRequestPrototype(method), kBadIndexText);
  ExpectFatal(RefusedResponsePrototype(method), kBadIndexText);
}

TEST(DispatchDeathTest, EachRefusalHasALineOfItsOwn) {
  std::set<int> lines;
  for (int i = kUnaryMethodCount; i < kMethodCount; ++i)
    lines.insert(RefusedCall(Method(i)).line);
  const ForgedMethod method(Method(0), kMethodCount);
  lines.insert(RefusedCall(method.get()).line);
  lines.insert(RefusedRequestPrototype(method.get()).line);
  lines.insert(RefusedResponsePrototype(method.get()).line);
  EXPECT_EQ(lines.size(), 7u);
}

TEST(BrowserWindowRpc, AddsNoDataToItsBase) {
  EXPECT_EQ(sizeof(BrowserWindowRpc), sizeof(torvane::Service));
  EXPECT_TRUE((std::is_base_of_v<torvane::Service, BrowserWindowRpc>));
}

TEST(BrowserWindowRpc, IsFreedWithTheUnsizedDeleteThroughItsBase) {
  torvane::Service* service = new BrowserWindowRpc;
  const auto before = CountAllocations();
  delete service;
  const auto after = CountAllocations();
  EXPECT_EQ(after.unsized_deletes, before.unsized_deletes + 1);
  EXPECT_EQ(after.sized_deletes, before.sized_deletes);
}

TEST(BrowserWindowRpc, RunsTheSubclassesDestructorThroughItsBase) {
  class Subclass : public BrowserWindowRpc {
   public:
    explicit Subclass(bool& destroyed) : destroyed_(destroyed) {}
    ~Subclass() override { destroyed_ = true; }

   private:
    bool& destroyed_;
  };
  bool destroyed = false;
  std::unique_ptr<torvane::Service>(new Subclass(destroyed)).reset();
  EXPECT_TRUE(destroyed);
}

}  // namespace
}  // namespace rpc
