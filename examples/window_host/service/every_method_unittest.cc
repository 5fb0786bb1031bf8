// What holds for every unary method of the window service. The requests are
// made by reflection, so that no method is missed.

#include <google/protobuf/descriptor.h>
#include <google/protobuf/message.h>

#include <memory>
#include <string>
#include <vector>

#include "examples/window_host/service/host_test_support.h"
#include "gtest/gtest.h"

namespace window_host {
namespace {

using google::protobuf::Message;
using google::protobuf::MethodDescriptor;

// Fills in everything, with 1 wherever it fits, but names the window `id`.
void Fill(Message* message, int64_t id) {
  if (message->GetDescriptor() == BrowserId::descriptor())
    return static_cast<BrowserId*>(message)->set_value(id);
  const google::protobuf::Reflection& reflection = *message->GetReflection();
  for (int i = 0; i < message->GetDescriptor()->field_count(); ++i) {
    const auto* const field = message->GetDescriptor()->field(i);
    switch (field->cpp_type()) {
      case google::protobuf::FieldDescriptor::CPPTYPE_MESSAGE:
        Fill(reflection.MutableMessage(message, field), id);
        break;
      case google::protobuf::FieldDescriptor::CPPTYPE_INT32:
        reflection.SetInt32(message, field, 1);
        break;
      case google::protobuf::FieldDescriptor::CPPTYPE_ENUM:
        reflection.SetEnumValue(message, field, 1);
        break;
      default:
        break;
    }
  }
}

// A call of any method, as a transport makes it.
struct AnyCall {
  AnyCall(TestHost& host,
          const MethodDescriptor* method,
          std::unique_ptr<Message> the_request)
      : request(std::move(the_request)),
        response(host.service->GetResponsePrototype(method).New()) {
    host.service->CallMethod(method, &context, request.get(), response.get(),
                             &done);
  }

  const std::unique_ptr<Message> request;
  const std::unique_ptr<Message> response;
  rpc::serving::CallContext context;
  torvane::CountingClosure done;
};

// The host has window 1.
class EveryMethodTest
    : public ::testing::TestWithParam<const MethodDescriptor*> {
 protected:
  EveryMethodTest() { host_.windows.Open(); }

  std::unique_ptr<Message> RequestFor(int64_t id) {
    std::unique_ptr<Message> request(
        host_.service->GetRequestPrototype(GetParam()).New());
    Fill(request.get(), id);
    return request;
  }

  AnyCall Call(std::unique_ptr<Message> request) {
    return AnyCall(host_, GetParam(), std::move(request));
  }

  // How the call ends when the desktop does what it is asked.
  absl::Status StatusOf(std::unique_ptr<Message> request) {
    AnyCall call = Call(std::move(request));
    host_.sequence.Run();
    EXPECT_EQ(1, call.done.runs());
    return call.context.status();
  }

  TestHost host_;
};

TEST_P(EveryMethodTest, IsImplemented) {
  EXPECT_EQ(absl::OkStatus(), StatusOf(RequestFor(1)));
}

TEST_P(EveryMethodTest, NamesTheWindowThatItDoesNotFind) {
  EXPECT_EQ(absl::NotFoundError("No window 7."), StatusOf(RequestFor(7)));
}

TEST_P(EveryMethodTest, RefusesARequestWithoutWindow) {
  std::unique_ptr<Message> request = RequestFor(1);
  const auto* const field =
      request->GetDescriptor()->FindFieldByName("browser_id");
  if (!field) {
    request->Clear();
    EXPECT_EQ(absl::NotFoundError("No window 0."),
              StatusOf(std::move(request)));
    return;
  }
  request->GetReflection()->ClearField(request.get(), field);
  EXPECT_EQ(absl::InvalidArgumentError("The field browser_id is missing."),
            StatusOf(std::move(request)));
}

// Methods that change a window and those that read one; Close is neither.
using EveryChangeTest = EveryMethodTest;
using EveryReadTest = EveryMethodTest;

TEST_P(EveryChangeTest, AnswersOnlyWhenTheDesktopHasConfirmed) {
  host_.windows.Hold();
  AnyCall call = Call(RequestFor(1));
  host_.sequence.Run();
  EXPECT_EQ(0, call.done.runs());
  ASSERT_EQ(1u, host_.windows.held());
  host_.windows.Confirm();
  host_.sequence.Run();
  EXPECT_EQ(1, call.done.runs());
  EXPECT_EQ(absl::OkStatus(), call.context.status());
}

TEST_P(EveryChangeTest, FailsWithTheRefusalOfTheDesktop) {
  const absl::Status refusal =
      absl::FailedPreconditionError("The window manager refuses.");
  host_.windows.Hold();
  AnyCall call = Call(RequestFor(1));
  host_.windows.Refuse(refusal);
  host_.sequence.Run();
  EXPECT_EQ(1, call.done.runs());
  EXPECT_EQ(refusal, call.context.status());
}

TEST_P(EveryChangeTest, FindsItsWindowGoneThatVanishesMeanwhile) {
  host_.windows.Hold();
  AnyCall call = Call(RequestFor(1));
  host_.windows.Lose(1);
  host_.sequence.Run();
  EXPECT_EQ(1, call.done.runs());
  EXPECT_EQ(absl::NotFoundError("No window 1."), call.context.status());
}

TEST_P(EveryReadTest, AnswersAtOnce) {
  AnyCall call = Call(RequestFor(1));
  EXPECT_EQ(1, call.done.runs());
}

enum class MethodKind { kAll, kChanges, kReads };

std::vector<const MethodDescriptor*> Methods(MethodKind kind) {
  std::vector<const MethodDescriptor*> methods;
  const auto* const service = rpc::BrowserWindowRpc::descriptor();
  for (int i = 0; i < service->method_count(); ++i) {
    const MethodDescriptor* const method = service->method(i);
    const bool changes =
        method->output_type() == google::protobuf::Empty::descriptor();
    const bool closes = method->name() == "Close";
    if (!method->server_streaming() &&
        (kind == MethodKind::kAll ||
         (!closes && changes == (kind == MethodKind::kChanges)))) {
      methods.push_back(method);
    }
  }
  return methods;
}

std::string NameOf(
    const ::testing::TestParamInfo<const MethodDescriptor*>& info) {
  return info.param->name();
}

INSTANTIATE_TEST_SUITE_P(Unary,
                         EveryMethodTest,
                         ::testing::ValuesIn(Methods(MethodKind::kAll)),
                         NameOf);
INSTANTIATE_TEST_SUITE_P(Unary,
                         EveryChangeTest,
                         ::testing::ValuesIn(Methods(MethodKind::kChanges)),
                         NameOf);
INSTANTIATE_TEST_SUITE_P(Unary,
                         EveryReadTest,
                         ::testing::ValuesIn(Methods(MethodKind::kReads)),
                         NameOf);

}  // namespace
}  // namespace window_host
