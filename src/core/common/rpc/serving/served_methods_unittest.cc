#include "core/common/rpc/serving/served_methods.h"

#include <gmock/gmock.h>
#include <google/protobuf/descriptor.pb.h>
#include <google/protobuf/dynamic_message.h>
#include <google/protobuf/text_format.h>
#include <gtest/gtest.h>

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "core/common/rpc/stream/abstract_stream.h"
#include "rpc/browser/browser_window.pb.h"

namespace rpc::serving {
namespace {

using ::testing::ElementsAre;

// Two services that have the event Opened in common, and one with a single
// method.
constexpr char kFile[] = R"pb(
  name: "shop.proto"
  package: "shop"
  dependency: "browser_id.proto"
  dependency: "rpc/event_subscription.proto"
  dependency: "rpc/browser/browser_window.proto"
  message_type { name: "Opened" }
  message_type { name: "Closed" }
  service {
    name: "Door"
    method {
      name: "WhenOpened"
      input_type: ".rpc.EventSubscription"
      output_type: "Opened"
      client_streaming: true
      server_streaming: true
    }
    method { name: "Knock" input_type: ".BrowserId" output_type: ".BrowserId" }
    method {
      name: "WhenClosed"
      input_type: ".rpc.EventSubscription"
      output_type: "Closed"
      client_streaming: true
      server_streaming: true
    }
  }
  service {
    name: "Window"
    method {
      name: "WhenOpened"
      input_type: ".rpc.EventSubscription"
      output_type: "Opened"
      client_streaming: true
      server_streaming: true
    }
    method {
      name: "OnClose"
      input_type: ".rpc.CloseWindow"
      output_type: ".rpc.CloseWindow"
      client_streaming: true
      server_streaming: true
    }
  }
  service {
    name: "Bell"
    method { name: "Ring" input_type: ".BrowserId" output_type: ".BrowserId" }
  }
)pb";

// Is only asked what it offers.
class ShopService final : public torvane::Service {
 public:
  explicit ShopService(const google::protobuf::ServiceDescriptor* descriptor)
      : descriptor_(descriptor) {}

  const google::protobuf::ServiceDescriptor* GetDescriptor() override {
    return descriptor_;
  }
  const google::protobuf::Message& GetRequestPrototype(
      const google::protobuf::MethodDescriptor* method) const override {
    return *factory_.GetPrototype(method->input_type());
  }
  const google::protobuf::Message& GetResponsePrototype(
      const google::protobuf::MethodDescriptor* method) const override {
    return *factory_.GetPrototype(method->output_type());
  }
  void CallMethod(const google::protobuf::MethodDescriptor*,
                  google::protobuf::RpcController*,
                  const google::protobuf::Message*,
                  google::protobuf::Message*,
                  google::protobuf::Closure*) override {
    ADD_FAILURE() << "nothing is called";
  }
  std::unique_ptr<torvane::AbstractStream> OpenStream(
      const google::protobuf::MethodDescriptor*,
      torvane::StreamChannel) override {
    ADD_FAILURE() << "nothing is opened";
    return nullptr;
  }

 private:
  const google::protobuf::ServiceDescriptor* const descriptor_;
  mutable google::protobuf::DynamicMessageFactory factory_;
};

class ServedMethodsTest : public ::testing::Test {
 protected:
  ServedMethodsTest() {
    google::protobuf::FileDescriptorProto file;
    EXPECT_TRUE(google::protobuf::TextFormat::ParseFromString(kFile, &file));
    const auto* shop = pool_.BuildFile(file);
    door_ = std::make_unique<ShopService>(shop->service(0));
    window_ = std::make_unique<ShopService>(shop->service(1));
    bell_ = std::make_unique<ShopService>(shop->service(2));
    methods_.Add(door_.get());
    methods_.Add(window_.get());
    methods_.Add(bell_.get());
  }

  // That the file imports, and by which the kinds of streams are known.
  const CloseWindow imported_;
  google::protobuf::DescriptorPool pool_{
      google::protobuf::DescriptorPool::generated_pool()};
  std::unique_ptr<ShopService> door_;
  std::unique_ptr<ShopService> window_;
  std::unique_ptr<ShopService> bell_;
  ServedMethods methods_;
};

TEST_F(ServedMethodsTest, EachMethodHasItsPlaceForAnId) {
  std::vector<std::string> names;
  uint64_t id = 0;
  while (const ServedMethod* method = methods_.Find(id)) {
    EXPECT_EQ(method->id, id++);
    names.emplace_back(method->descriptor->full_name());
  }
  EXPECT_THAT(names,
              ElementsAre("shop.Door.WhenOpened", "shop.Door.Knock",
                          "shop.Door.WhenClosed", "shop.Window.WhenOpened",
                          "shop.Window.OnClose", "shop.Bell.Ring"));
  EXPECT_EQ(methods_.Find(id + 1), nullptr);
  EXPECT_EQ(methods_.Find(0)->service, door_.get());
  EXPECT_EQ(methods_.Find(4)->service, window_.get());
}

TEST_F(ServedMethodsTest, StreamsHaveAReaderAndOneKindAsksQuestions) {
  std::vector<bool> reads;
  std::vector<bool> asks;
  for (const ServedMethod& method : methods_.all()) {
    EXPECT_EQ(method.reader != nullptr, method.streaming());
    reads.push_back(method.reader != nullptr);
    asks.push_back(method.asks_questions());
  }
  EXPECT_THAT(reads, ElementsAre(true, false, true, true, true, false));
  EXPECT_THAT(asks, ElementsAre(false, false, false, false, true, false));
}

// One registry of the stream framework knows the subscribers of both.
TEST_F(ServedMethodsTest, StreamsOfOneEventCountTheirSubscribersTogether) {
  const auto subscribers = [this](uint64_t id) {
    return methods_.Find(id)->subscribers;
  };
  EXPECT_NE(subscribers(0), nullptr);
  EXPECT_EQ(subscribers(1), nullptr);
  EXPECT_NE(subscribers(2), nullptr);
  EXPECT_EQ(subscribers(4), nullptr);
  EXPECT_EQ(subscribers(0), subscribers(3));
  EXPECT_NE(subscribers(0), subscribers(2));
}

TEST_F(ServedMethodsTest, ServicesComeOnceAndInTheirOrder) {
  EXPECT_THAT(methods_.Services(),
              ElementsAre(door_->GetDescriptor(), window_->GetDescriptor(),
                          bell_->GetDescriptor()));
}

using ServedMethodsDeathTest = ServedMethodsTest;

TEST_F(ServedMethodsDeathTest, AServiceThatIsAddedTwiceEndsTheProcess) {
  EXPECT_DEATH(methods_.Add(door_.get()),
               "a server offers one service of a name");
  ServedMethods one;
  one.Add(bell_.get());
  EXPECT_DEATH(one.Add(bell_.get()), "a server offers one service of a name");
}

}  // namespace
}  // namespace rpc::serving
