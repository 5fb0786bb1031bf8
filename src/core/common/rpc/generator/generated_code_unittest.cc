// What generated code does, on services that no real program would declare.
// The code under test is the golden output.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <memory>
#include <string>

#include "awkward-names.v1.rpc.h"
#include "core/common/rpc/stream/callback_stream.h"
#include "core/common/rpc/stream/event_stream.h"
#include "core/common/rpc/testing/fake_endpoint.h"
#include "core/common/rpc/testing/recording_call.h"
#include "core/common/rpc/testing/window_id.h"
#include "deep_package.rpc.h"
#include "foreign_types.rpc.h"
#include "generic_services.rpc.h"
#include "interleaved.rpc.h"
#include "keywords.rpc.h"
#include "no_package.rpc.h"
#include "no_services.rpc.h"
#include "relative_types.rpc.h"
#include "several_services.rpc.h"
#include "streams_only.rpc.h"

namespace {

using google::protobuf::MethodDescriptor;
using google::protobuf::ServiceDescriptor;
using torvane::MakeChannel;

// Calls a method with prototypes of its own and returns the failure text.
std::string Call(torvane::Service& service, const MethodDescriptor* method) {
  const std::unique_ptr<google::protobuf::Message> response(
      service.GetResponsePrototype(method).New());
  torvane::RecordingController controller;
  torvane::CountingClosure done;
  service.CallMethod(method, &controller, &service.GetRequestPrototype(method),
                     response.get(), &done);
  EXPECT_EQ(done.runs(), 1);
  return controller.ErrorText();
}

// Each unary method fails by its own name, under the name of the contract even
// where C++ needs another; each prototype is of the method's type.
void ExpectServiceIsComplete(torvane::Service& service) {
  const ServiceDescriptor* descriptor = service.GetDescriptor();
  for (int i = 0; i < descriptor->method_count(); ++i) {
    const MethodDescriptor* method = descriptor->method(i);
    EXPECT_EQ(service.GetRequestPrototype(method).GetDescriptor(),
              method->input_type());
    EXPECT_EQ(service.GetResponsePrototype(method).GetDescriptor(),
              method->output_type());
    if (method->client_streaming())
      EXPECT_NE(service.OpenStream(method, MakeChannel()), nullptr);
    else
      EXPECT_EQ(Call(service, method),
                "Method " + method->name() + "() not implemented.");
  }
}

template <typename ServiceClass>
class GeneratedService : public testing::Test {};

using Services = testing::Types<OracleRpc,
                                a::b_c::d1::e::TreeRpc,
                                awkward::google::std::torvane::absl::ServiceRpc,
                                foreign::ForeignRpc,
                                generic::GreeterRpc,
                                interleaved::InterleavedRpc,
                                keywords::operatorRpc,
                                rpc::transport::relative::FramesRpc,
                                several::EmptyRpc,
                                several::FirstRpc,
                                several::SecondRpc,
                                streams::StreamsRpc>;
TYPED_TEST_SUITE(GeneratedService, Services);

TYPED_TEST(GeneratedService, ServesEveryMethodOfItsDescriptor) {
  TypeParam service;
  ASSERT_EQ(service.GetDescriptor(), TypeParam::descriptor());
  ExpectServiceIsComplete(service);
}

TEST(GeneratedCode, EachServiceOfAFileFindsItsOwnDescriptor) {
  EXPECT_EQ(several::FirstRpc::descriptor()->name(), "First");
  EXPECT_EQ(several::SecondRpc::descriptor()->name(), "Second");
  EXPECT_EQ(several::EmptyRpc::descriptor()->name(), "Empty");
}

TEST(GeneratedCode, OpensTheKindOfStreamThatTheMethodDeclares) {
  interleaved::InterleavedRpc service;
  const ServiceDescriptor* descriptor = service.GetDescriptor();

  using TickStream = torvane::EventStream<interleaved::Tick>;
  const auto events = service.OpenStream(
      descriptor->FindMethodByName("WhenTick"), MakeChannel());
  const auto more_events = service.OpenStream(
      descriptor->FindMethodByName("WhenTickAgain"), MakeChannel());
  const BrowserId key = torvane::WindowId(1);
  static_cast<TickStream&>(*events).Subscribe(key);
  static_cast<TickStream&>(*more_events).Subscribe(key);
  EXPECT_EQ(TickStream::Publish(key, interleaved::Tick()), 2u);
  static_cast<TickStream&>(*events).Unsubscribe(key);
  more_events->OnCompleted();
  EXPECT_TRUE(TickStream::stream_map_.empty());

  using ChooseStream = torvane::CallbackStream<interleaved::Choose>;
  const auto answers = service.OpenStream(
      descriptor->FindMethodByName("OnChoose"), MakeChannel());
  static_cast<ChooseStream&>(*answers).Subscribe(key);
  EXPECT_EQ(ChooseStream::stream_map_.size(), 1u);
  answers->OnCompleted();
  EXPECT_TRUE(ChooseStream::stream_map_.empty());
}

TEST(GeneratedCode, AMethodNamedLikeAKeywordCanBeOverridden) {
  class Service : public keywords::operatorRpc {
   public:
    void delete_(google::protobuf::RpcController*,
                 const keywords::class_*,
                 keywords::class__struct*,
                 google::protobuf::Closure* done) override {
      deleted = true;
      done->Run();
    }
    bool deleted = false;
  } service;
  EXPECT_EQ(Call(service, service.GetDescriptor()->FindMethodByName("delete")),
            "");
  EXPECT_TRUE(service.deleted);
}

TEST(GeneratedCodeDeathTest, RefusesUnknownIndicesEvenWithoutMethods) {
  several::EmptyRpc service;
  const MethodDescriptor* method = several::FirstRpc::descriptor()->method(0);
  torvane::RecordingController controller;
  EXPECT_DEATH(
      service.CallMethod(method, &controller, nullptr, nullptr, nullptr),
      "Bad method index; this should never happen.");
  EXPECT_DEATH(service.GetRequestPrototype(method),
               "Bad method index; this should never happen.");
  EXPECT_DEATH(service.GetResponsePrototype(method),
               "Bad method index; this should never happen.");
  EXPECT_DEATH(service.OpenStream(method, MakeChannel()),
               "Bad method index; this should never happen.");
}

}  // namespace
