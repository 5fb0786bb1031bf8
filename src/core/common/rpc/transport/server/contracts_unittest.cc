// Clients and servers that were built from different versions of a contract.

#include <google/protobuf/descriptor.h>
#include <google/protobuf/descriptor.pb.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "core/common/rpc/transport/testing/lab.h"

namespace rpc::transport {
namespace {

// Another version of the lab's contract: the methods `names`, in this order,
// each from one Text to another.
class OtherContract {
 public:
  explicit OtherContract(const std::vector<std::string>& names,
                         const std::string& service = "Lab") {
    google::protobuf::FileDescriptorProto file;
    file.set_name("other_lab.proto");
    file.set_package("lab");
    file.add_message_type()->set_name("Text");
    auto* descriptor = file.add_service();
    descriptor->set_name(service);
    for (const std::string& name : names) {
      auto* method = descriptor->add_method();
      method->set_name(name);
      method->set_input_type(".lab.Text");
      method->set_output_type(".lab.Text");
    }
    file_ = pool_.BuildFile(file);
  }

  absl::StatusOr<std::string> Call(Client& client,
                                   int index,
                                   const std::string& text) {
    ClientController controller;
    lab::Text request;
    lab::Text response;
    request.set_text(text);
    client.CallMethod(file_->service(0)->method(index), &controller, &request,
                      &response, nullptr);
    if (!controller.status().ok()) {
      return controller.status();
    }
    return response.text();
  }

 private:
  google::protobuf::DescriptorPool pool_;
  const google::protobuf::FileDescriptor* file_;
};

TEST(Contracts, MethodsInAnotherOrderAreStillFound) {
  Lab lab;
  const auto client = lab.NewClient();
  OtherContract other({"Forget", "Fail", "Echo"});
  EXPECT_EQ(other.Call(*client, 2, "hello").value(), "hello");
  EXPECT_EQ(other.Call(*client, 1, "no").status(), absl::UnknownError("no"));
}

TEST(Contracts, AMethodThatTheServerDoesNotHaveIsNamed) {
  Lab lab;
  const auto client = lab.NewClient();
  OtherContract other({"Shout", "Echo"});
  EXPECT_EQ(other.Call(*client, 0, "hello").status(),
            absl::UnimplementedError("the server has no method lab.Lab.Shout"));
  EXPECT_EQ(lab.server->counters().calls_started, 0u);
  EXPECT_EQ(other.Call(*client, 1, "hello").value(), "hello");
}

TEST(Contracts, AServiceThatTheServerDoesNotHaveIsNamed) {
  Lab lab;
  const auto client = lab.NewClient();
  OtherContract other({"Echo"}, "Kitchen");
  EXPECT_EQ(other.Call(*client, 0, "hello").status(),
            absl::UnimplementedError("the server has no service lab.Kitchen "
                                     "and so no method lab.Kitchen.Echo"));
}

TEST(Contracts, AMethodThatHasBecomeAStreamIsNotCalled) {
  Lab lab;
  const auto client = lab.NewClient();
  OtherContract other({"Watch"});
  EXPECT_EQ(
      other.Call(*client, 0, "hello").status(),
      absl::UnimplementedError("lab.Lab.Watch is a stream on the server"));
}

TEST(Contracts, OneServerOffersSeveralServices) {
  Lab lab;
  class Kitchen final : public lab::KitchenRpc {
   public:
    void Cook(google::protobuf::RpcController*,
              const lab::Text* request,
              lab::Text* response,
              google::protobuf::Closure* done) override {
      response->set_text("cooked " + request->text());
      done->Run();
    }
  };
  Kitchen kitchen;
  lab.server->AddService(&kitchen);
  const auto client = lab.NewClient();
  ClientController controller;
  lab::Text request;
  lab::Text response;
  request.set_text("fish");
  lab::Kitchen_Stub(client.get())
      .Cook(&controller, &request, &response, nullptr);
  EXPECT_EQ(response.text(), "cooked fish");
  EXPECT_EQ(CallText(*client, &lab::Lab_Stub::Echo, "x").value(), "x");
  lab.server.reset();
}

TEST(ContractsDeathTest, TwoServicesOfOneNameEndTheProcess) {
  EXPECT_DEATH(
      {
        Lab lab;
        LabService second;
        lab.server->AddService(&second);
      },
      "a server offers one service of a name");
}

}  // namespace
}  // namespace rpc::transport
