#include "examples/window_host/service/browser.h"

#include <optional>

#include "examples/window_host/service/host_test_support.h"
#include "gmock/gmock.h"
#include "gtest/gtest.h"

namespace window_host {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::SizeIs;

constexpr auto kBlink = std::chrono::milliseconds(1);

rpc::CloseWindow::Response MayClose(bool allowed) {
  rpc::CloseWindow::Response response;
  response.set_allowed(allowed);
  return response;
}

class BrowserTest : public ::testing::Test {
 protected:
  BrowserTest() {
    host_.windows.Open();
    host_.windows.Open();
  }

  void UserCloses(int64_t id) {
    host_.browser.CloseWindow(id, rpc::WINDOW_CLOSE_REASON_USER,
                              [this](const absl::StatusOr<Decision>& closed) {
                                ++settled_;
                                closed_ = closed;
                              });
  }

  bool IsOpen(int64_t id) { return host_.IsOpen(id); }

  TestHost host_;
  int settled_ = 0;
  absl::StatusOr<Decision> closed_ = absl::UnknownError("not settled");
};

TEST_F(BrowserTest, WindowClosesWhenNobodyAnswersForIt) {
  UserCloses(1);
  EXPECT_EQ(0, settled_);
  host_.sequence.Run();
  EXPECT_EQ(1, settled_);
  EXPECT_TRUE(closed_->allowed);
  EXPECT_EQ(QuestionOutcome::kNobodyAnswers, closed_->outcome);
  EXPECT_FALSE(IsOpen(1));
  EXPECT_TRUE(IsOpen(2));
}

TEST_F(BrowserTest, QuestionSaysWhichWindowAndWhyItIsToClose) {
  TestStream<rpc::CloseWindow> client(*host_.service, kOnCloseWindow);
  client.AnswerFor(1);
  UserCloses(1);
  ASSERT_THAT(client.Received(), SizeIs(1));
  EXPECT_EQ(1, client.Received()[0].browser_id().value());
  EXPECT_EQ(rpc::WINDOW_CLOSE_REASON_USER,
            client.Received()[0].question().reason());
}

TEST_F(BrowserTest, WindowStaysOpenWhenItsClientDoesNotAllowClosing) {
  TestStream<rpc::CloseWindow> client(*host_.service, kOnCloseWindow);
  client.AnswerFor(1);
  UserCloses(1);
  client.Answer(MayClose(false));
  host_.sequence.Run();
  EXPECT_EQ(1, settled_);
  EXPECT_FALSE(closed_->allowed);
  EXPECT_EQ(QuestionOutcome::kAnswered, closed_->outcome);
  EXPECT_TRUE(IsOpen(1));
}

TEST_F(BrowserTest, WindowClosesOnlyAfterItsClientAllowsThat) {
  TestStream<rpc::CloseWindow> client(*host_.service, kOnCloseWindow);
  client.AnswerFor(1);
  UserCloses(1);
  host_.sequence.Run();
  EXPECT_EQ(0, settled_);
  EXPECT_TRUE(IsOpen(1));
  client.Answer(MayClose(true));
  host_.sequence.Run();
  EXPECT_EQ(1, settled_);
  EXPECT_TRUE(closed_->allowed);
  EXPECT_FALSE(IsOpen(1));
}

TEST_F(BrowserTest, WindowClosesWhenItsClientFails) {
  TestStream<rpc::CloseWindow> client(*host_.service, kOnCloseWindow);
  client.AnswerFor(1);
  UserCloses(1);
  client.Decline();
  host_.sequence.Run();
  EXPECT_TRUE(closed_->allowed);
  EXPECT_EQ(QuestionOutcome::kClientFailed, closed_->outcome);
  EXPECT_FALSE(IsOpen(1));
}

TEST_F(BrowserTest, WindowClosesWhenItsClientLeaves) {
  TestStream<rpc::CloseWindow> client(*host_.service, kOnCloseWindow);
  client.AnswerFor(1);
  UserCloses(1);
  client.End();
  host_.sequence.Run();
  EXPECT_TRUE(closed_->allowed);
  EXPECT_EQ(QuestionOutcome::kClientLeft, closed_->outcome);
  EXPECT_FALSE(IsOpen(1));
}

TEST_F(BrowserTest, WindowClosesWhenItsClientAnswersTooLate) {
  TestHost host(kBlink);
  host.windows.Open();
  TestStream<rpc::CloseWindow> client(*host.service, kOnCloseWindow);
  client.AnswerFor(1);
  std::vector<Decision> decisions;
  host.browser.CloseWindow(1, rpc::WINDOW_CLOSE_REASON_USER,
                           [&](const absl::StatusOr<Decision>& closed) {
                             decisions.push_back(*closed);
                           });
  host.sequence.Advance(kBlink);
  client.Answer(MayClose(false));
  host.sequence.Run();
  ASSERT_THAT(decisions, SizeIs(1));
  EXPECT_TRUE(decisions[0].allowed);
  EXPECT_EQ(QuestionOutcome::kTooLate, decisions[0].outcome);
  EXPECT_FALSE(host.IsOpen(1));
}

TEST_F(BrowserTest, AnsweredQuestionDoesNotWaitForItsDeadline) {
  TestStream<rpc::CloseWindow> client(*host_.service, kOnCloseWindow);
  client.AnswerFor(1);
  UserCloses(1);
  client.Answer(MayClose(true));
  host_.sequence.Run();
  EXPECT_EQ(1, settled_);
  EXPECT_EQ(0u, host_.sequence.timers());
}

TEST_F(BrowserTest, UnknownWindowIsSaidAtOnceAndNobodyIsAsked) {
  TestStream<rpc::CloseWindow> client(*host_.service, kOnCloseWindow);
  client.AnswerFor(7);
  UserCloses(7);
  EXPECT_EQ(1, settled_);
  EXPECT_EQ(absl::NotFoundError("No window 7."), closed_.status());
  EXPECT_THAT(client.Received(), IsEmpty());
}

TEST_F(BrowserTest, SecondCloseUnderWayFindsTheWindowGone) {
  UserCloses(1);
  UserCloses(1);
  host_.sequence.Run();
  EXPECT_EQ(2, settled_);
  EXPECT_EQ(absl::NotFoundError("No window 1."), closed_.status());
}

TEST_F(BrowserTest, FunctionMayCloseTheSameWindowAgainAndEndItsClient) {
  TestStream<rpc::CloseWindow> client(*host_.service, kOnCloseWindow);
  client.AnswerFor(1);
  host_.browser.CloseWindow(1, rpc::WINDOW_CLOSE_REASON_USER,
                            [&](const absl::StatusOr<Decision>&) {
                              UserCloses(1);
                              client.End();
                            });
  client.Answer(MayClose(false));
  host_.sequence.Run();
  EXPECT_EQ(QuestionOutcome::kClientLeft, closed_->outcome);
  EXPECT_FALSE(IsOpen(1));
}

TEST_F(BrowserTest, ClosedWindowIsToldToThoseWhoWantToKnow) {
  TestStream<rpc::BrowserWindowClosed> watcher(*host_.service,
                                               kWhenBrowserWindowClosed);
  watcher.Watch(1);
  rpc::WindowTitle title;
  title.set_title("Inbox");
  host_.Change(1, title);
  UserCloses(2);
  UserCloses(1);
  host_.sequence.Run();
  ASSERT_THAT(watcher.Received(), SizeIs(1));
  EXPECT_EQ(1, watcher.Received()[0].browser_id().value());
  EXPECT_EQ(rpc::WINDOW_CLOSE_REASON_USER, watcher.Received()[0].reason());
  EXPECT_EQ("Inbox", watcher.Received()[0].title());
}

TEST_F(BrowserTest, VanishedWindowIsToldLikeAnyOtherThatIsClosed) {
  TestStream<rpc::BrowserWindowClosed> watcher(*host_.service,
                                               kWhenBrowserWindowClosed);
  watcher.Watch(1);
  host_.windows.Lose(1);
  host_.sequence.Run();
  ASSERT_THAT(watcher.Received(), SizeIs(1));
  EXPECT_EQ("Window 1", watcher.Received()[0].title());
  EXPECT_EQ(rpc::WINDOW_CLOSE_REASON_UNSPECIFIED,
            watcher.Received()[0].reason());
}

TEST_F(BrowserTest, WindowThatVanishesWhileItClosesIsToldOnce) {
  TestStream<rpc::BrowserWindowClosed> watcher(*host_.service,
                                               kWhenBrowserWindowClosed);
  watcher.Watch(1);
  host_.windows.Hold();
  UserCloses(1);
  host_.sequence.Run();
  host_.windows.Lose(1);
  host_.sequence.Run();
  EXPECT_EQ(absl::NotFoundError("No window 1."), closed_.status());
  EXPECT_THAT(watcher.Received(), SizeIs(1));
}

TEST_F(BrowserTest, RefusedCloseIsAnErrorAndNobodyIsTold) {
  TestStream<rpc::BrowserWindowClosed> watcher(*host_.service,
                                               kWhenBrowserWindowClosed);
  watcher.Watch(1);
  host_.windows.Hold();
  UserCloses(1);
  host_.sequence.Run();
  host_.windows.Refuse(absl::FailedPreconditionError("It will not close."));
  host_.sequence.Run();
  EXPECT_EQ(absl::FailedPreconditionError("It will not close."),
            closed_.status());
  EXPECT_THAT(watcher.Received(), IsEmpty());
}

TEST_F(BrowserTest, WishOfTheDesktopToCloseIsPutToTheClient) {
  TestStream<rpc::CloseWindow> client(*host_.service, kOnCloseWindow);
  client.AnswerFor(1);
  host_.windows.WishToClose(1);
  host_.sequence.Run();
  ASSERT_THAT(client.Received(), SizeIs(1));
  EXPECT_EQ(rpc::WINDOW_CLOSE_REASON_USER,
            client.Received()[0].question().reason());
  client.Answer(MayClose(false));
  host_.sequence.Run();
  EXPECT_TRUE(IsOpen(1));

  host_.windows.WishToClose(1);
  host_.sequence.Run();
  client.Answer(MayClose(true));
  host_.sequence.Run();
  EXPECT_FALSE(IsOpen(1));
}

TEST_F(BrowserTest, WishToCloseAWindowThatHasVanishedDoesNothing) {
  host_.windows.WishToClose(1);
  host_.windows.Lose(1);
  host_.sequence.Run();
  EXPECT_FALSE(IsOpen(1));
  EXPECT_TRUE(IsOpen(2));
}

TEST_F(BrowserTest, ShutdownClosesAllWindowsWithoutAsking) {
  TestStream<rpc::CloseWindow> client(*host_.service, kOnCloseWindow);
  client.AnswerFor(1);
  TestStream<rpc::BrowserWindowClosed> watcher(*host_.service,
                                               kWhenBrowserWindowClosed);
  watcher.Watch(1);
  bool ended = false;
  host_.browser.Shutdown([&ended] { ended = true; });
  EXPECT_FALSE(ended);
  host_.sequence.Run();
  EXPECT_TRUE(ended);
  EXPECT_THAT(host_.windows.stacking(), IsEmpty());
  EXPECT_THAT(client.Received(), IsEmpty());
  ASSERT_THAT(watcher.Received(), SizeIs(1));
  EXPECT_EQ(rpc::WINDOW_CLOSE_REASON_SHUTDOWN, watcher.Received()[0].reason());
}

TEST_F(BrowserTest, ShutdownEndsWithTheLastWindowAlsoIfItIsRefused) {
  int ended = 0;
  host_.windows.Hold();
  host_.browser.Shutdown([&ended] { ++ended; });
  host_.windows.Confirm();
  host_.sequence.Run();
  EXPECT_EQ(0, ended);
  host_.windows.Refuse(absl::FailedPreconditionError("It will not close."));
  host_.sequence.Run();
  EXPECT_EQ(1, ended);
}

TEST_F(BrowserTest, ShutdownWithoutWindowsEndsAtOnce) {
  host_.windows.Lose(1);
  host_.windows.Lose(2);
  bool ended = false;
  host_.browser.Shutdown([&ended] { ended = true; });
  EXPECT_TRUE(ended);
}

class CommandTest : public BrowserTest {
 protected:
  CommandTest() { client_.AnswerFor(1); }

  void UserWants(int64_t id, const std::string& command) {
    host_.browser.ExecuteCommand(
        id, command,
        [this](const absl::StatusOr<Decision>& done) { executed_ = done; });
  }

  void Answer(bool allowed) {
    rpc::CanExecuteCommand::Response response;
    response.set_allowed(allowed);
    client_.Answer(response);
    host_.sequence.Run();
  }

  TestStream<rpc::CanExecuteCommand> client_{*host_.service,
                                             kOnCanExecuteCommand};
  absl::StatusOr<Decision> executed_ = absl::UnknownError("not settled");
};

TEST_F(CommandTest, QuestionNamesTheCommand) {
  UserWants(1, "reload");
  ASSERT_THAT(client_.Received(), SizeIs(1));
  EXPECT_EQ("reload", client_.Received()[0].question().command().name());
  EXPECT_EQ(3, client_.Received()[0].question().command().id());
}

TEST_F(CommandTest, ClientDecides) {
  UserWants(1, "reload");
  Answer(false);
  EXPECT_FALSE(executed_->allowed);
  UserWants(1, "reload");
  Answer(true);
  EXPECT_TRUE(executed_->allowed);
}

TEST_F(CommandTest, CommandIsExecutedWhenNobodyAnswersForTheWindow) {
  UserWants(2, "reload");
  host_.sequence.Run();
  EXPECT_TRUE(executed_->allowed);
  EXPECT_EQ(QuestionOutcome::kNobodyAnswers, executed_->outcome);
}

TEST_F(CommandTest, DesktopExecutesWhatIsAllowedAndNothingElse) {
  UserWants(1, "reload");
  Answer(false);
  EXPECT_THAT(host_.windows.done_for_user(), IsEmpty());
  UserWants(1, "print");
  Answer(true);
  UserWants(2, "back");
  host_.sequence.Run();
  EXPECT_THAT(host_.windows.done_for_user(), ElementsAre("1 print", "2 back"));
}

TEST_F(CommandTest, WishOfTheUserAtTheDesktopIsAskedAbout) {
  host_.windows.WishCommand(1, "zoom_in");
  host_.sequence.Run();
  ASSERT_THAT(client_.Received(), SizeIs(1));
  EXPECT_EQ("zoom_in", client_.Received()[0].question().command().name());
  Answer(true);
  EXPECT_THAT(host_.windows.done_for_user(), ElementsAre("1 zoom_in"));
}

TEST_F(CommandTest, UnknownCommandIsAnsweredWithTheNearestName) {
  UserWants(1, "relod");
  EXPECT_EQ(absl::InvalidArgumentError(
                "There is no command relod. Did you mean reload?"),
            executed_.status());
  EXPECT_THAT(client_.Received(), IsEmpty());
}

TEST_F(CommandTest, UnknownWindowIsAnError) {
  UserWants(7, "reload");
  EXPECT_EQ(absl::NotFoundError("No window 7."), executed_.status());
}

TEST_F(CommandTest, WindowThatClosedMeanwhileIsAnError) {
  UserWants(1, "reload");
  host_.windows.Lose(1);
  Answer(true);
  EXPECT_EQ(absl::NotFoundError("No window 1."), executed_.status());
}

class MenuTest : public BrowserTest {
 protected:
  MenuTest() { client_.AnswerFor(1); }

  void UserOpensMenu(int64_t id) {
    host_.browser.OpenContextMenu(
        id, 40, 60, [this](const absl::StatusOr<Menu>& menu) { menu_ = menu; });
  }

  void Answer(bool handled, std::vector<int> omitted) {
    rpc::ShowContextMenu::Response response;
    response.set_handled(handled);
    response.mutable_omitted_command_ids()->Add(omitted.begin(), omitted.end());
    client_.Answer(response);
    host_.sequence.Run();
  }

  TestStream<rpc::ShowContextMenu> client_{*host_.service, kOnShowContextMenu};
  absl::StatusOr<Menu> menu_ = absl::UnknownError("not settled");
};

TEST_F(MenuTest, QuestionSaysWhereAndProposesTheMenu) {
  UserOpensMenu(1);
  ASSERT_THAT(client_.Received(), SizeIs(1));
  const rpc::ShowContextMenu::Question question =
      client_.Received()[0].question();
  EXPECT_EQ(40, question.x());
  EXPECT_EQ(60, question.y());
  ASSERT_THAT(question.commands(), SizeIs(6));
  EXPECT_EQ(1, question.commands(0).id());
  EXPECT_EQ("back", question.commands(0).name());
}

TEST_F(MenuTest, MenuOpensWholeWhenNobodyAnswersForTheWindow) {
  UserOpensMenu(2);
  host_.sequence.Run();
  EXPECT_EQ(QuestionOutcome::kNobodyAnswers, menu_->outcome);
  EXPECT_FALSE(menu_->is_clients);
  EXPECT_THAT(menu_->commands, ElementsAre("back", "forward", "reload", "copy",
                                           "paste", "print"));
}

TEST_F(MenuTest, ClientLeavesCommandsOut) {
  UserOpensMenu(1);
  Answer(false, {2, 4, 99});
  EXPECT_EQ(QuestionOutcome::kAnswered, menu_->outcome);
  EXPECT_THAT(menu_->commands, ElementsAre("back", "reload", "paste", "print"));
}

TEST_F(MenuTest, ClientShowsAMenuOfItsOwn) {
  UserOpensMenu(1);
  Answer(true, {});
  EXPECT_TRUE(menu_->is_clients);
  EXPECT_THAT(menu_->commands, IsEmpty());
}

TEST_F(MenuTest, DesktopOpensTheRestUnlessTheClientShowsAMenu) {
  UserOpensMenu(1);
  Answer(true, {});
  EXPECT_THAT(host_.windows.done_for_user(), IsEmpty());
  UserOpensMenu(1);
  Answer(false, {1, 2, 3});
  EXPECT_THAT(host_.windows.done_for_user(),
              ElementsAre("1 menu at 40,60: copy paste print"));
}

TEST_F(MenuTest, WishOfTheUserAtTheDesktopIsAskedAbout) {
  host_.windows.WishMenu(1, 7, 8);
  host_.sequence.Run();
  ASSERT_THAT(client_.Received(), SizeIs(1));
  EXPECT_EQ(7, client_.Received()[0].question().x());
  EXPECT_EQ(8, client_.Received()[0].question().y());
}

TEST_F(MenuTest, WindowThatClosedMeanwhileIsAnError) {
  UserOpensMenu(1);
  host_.windows.Lose(1);
  Answer(false, {});
  EXPECT_EQ(absl::NotFoundError("No window 1."), menu_.status());
}

TEST_F(MenuTest, UnknownWindowIsAnError) {
  UserOpensMenu(7);
  EXPECT_EQ(absl::NotFoundError("No window 7."), menu_.status());
}

}  // namespace
}  // namespace window_host
