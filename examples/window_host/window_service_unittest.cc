#include "examples/window_host/window_service.h"

#include <limits>

#include "examples/window_host/host_test_support.h"
#include "gmock/gmock.h"
#include "google/protobuf/util/message_differencer.h"
#include "gtest/gtest.h"

namespace window_host {
namespace {

using google::protobuf::BoolValue;
using google::protobuf::Empty;
using google::protobuf::StringValue;
using google::protobuf::util::MessageDifferencer;

class WindowServiceTest : public ::testing::Test {
 protected:
  WindowServiceTest() {
    host_.desktop.Open();
    host_.desktop.Open();
  }

  // Calls a method that completes at once.
  template <typename Request, typename Response>
  absl::StatusOr<Response> Call(
      void (WindowService::*method)(google::protobuf::RpcController*,
                                    const Request*,
                                    Response*,
                                    google::protobuf::Closure*),
      const Request& request) {
    TestCall<Request, Response> call(host_, method, request);
    EXPECT_EQ(1, call.done.runs());
    if (!call.controller.status().ok())
      return call.controller.status();
    return call.response;
  }

  using Command = TestCall<BrowserId, Empty>::Method;
  using Query = TestCall<BrowserId, BoolValue>::Method;

  void Do(Command command, int64_t id) {
    EXPECT_EQ(absl::OkStatus(), Call(command, MakeId(id)).status());
  }
  bool Ask(Query query, int64_t id) { return Call(query, MakeId(id))->value(); }

  // The request with the window filled in.
  template <typename Request>
  static Request For(int64_t id, Request request = {}) {
    request.mutable_browser_id()->set_value(id);
    return request;
  }

  TestHost host_;
};

using Service = WindowService;

TEST_F(WindowServiceTest, CommandsReachTheDesktop) {
  Do(&Service::Hide, 2);
  EXPECT_FALSE(Ask(&Service::IsVisible, 2));
  EXPECT_FALSE(Ask(&Service::IsActive, 2));
  EXPECT_TRUE(Ask(&Service::IsActive, 1));
  Do(&Service::Show, 2);
  EXPECT_TRUE(Ask(&Service::IsVisible, 2));
  EXPECT_TRUE(Ask(&Service::IsActive, 2));
  Do(&Service::Deactivate, 2);
  EXPECT_FALSE(Ask(&Service::IsActive, 2));
  Do(&Service::Activate, 2);
  EXPECT_TRUE(Ask(&Service::IsActive, 2));
  EXPECT_FALSE(host_.desktop.Inspect(2)->page_has_keyboard);
  Do(&Service::Focus, 2);
  EXPECT_TRUE(host_.desktop.Inspect(2)->page_has_keyboard);
}

TEST_F(WindowServiceTest, StatesReachTheDesktopAndExcludeEachOther) {
  auto states = [this] {
    return std::vector<bool>{Ask(&Service::IsMaximized, 1),
                             Ask(&Service::IsFullScreen, 1),
                             Ask(&Service::IsMinimized, 1)};
  };
  using ::testing::ElementsAre;
  EXPECT_THAT(states(), ElementsAre(false, false, false));
  Do(&Service::Maximize, 1);
  EXPECT_THAT(states(), ElementsAre(true, false, false));
  Do(&Service::EnterFullScreen, 1);
  EXPECT_THAT(states(), ElementsAre(false, true, false));
  Do(&Service::Minimize, 1);
  EXPECT_THAT(states(), ElementsAre(false, false, true));
  Do(&Service::Restore, 1);
  EXPECT_THAT(states(), ElementsAre(false, true, false));
  Do(&Service::ExitFullScreen, 1);
  EXPECT_THAT(states(), ElementsAre(true, false, false));
}

TEST_F(WindowServiceTest, BoundsAreMovedResizedSetAndCentred) {
  auto bounds = [this] {
    return Call(&Service::GetBounds, MakeId(1))->ShortDebugString();
  };
  rpc::WindowBounds all;
  all.mutable_bounds()->set_x(10);
  all.mutable_bounds()->set_y(20);
  all.mutable_bounds()->set_width(300);
  all.mutable_bounds()->set_height(400);
  ASSERT_TRUE(Call(&Service::SetBounds, For(1, all)).ok());
  EXPECT_EQ("x: 10 y: 20 width: 300 height: 400", bounds());

  rpc::WindowPosition position;
  position.set_x(-5);
  position.set_y(6);
  ASSERT_TRUE(Call(&Service::SetPosition, For(1, position)).ok());
  EXPECT_EQ("x: -5 y: 6 width: 300 height: 400", bounds());
  position.clear_x();
  position.set_y(0);
  ASSERT_TRUE(Call(&Service::SetPosition, For(1, position)).ok());
  EXPECT_EQ("x: -5 width: 300 height: 400", bounds());

  rpc::WindowSize size;
  size.set_width(500);
  ASSERT_TRUE(Call(&Service::SetSize, For(1, size)).ok());
  EXPECT_EQ("x: -5 width: 500 height: 400", bounds());
  size.clear_width();
  size.set_height(600);
  ASSERT_TRUE(Call(&Service::SetSize, For(1, size)).ok());
  EXPECT_EQ("x: -5 width: 500 height: 600", bounds());

  Do(&Service::CenterWindow, 1);
  EXPECT_EQ("x: 710 y: 232 width: 500 height: 600", bounds());
}

TEST_F(WindowServiceTest, IncompleteBoundsAreRefused) {
  EXPECT_EQ(absl::InvalidArgumentError("The field bounds is missing."),
            Call(&Service::SetBounds, For<rpc::WindowBounds>(1)).status());
  rpc::WindowSize size;
  size.set_width(std::numeric_limits<int>::min());
  EXPECT_EQ(absl::StatusCode::kInvalidArgument,
            Call(&Service::SetSize, For(1, size)).status().code());
}

TEST_F(WindowServiceTest, TitleIsSetAndRead) {
  EXPECT_EQ("Window 1", Call(&Service::GetTitle, MakeId(1))->value());
  rpc::WindowTitle title;
  title.set_title("Inbox");
  ASSERT_TRUE(Call(&Service::SetTitle, For(1, title)).ok());
  EXPECT_EQ("Inbox", Call(&Service::GetTitle, MakeId(1))->value());
  EXPECT_EQ("Window 2", Call(&Service::GetTitle, MakeId(2))->value());
  ASSERT_TRUE(Call(&Service::SetTitle, For<rpc::WindowTitle>(1)).ok());
  EXPECT_EQ("", Call(&Service::GetTitle, MakeId(1))->value());
}

TEST_F(WindowServiceTest, TitleAndTitlebarAreShownAndHiddenSeparately) {
  EXPECT_TRUE(Ask(&Service::IsWindowTitleVisible, 1));
  EXPECT_TRUE(Ask(&Service::IsWindowTitlebarVisible, 1));
  ASSERT_TRUE(
      Call(&Service::SetWindowTitleVisible, For<rpc::WindowTitleVisibility>(1))
          .ok());
  EXPECT_FALSE(Ask(&Service::IsWindowTitleVisible, 1));
  EXPECT_TRUE(Ask(&Service::IsWindowTitlebarVisible, 1));

  rpc::WindowTitleVisibility visible;
  visible.set_visible(true);
  ASSERT_TRUE(Call(&Service::SetWindowTitleVisible, For(1, visible)).ok());
  ASSERT_TRUE(Call(&Service::SetWindowTitlebarVisible,
                   For<rpc::WindowTitlebarVisibility>(1))
                  .ok());
  EXPECT_TRUE(Ask(&Service::IsWindowTitleVisible, 1));
  EXPECT_FALSE(Ask(&Service::IsWindowTitlebarVisible, 1));
}

TEST_F(WindowServiceTest, EachButtonIsShownAndHiddenByItself) {
  auto visible = [this](rpc::WindowButton::Kind kind) {
    rpc::WindowButton button;
    button.set_kind(kind);
    return Call(&Service::IsWindowButtonVisible, For(1, button))->value();
  };
  rpc::WindowButtonVisibility change;
  change.set_kind(rpc::WindowButton::KIND_MINIMIZE);
  ASSERT_TRUE(Call(&Service::SetWindowButtonVisible, For(1, change)).ok());
  EXPECT_TRUE(visible(rpc::WindowButton::KIND_CLOSE));
  EXPECT_FALSE(visible(rpc::WindowButton::KIND_MINIMIZE));
  EXPECT_TRUE(visible(rpc::WindowButton::KIND_MAXIMIZE));
  change.set_visible(true);
  ASSERT_TRUE(Call(&Service::SetWindowButtonVisible, For(1, change)).ok());
  EXPECT_TRUE(visible(rpc::WindowButton::KIND_MINIMIZE));
}

TEST_F(WindowServiceTest, StyleFlagsAreReadAsTheyAreSet) {
  rpc::WindowStyleFlags flags = *Call(&Service::GetWindowStyleFlags, MakeId(1));
  EXPECT_EQ(1, flags.browser_id().value());
  EXPECT_TRUE(flags.closable());
  flags.set_closable(false);
  flags.set_utility(true);
  ASSERT_TRUE(Call(&Service::SetWindowStyleFlags, flags).ok());
  EXPECT_TRUE(MessageDifferencer::Equals(
      flags, *Call(&Service::GetWindowStyleFlags, MakeId(1))));
  EXPECT_TRUE(Call(&Service::GetWindowStyleFlags, MakeId(2))->closable());
}

TEST_F(WindowServiceTest, DisplayPolicyIsReadAsItIsSet) {
  rpc::BrowserWindowDisplayPolicy policy =
      *Call(&Service::GetWindowDisplayPolicy, MakeId(1));
  EXPECT_EQ(1, policy.browser_id().value());
  EXPECT_EQ(rpc::BrowserWindowDisplayPolicy::POLICY_ONE_WORKSPACE,
            policy.policy());
  policy.set_policy(rpc::BrowserWindowDisplayPolicy::POLICY_ALL_WORKSPACES);
  ASSERT_TRUE(Call(&Service::SetWindowDisplayPolicy, policy).ok());
  EXPECT_TRUE(MessageDifferencer::Equals(
      policy, *Call(&Service::GetWindowDisplayPolicy, MakeId(1))));
}

TEST_F(WindowServiceTest, AnimationAndVibrancyAreKept) {
  rpc::WindowAnimationBehavior animation;
  animation.set_behavior(rpc::WindowAnimationBehavior::BEHAVIOR_ALERT);
  ASSERT_TRUE(
      Call(&Service::SetWindowAnimationBehavior, For(1, animation)).ok());
  rpc::BrowserVibrancy vibrancy;
  vibrancy.set_material(rpc::BrowserVibrancy::MATERIAL_MENU);
  vibrancy.set_state(rpc::BrowserVibrancy::STATE_ACTIVE);
  ASSERT_TRUE(Call(&Service::SetVibrancy, For(1, vibrancy)).ok());
  const WindowLook& look = **host_.desktop.Look(1);
  EXPECT_EQ(animation.behavior(), look.animation.behavior());
  EXPECT_EQ(vibrancy.material(), look.vibrancy.material());
  EXPECT_EQ(vibrancy.state(), look.vibrancy.state());
}

TEST_F(WindowServiceTest, VibrancyWithoutStateFollowsTheWindow) {
  rpc::BrowserVibrancy vibrancy;
  vibrancy.set_material(rpc::BrowserVibrancy::MATERIAL_MENU);
  ASSERT_TRUE(Call(&Service::SetVibrancy, For(1, vibrancy)).ok());
  EXPECT_EQ(rpc::BrowserVibrancy::STATE_FOLLOWS_WINDOW,
            (*host_.desktop.Look(1))->vibrancy.state());
}

TEST_F(WindowServiceTest, ActivationIndependenceIsSetAndRead) {
  EXPECT_FALSE(Ask(&Service::IsActivationIndependenceEnabled, 1));
  rpc::ActivationIndependence independence;
  independence.set_enabled(true);
  ASSERT_TRUE(
      Call(&Service::SetActivationIndependenceEnabled, For(1, independence))
          .ok());
  EXPECT_TRUE(Ask(&Service::IsActivationIndependenceEnabled, 1));
  Do(&Service::Hide, 2);
  EXPECT_FALSE(Ask(&Service::IsActive, 1));
}

TEST_F(WindowServiceTest, ChoicesThatAreMissingOrUnknownAreRefused) {
  using ::absl::InvalidArgumentError;
  rpc::WindowButton button;
  EXPECT_EQ(InvalidArgumentError("The field kind is missing."),
            Call(&Service::IsWindowButtonVisible, For(1, button)).status());
  rpc::WindowButtonVisibility visibility;
  visibility.set_kind(static_cast<rpc::WindowButton::Kind>(17));
  EXPECT_EQ(
      InvalidArgumentError("There is no kind 17."),
      Call(&Service::SetWindowButtonVisible, For(1, visibility)).status());
  rpc::BrowserWindowDisplayPolicy policy;
  EXPECT_EQ(InvalidArgumentError("The field policy is missing."),
            Call(&Service::SetWindowDisplayPolicy, For(1, policy)).status());
  rpc::WindowAnimationBehavior animation;
  EXPECT_EQ(
      InvalidArgumentError("The field behavior is missing."),
      Call(&Service::SetWindowAnimationBehavior, For(1, animation)).status());
  rpc::BrowserVibrancy vibrancy;
  EXPECT_EQ(InvalidArgumentError("The field material is missing."),
            Call(&Service::SetVibrancy, For(1, vibrancy)).status());
  vibrancy.set_material(rpc::BrowserVibrancy::MATERIAL_NONE);
  vibrancy.set_state(static_cast<rpc::BrowserVibrancy::State>(-1));
  EXPECT_EQ(InvalidArgumentError("There is no state -1."),
            Call(&Service::SetVibrancy, For(1, vibrancy)).status());
}

// Requests are made and completed by reflection, so that no method is missed.
class EveryMethodTest : public ::testing::TestWithParam<int> {
 protected:
  const google::protobuf::MethodDescriptor* method() {
    return rpc::BrowserWindowRpc::descriptor()->method(GetParam());
  }

  std::unique_ptr<google::protobuf::Message> NewRequest() {
    return std::unique_ptr<google::protobuf::Message>(
        host_.service.GetRequestPrototype(method()).New());
  }

  // Fills in everything, with 1 wherever it fits, but names the window `id`.
  static void Fill(google::protobuf::Message* message, int64_t id) {
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

  absl::Status Call(const google::protobuf::Message& request) {
    std::unique_ptr<google::protobuf::Message> response(
        host_.service.GetResponsePrototype(method()).New());
    rpc::transport::ServerController controller;
    torvane::RecordingClosure done;
    host_.service.CallMethod(method(), &controller, &request, response.get(),
                             &done);
    host_.RunReady();
    EXPECT_EQ(1, done.runs());
    return controller.status();
  }

  TestHost host_;
};

TEST_P(EveryMethodTest, IsImplemented) {
  host_.desktop.Open();
  auto request = NewRequest();
  Fill(request.get(), 1);
  EXPECT_EQ(absl::OkStatus(), Call(*request));
}

TEST_P(EveryMethodTest, NamesTheWindowThatItDoesNotFind) {
  auto request = NewRequest();
  Fill(request.get(), 7);
  EXPECT_EQ(absl::NotFoundError("No window 7."), Call(*request));
}

TEST_P(EveryMethodTest, RefusesARequestWithoutWindow) {
  host_.desktop.Open();
  auto request = NewRequest();
  Fill(request.get(), 1);
  const auto* const field =
      request->GetDescriptor()->FindFieldByName("browser_id");
  if (!field) {
    request->Clear();
    EXPECT_EQ(absl::NotFoundError("No window 0."), Call(*request));
    return;
  }
  request->GetReflection()->ClearField(request.get(), field);
  EXPECT_EQ(absl::InvalidArgumentError("The field browser_id is missing."),
            Call(*request));
}

INSTANTIATE_TEST_SUITE_P(
    Unary,
    EveryMethodTest,
    ::testing::Range(0, 37),
    [](const ::testing::TestParamInfo<int>& info) {
      return rpc::BrowserWindowRpc::descriptor()->method(info.param)->name();
    });

TEST_F(WindowServiceTest, CloseAnswersWhenTheQuestionIsSettled) {
  TestStream<rpc::CloseWindow> client(host_.service, kOnCloseWindow);
  client.AnswerFor(1);
  TestCall<BrowserId, BoolValue> refused(host_, &Service::Close, MakeId(1));
  host_.RunReady();
  EXPECT_EQ(0, refused.done.runs());
  EXPECT_EQ(rpc::WINDOW_CLOSE_REASON_CALL,
            client.Received().back().question().reason());
  client.Answer({});
  host_.RunReady();
  EXPECT_EQ(1, refused.done.runs());
  EXPECT_TRUE(refused.controller.status().ok());
  EXPECT_FALSE(refused.response.value());
  EXPECT_TRUE(host_.desktop.Inspect(1).ok());

  client.End();
  TestCall<BrowserId, BoolValue> allowed(host_, &Service::Close, MakeId(1));
  host_.RunReady();
  EXPECT_EQ(1, allowed.done.runs());
  EXPECT_TRUE(allowed.response.value());
  EXPECT_FALSE(host_.desktop.Inspect(1).ok());
}

}  // namespace
}  // namespace window_host
