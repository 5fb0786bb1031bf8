#include "examples/window_host/service/window_service.h"

#include <google/protobuf/util/message_differencer.h>

#include <limits>
#include <vector>

#include "examples/window_host/service/host_test_support.h"
#include "gmock/gmock.h"
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
    host_.windows.Open();
    host_.windows.Open();
  }

  // Calls a method and lets the desktop do what it asks.
  template <typename Request, typename Response>
  absl::StatusOr<Response> Call(
      void (rpc::BrowserWindowRpc::*method)(google::protobuf::RpcController*,
                                            const Request*,
                                            Response*,
                                            google::protobuf::Closure*),
      const Request& request) {
    TestCall<Request, Response> call(host_, method, request);
    host_.sequence.Run();
    EXPECT_EQ(1, call.done.runs());
    if (!call.context.status().ok())
      return call.context.status();
    return call.response;
  }

  using Command = TestCall<BrowserId, Empty>::Method;
  using Query = TestCall<BrowserId, BoolValue>::Method;

  void Do(Command command, int64_t id) {
    EXPECT_EQ(absl::OkStatus(), Call(command, torvane::WindowId(id)).status());
  }
  bool Ask(Query query, int64_t id) {
    return Call(query, torvane::WindowId(id))->value();
  }

  // The request with the window filled in.
  template <typename Request>
  static Request For(int64_t id, Request request = {}) {
    request.mutable_browser_id()->set_value(id);
    return request;
  }

  TestHost host_;
};

using Service = rpc::BrowserWindowRpc;

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
  EXPECT_FALSE(host_.windows.Inspect(2)->page_has_keyboard);
  Do(&Service::Focus, 2);
  EXPECT_TRUE(host_.windows.Inspect(2)->page_has_keyboard);
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
    return Call(&Service::GetBounds, torvane::WindowId(1))->ShortDebugString();
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
  EXPECT_EQ("Window 1",
            Call(&Service::GetTitle, torvane::WindowId(1))->value());
  rpc::WindowTitle title;
  title.set_title("Inbox");
  ASSERT_TRUE(Call(&Service::SetTitle, For(1, title)).ok());
  EXPECT_EQ("Inbox", Call(&Service::GetTitle, torvane::WindowId(1))->value());
  EXPECT_EQ("Window 2",
            Call(&Service::GetTitle, torvane::WindowId(2))->value());
  ASSERT_TRUE(Call(&Service::SetTitle, For<rpc::WindowTitle>(1)).ok());
  EXPECT_EQ("", Call(&Service::GetTitle, torvane::WindowId(1))->value());
}

TEST_F(WindowServiceTest, TitleMayHaveTheGreatestLengthAndNoByteMore) {
  EXPECT_EQ(4'096u, kMaxTitleBytes);
  const std::string longest(kMaxTitleBytes, 'x');
  rpc::WindowTitle title;
  title.set_title(longest);
  EXPECT_TRUE(Call(&Service::SetTitle, For(1, title)).ok());
  title.set_title(longest + 'x');
  EXPECT_EQ(absl::InvalidArgumentError("The title has 4097 bytes; a window "
                                       "takes at most 4096."),
            Call(&Service::SetTitle, For(1, title)).status());
  EXPECT_EQ(longest, Call(&Service::GetTitle, torvane::WindowId(1))->value());
}

// Each look at a window copies what it keeps.
TEST_F(WindowServiceTest, WindowKeepsNoUnknownFieldsOfWhatItIsSetTo) {
  const auto with_unknown_fields = [](auto request) {
    request.GetReflection()->MutableUnknownFields(&request)->AddLengthDelimited(
        100, "unknown");
    return request;
  };
  rpc::WindowStyleFlags style;
  style.set_utility(true);
  ASSERT_TRUE(
      Call(&Service::SetWindowStyleFlags, with_unknown_fields(For(1, style)))
          .ok());
  rpc::BrowserWindowDisplayPolicy policy;
  policy.set_policy(rpc::BrowserWindowDisplayPolicy::POLICY_ALL_WORKSPACES);
  ASSERT_TRUE(Call(&Service::SetWindowDisplayPolicy,
                   with_unknown_fields(For(1, policy)))
                  .ok());
  rpc::WindowAnimationBehavior animation;
  animation.set_behavior(rpc::WindowAnimationBehavior::BEHAVIOR_ALERT);
  ASSERT_TRUE(Call(&Service::SetWindowAnimationBehavior,
                   with_unknown_fields(For(1, animation)))
                  .ok());
  rpc::BrowserVibrancy vibrancy;
  vibrancy.set_material(rpc::BrowserVibrancy::MATERIAL_MENU);
  ASSERT_TRUE(
      Call(&Service::SetVibrancy, with_unknown_fields(For(1, vibrancy))).ok());

  const WindowView window = *host_.windows.Inspect(1);
  EXPECT_EQ(For(1, style).SerializeAsString(),
            window.style.SerializeAsString());
  EXPECT_EQ(For(1, policy).SerializeAsString(),
            window.display_policy.SerializeAsString());
  EXPECT_EQ(For(1, animation).SerializeAsString(),
            window.animation.SerializeAsString());
  vibrancy.set_state(rpc::BrowserVibrancy::STATE_FOLLOWS_WINDOW);
  EXPECT_EQ(For(1, vibrancy).SerializeAsString(),
            window.vibrancy.SerializeAsString());
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
  rpc::WindowStyleFlags flags =
      *Call(&Service::GetWindowStyleFlags, torvane::WindowId(1));
  EXPECT_EQ(1, flags.browser_id().value());
  EXPECT_TRUE(flags.closable());
  flags.set_closable(false);
  flags.set_utility(true);
  ASSERT_TRUE(Call(&Service::SetWindowStyleFlags, flags).ok());
  EXPECT_TRUE(MessageDifferencer::Equals(
      flags, *Call(&Service::GetWindowStyleFlags, torvane::WindowId(1))));
  EXPECT_TRUE(
      Call(&Service::GetWindowStyleFlags, torvane::WindowId(2))->closable());
}

TEST_F(WindowServiceTest, DisplayPolicyIsReadAsItIsSet) {
  rpc::BrowserWindowDisplayPolicy policy =
      *Call(&Service::GetWindowDisplayPolicy, torvane::WindowId(1));
  EXPECT_EQ(1, policy.browser_id().value());
  EXPECT_EQ(rpc::BrowserWindowDisplayPolicy::POLICY_ONE_WORKSPACE,
            policy.policy());
  policy.set_policy(rpc::BrowserWindowDisplayPolicy::POLICY_ALL_WORKSPACES);
  ASSERT_TRUE(Call(&Service::SetWindowDisplayPolicy, policy).ok());
  EXPECT_TRUE(MessageDifferencer::Equals(
      policy, *Call(&Service::GetWindowDisplayPolicy, torvane::WindowId(1))));
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
  const WindowView view = *host_.windows.Inspect(1);
  EXPECT_EQ(animation.behavior(), view.animation.behavior());
  EXPECT_EQ(vibrancy.material(), view.vibrancy.material());
  EXPECT_EQ(vibrancy.state(), view.vibrancy.state());
}

TEST_F(WindowServiceTest, VibrancyWithoutStateFollowsTheWindow) {
  rpc::BrowserVibrancy vibrancy;
  vibrancy.set_material(rpc::BrowserVibrancy::MATERIAL_MENU);
  ASSERT_TRUE(Call(&Service::SetVibrancy, For(1, vibrancy)).ok());
  EXPECT_EQ(rpc::BrowserVibrancy::STATE_FOLLOWS_WINDOW,
            host_.windows.Inspect(1)->vibrancy.state());
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

TEST_F(WindowServiceTest, CloseAnswersWhenTheQuestionIsSettled) {
  TestStream<rpc::CloseWindow> client(*host_.service, kOnCloseWindow);
  client.AnswerFor(1);
  TestCall<BrowserId, BoolValue> refused(host_, &Service::Close,
                                         torvane::WindowId(1));
  host_.sequence.Run();
  EXPECT_EQ(0, refused.done.runs());
  EXPECT_EQ(rpc::WINDOW_CLOSE_REASON_CALL,
            client.Received().back().question().reason());
  client.Answer({});
  host_.sequence.Run();
  EXPECT_EQ(1, refused.done.runs());
  EXPECT_TRUE(refused.context.status().ok());
  EXPECT_FALSE(refused.response.value());
  EXPECT_TRUE(host_.IsOpen(1));

  client.End();
  TestCall<BrowserId, BoolValue> allowed(host_, &Service::Close,
                                         torvane::WindowId(1));
  host_.sequence.Run();
  EXPECT_EQ(1, allowed.done.runs());
  EXPECT_TRUE(allowed.response.value());
  EXPECT_FALSE(host_.IsOpen(1));
}

// What a client sees of a desktop that takes its time.
class SlowDesktopTest : public WindowServiceTest {
 protected:
  SlowDesktopTest() { host_.windows.Hold(); }

  // What Close answers if its client allows that and the desktop is asked.
  TestCall<BrowserId, BoolValue> CallClose() {
    return {host_, &Service::Close, torvane::WindowId(1)};
  }

  const absl::Status refusal_ =
      absl::FailedPreconditionError("The window manager refuses.");
};

TEST_F(SlowDesktopTest, ReadingTellsWhatIsConfirmedAndNotWhatIsRequested) {
  TestCall<BrowserId, Empty> call(host_, &Service::Maximize,
                                  torvane::WindowId(1));
  host_.sequence.Run();
  EXPECT_FALSE(Ask(&Service::IsMaximized, 1));
  host_.windows.Confirm();
  host_.sequence.Run();
  EXPECT_TRUE(Ask(&Service::IsMaximized, 1));
}

TEST_F(SlowDesktopTest, RefusedChangeLeavesTheWindowAsItWas) {
  TestCall<BrowserId, Empty> call(host_, &Service::Maximize,
                                  torvane::WindowId(1));
  host_.windows.Refuse(refusal_);
  host_.sequence.Run();
  EXPECT_FALSE(Ask(&Service::IsMaximized, 1));
}

TEST_F(SlowDesktopTest, UnconfirmedChangeFailsTheCallAsTooLate) {
  const absl::Status late = absl::DeadlineExceededError("Not confirmed.");
  TestCall<BrowserId, Empty> call(host_, &Service::Maximize,
                                  torvane::WindowId(1));
  host_.windows.Refuse(late);
  host_.sequence.Run();
  EXPECT_EQ(late, call.context.status());
}

TEST_F(SlowDesktopTest, CallsOfOtherWindowsOutliveAWindowThatVanishes) {
  TestCall<BrowserId, Empty> lost(host_, &Service::Maximize,
                                  torvane::WindowId(1));
  TestCall<BrowserId, Empty> kept(host_, &Service::Maximize,
                                  torvane::WindowId(2));
  host_.windows.Lose(1);
  host_.sequence.Run();
  EXPECT_EQ(1, lost.done.runs());
  EXPECT_EQ(0, kept.done.runs());
  host_.windows.Confirm();
  host_.sequence.Run();
  EXPECT_EQ(absl::OkStatus(), kept.context.status());
  EXPECT_EQ(1, kept.done.runs());
}

TEST_F(SlowDesktopTest, ChangeForAClientThatHasLeftIsMadeAndEndsItsCall) {
  TestCall<BrowserId, Empty> call(host_, &Service::Maximize,
                                  torvane::WindowId(1));
  call.context.Cancel();
  host_.windows.Confirm();
  host_.sequence.Run();
  EXPECT_EQ(1, call.done.runs());
  EXPECT_TRUE(Ask(&Service::IsMaximized, 1));
}

TEST_F(SlowDesktopTest, CloseAnswersOnlyWhenTheWindowIsClosed) {
  TestCall<BrowserId, BoolValue> call = CallClose();
  host_.sequence.Run();
  EXPECT_EQ(0, call.done.runs());
  host_.windows.Confirm();
  host_.sequence.Run();
  EXPECT_EQ(1, call.done.runs());
  EXPECT_TRUE(call.response.value());
}

TEST_F(SlowDesktopTest, CloseFailsWithTheRefusalOfTheDesktop) {
  TestCall<BrowserId, BoolValue> call = CallClose();
  host_.sequence.Run();
  host_.windows.Refuse(refusal_);
  host_.sequence.Run();
  EXPECT_EQ(1, call.done.runs());
  EXPECT_EQ(refusal_, call.context.status());
  EXPECT_TRUE(host_.IsOpen(1));
}

TEST_F(SlowDesktopTest, CloseFindsAWindowGoneThatVanishesMeanwhile) {
  TestCall<BrowserId, BoolValue> call = CallClose();
  host_.sequence.Run();
  host_.windows.Lose(1);
  host_.sequence.Run();
  EXPECT_EQ(1, call.done.runs());
  EXPECT_EQ(absl::NotFoundError("No window 1."), call.context.status());
}

TEST_F(WindowServiceTest, CloseFindsAWindowGoneThatVanishesDuringTheQuestion) {
  TestStream<rpc::CloseWindow> client(*host_.service, kOnCloseWindow);
  client.AnswerFor(1);
  TestCall<BrowserId, BoolValue> call(host_, &Service::Close,
                                      torvane::WindowId(1));
  host_.windows.Lose(1);
  rpc::CloseWindow::Response allowed;
  allowed.set_allowed(true);
  client.Answer(allowed);
  host_.sequence.Run();
  EXPECT_EQ(1, call.done.runs());
  EXPECT_EQ(absl::NotFoundError("No window 1."), call.context.status());
}

TEST_F(WindowServiceTest, ClientsHearOfAClosedWindowBeforeCloseAnswers) {
  TestStream<rpc::BrowserWindowClosed> watcher(*host_.service,
                                               kWhenBrowserWindowClosed);
  watcher.Watch(1);
  size_t heard = 0;
  const BrowserId id = torvane::WindowId(1);
  BoolValue closed;
  rpc::serving::CallContext context;
  torvane::CountingClosure done([&] { heard = watcher.Received().size(); });
  host_.service->Close(&context, &id, &closed, &done);
  host_.sequence.Run();
  EXPECT_EQ(1, done.runs());
  EXPECT_EQ(1u, heard);
  EXPECT_EQ(rpc::WINDOW_CLOSE_REASON_CALL, watcher.Received()[0].reason());
}

}  // namespace
}  // namespace window_host
