#include "examples/window_host/app/console.h"

#include "absl/strings/str_cat.h"
#include "examples/window_host/service/host_test_support.h"
#include "gmock/gmock.h"
#include "gtest/gtest.h"

namespace window_host {
namespace {

using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::StartsWith;

class ConsoleTest : public ::testing::Test {
 protected:
  ConsoleTest() {
    host_.windows.Open();
    host_.windows.Open();
  }

  // What is printed for the line until nothing more happens.
  std::vector<std::string> Obey(std::string_view line) {
    printed_.clear();
    console_.Obey(line);
    host_.sequence.Run();
    return printed_;
  }

  TestHost host_;
  std::vector<std::string> printed_;
  Console console_{
      host_.windows, host_.browser,
      [this](const std::string& line) { printed_.push_back(line); }};
};

TEST_F(ConsoleTest, ListDescribesTheWindowsFromFrontToBack) {
  host_.Change(2, WindowAction::kMaximize);
  host_.Change(2, WindowAction::kFocus);
  host_.Change(1, WindowAction::kHide);
  EXPECT_THAT(
      Obey("list"),
      ElementsAre("Window 2, \"Window 2\": active, maximized, 1920x1000 at "
                  "0,32, its page has the keyboard",
                  "Window 1, \"Window 1\": hidden, normal, 1024x700 at 0,32"));
}

TEST_F(ConsoleTest, ListEscapesWhatATitleWouldDoToTheTerminal) {
  rpc::WindowTitle title;
  title.set_title("\x1b[2J\nWindow 9, \u202e\u2066Gr\u00fc\u00dfe");
  host_.Change(2, title);
  Obey("close 1");
  ASSERT_EQ(1u, Obey("list").size());
  EXPECT_THAT(printed_[0],
              StartsWith("Window 2, \"\\x1b[2J\\x0aWindow 9, "
                         "\\u202e\\u2066Gr\u00fc\u00dfe\": active"));
}

TEST_F(ConsoleTest, ListShortensALongTitle) {
  rpc::WindowTitle title;
  title.set_title(std::string(4'096, 'x'));
  host_.Change(2, title);
  EXPECT_THAT(
      Obey("list").front(),
      StartsWith("Window 2, \"" + std::string(195, 'x') + "[...]\": active"));
}

TEST_F(ConsoleTest, WhatIsNotUnderstoodIsEscaped) {
  EXPECT_THAT(Obey("say \x1b[2J\u202e\xff"),
              ElementsAre("Not understood: say \\x1b[2J\\u202e\\xff. Try "
                          "help."));
  EXPECT_THAT(Obey("command 1 \x1b"),
              ElementsAre("There is no command \\x1b."));
}

TEST_F(ConsoleTest, ListSaysWhenNoWindowIsOpen) {
  Obey("close 1");
  Obey("close 2");
  EXPECT_THAT(Obey("list"), ElementsAre("No window is open."));
}

TEST_F(ConsoleTest, MinimizedWindowIsNotCalledHidden) {
  host_.Change(2, WindowAction::kMinimize);
  host_.Change(1, WindowAction::kDeactivate);
  EXPECT_THAT(Obey("list").back(), HasSubstr(": minimized, 1024x700 at 32,64"));
}

TEST_F(ConsoleTest, HelpNamesEveryCommand) {
  ASSERT_EQ(1u, Obey("help").size());
  for (const char* command :
       {"list", "close ID", "command ID NAME", "menu ID X Y", "help"}) {
    EXPECT_THAT(printed_[0], HasSubstr(command));
  }
}

TEST_F(ConsoleTest, ClosingSaysOnWhatOutcomeItRests) {
  TestStream<rpc::CloseWindow> client(*host_.service, kOnCloseWindow);
  client.AnswerFor(1);
  EXPECT_THAT(Obey("close 1"), IsEmpty());
  client.Answer({});
  host_.sequence.Run();
  EXPECT_THAT(
      printed_,
      ElementsAre("Window 1 stays open: its client does not allow that."));

  Obey("close 1");
  client.Decline();
  host_.sequence.Run();
  EXPECT_THAT(printed_,
              ElementsAre("Window 1 is closed: its client could not answer."));
  EXPECT_THAT(Obey("close 2"),
              ElementsAre("Window 2 is closed: nobody answers for it."));
  EXPECT_THAT(Obey("close 2"), ElementsAre("No window 2."));
}

TEST_F(ConsoleTest, UserCannotCloseAWindowThatIsNotClosable) {
  host_.Change(1, rpc::WindowStyleFlags());
  EXPECT_THAT(Obey("close 1"),
              ElementsAre("Window 1 stays open: its style is not closable."));
  EXPECT_TRUE(host_.IsOpen(1));
}

TEST_F(ConsoleTest, CommandSaysWhatBecameOfIt) {
  TestStream<rpc::CanExecuteCommand> client(*host_.service,
                                            kOnCanExecuteCommand);
  client.AnswerFor(1);
  Obey("command 1 reload");
  client.Answer({});
  host_.sequence.Run();
  EXPECT_THAT(
      printed_,
      ElementsAre("Window 1 ignores reload: its client does not allow that."));

  Obey("command 1 print");
  client.End();
  host_.sequence.Run();
  EXPECT_THAT(printed_,
              ElementsAre("Window 1 executes print: its client has left."));
  EXPECT_THAT(Obey("command 1 prnt"),
              ElementsAre("There is no command prnt. Did you mean print?"));
}

TEST_F(ConsoleTest, MenuSaysWhatItShows) {
  EXPECT_THAT(
      Obey("menu 1 40 60"),
      ElementsAre("Window 1 shows the menu [back, forward, reload, copy, "
                  "paste, print]: nobody answers for it."));
  EXPECT_THAT(Obey("menu 7 40 60"), ElementsAre("No window 7."));

  TestStream<rpc::ShowContextMenu> client(*host_.service, kOnShowContextMenu);
  client.AnswerFor(1);
  Obey("menu 1 40 60");
  rpc::ShowContextMenu::Response response;
  response.set_handled(true);
  client.Answer(response);
  host_.sequence.Run();
  EXPECT_THAT(printed_, ElementsAre("Window 1 shows a menu of its client's."));
}

TEST_F(ConsoleTest, LateAnswerIsCalledSo) {
  constexpr auto kPatience = std::chrono::seconds(1);
  TestHost host(kPatience);
  host.windows.Open();
  TestStream<rpc::CloseWindow> client(*host.service, kOnCloseWindow);
  client.AnswerFor(1);
  Console console(host.windows, host.browser, [this](const std::string& line) {
    printed_.push_back(line);
  });
  console.Obey("close 1");
  host.sequence.Advance(kPatience);
  EXPECT_THAT(
      printed_,
      ElementsAre("Window 1 is closed: its client did not answer in time."));
}

TEST_F(ConsoleTest, SpaceAroundWordsDoesNotMatterAndEmptyLinesDoNothing) {
  EXPECT_THAT(Obey("  close\t1 \r"),
              ElementsAre("Window 1 is closed: nobody answers for it."));
  EXPECT_THAT(Obey(""), IsEmpty());
  EXPECT_THAT(Obey(" \t"), IsEmpty());
}

TEST_F(ConsoleTest, WhatIsNotUnderstoodIsRepeated) {
  for (const char* line : {"shout", "close", "close one", "close 1 2", "list 1",
                           "help me", "command 1", "command 1 zoom in",
                           "menu 1 2", "menu 1 a b", "1 close"}) {
    EXPECT_THAT(Obey(line), ElementsAre(absl::StrCat("Not understood: ", line,
                                                     ". Try help.")));
  }
  EXPECT_EQ(2u, host_.windows.stacking().size());
}

}  // namespace
}  // namespace window_host
