// Events and questions between the real host and the real client.

#include <signal.h>

#include <string>
#include <vector>

#include "gmock/gmock.h"
#include "gtest/gtest.h"
#include "tools/rpcctl/exit_code.h"
#include "tools/windowctl/end_to_end_test_support.h"

namespace windowctl {
namespace {

using ::testing::EndsWith;
using ::testing::HasSubstr;
using ::testing::MatchesRegex;
using ::testing::StartsWith;

constexpr char kUserClosesWindow1[] =
    R"({"browserId":{"value":"1"},)"
    R"("question":{"reason":"WINDOW_CLOSE_REASON_USER",)"
    R"("answerWithinMs":5000}})";

constexpr char kPrompt[] =
    "windowctl: What is the answer to OnCloseWindow about window 1\\? You have "
    "[0-9]+\\.[0-9] s\\.";

using WatchTest = EndToEndTest;

TEST_F(WatchTest, EventsOfTheWatchedWindowsArePrintedUntilInterrupted) {
  for (int signal : {SIGINT, SIGTERM}) {
    StartHost();
    Process& watcher = StartClient({"watch", "1", "2"});
    host_->Write("close 1\nclose 3\n");
    EXPECT_EQ(
        R"({"browserId":{"value":"1"},"reason":"WINDOW_CLOSE_REASON_USER",)"
        R"("title":"Window 1"})",
        watcher.ReadLine());
    EXPECT_EQ("true\n", Call("Close", R"({"value": 2})"));
    EXPECT_THAT(watcher.ReadLine(),
                HasSubstr(R"("2"},"reason":"WINDOW_CLOSE_REASON_CALL")"));
    watcher.Signal(signal);
    const Process::Result result = watcher.Wait();
    EXPECT_EQ(kSuccess, result.exit_code);
    EXPECT_EQ("", result.output);
    EXPECT_EQ("", result.errors);
    EXPECT_EQ(0, StopHost().exit_code);
  }
}

TEST_F(WatchTest, EveryWatcherIsTold) {
  StartHost();
  Process& one = StartClient({"watch", "1"});
  Process& two = StartClient({"watch", "2", "1"});
  host_->Write("close 1\n");
  EXPECT_THAT(one.ReadLine(), HasSubstr(R"("value":"1")"));
  EXPECT_THAT(two.ReadLine(), HasSubstr(R"("value":"1")"));
}

TEST_F(WatchTest, HostThatStopsClosesItsWindowsAndEndsTheWatch) {
  StartHost({"--windows=1"});
  Process& watcher = StartClient({"watch", "1"});
  EXPECT_EQ(0, StopHost().exit_code);
  EXPECT_THAT(watcher.ReadLine(),
              HasSubstr(R"("reason":"WINDOW_CLOSE_REASON_SHUTDOWN")"));
  const Process::Result result = watcher.Wait();
  EXPECT_EQ(kNoConnection, result.exit_code);
  EXPECT_THAT(result.errors, StartsWith("windowctl: UNAVAILABLE: "));
}

TEST_F(WatchTest, HostThatIsKilledEndsTheWatch) {
  StartHost();
  Process& watcher = StartClient({"watch", "1"});
  StopHost(SIGKILL);
  const Process::Result result = watcher.Wait();
  EXPECT_EQ(kNoConnection, result.exit_code);
  EXPECT_EQ("", result.output);
  EXPECT_THAT(result.errors, StartsWith("windowctl: UNAVAILABLE: "));
}

// The tests ignore SIGPIPE, and so do the processes that they start, as those
// of some supervisors.
TEST_F(WatchTest, WithoutAReaderItEndsThoughItsParentIgnoresThat) {
  StartHost();
  Process& watcher = StartClient({"watch", "1"});
  watcher.CloseOutput();
  host_->Write("close 1\n");
  EXPECT_EQ(-SIGPIPE, watcher.Wait().exit_code);
}

TEST_F(WatchTest, ReconnectingItSubscribesAgainAndSaysWhatMayBeMissing) {
  StartHost();
  Process& watcher = StartClient({"watch", "1", "2", "--reconnect"});
  StopHost(SIGKILL);
  EXPECT_THAT(watcher.ReadErrorLine(), StartsWith("windowctl: UNAVAILABLE: "));
  StartHost();
  std::string line;
  do {
    line = watcher.ReadErrorLine();
  } while (line.find("UNAVAILABLE") != line.npos);
  EXPECT_THAT(line, MatchesRegex("windowctl: subscribed again; events from "
                                 "[0-9:]{8} to [0-9:]{8} may have been "
                                 "missed"));
  host_->Write("close 2\n");
  EXPECT_THAT(watcher.ReadLine(), HasSubstr(R"("value":"2")"));
  watcher.Signal(SIGINT);
  EXPECT_EQ(kSuccess, watcher.Wait().exit_code);
}

TEST_F(WatchTest, ReconnectingItWaitsForAHostThatIsNotThere) {
  Process watcher(ClientWords({"watch", "1", "--reconnect"}));
  EXPECT_EQ("windowctl: UNAVAILABLE: there is no socket at " + socket_ +
                ": is the server up?",
            watcher.ReadErrorLine());
  StartHost();
  // It may have met the host's socket before that listened.
  std::string line;
  do {
    line = watcher.ReadErrorLine();
  } while (line.find("UNAVAILABLE") != line.npos);
  EXPECT_EQ("windowctl: subscribed", line);
}

TEST_F(WatchTest, ReconnectingItCanBeInterruptedWhileThereIsNoHost) {
  for (int signal : {SIGINT, SIGTERM}) {
    Process watcher(ClientWords({"watch", "1", "--reconnect"}));
    EXPECT_THAT(watcher.ReadErrorLine(),
                StartsWith("windowctl: UNAVAILABLE: "));
    watcher.Signal(signal);
    const Process::Result result = watcher.Wait();
    EXPECT_EQ(kSuccess, result.exit_code);
    EXPECT_EQ("", result.errors);
  }
}

TEST_F(WatchTest, ReconnectingItStillFailsForAnUnknownWindow) {
  StartHost();
  const Process::Result result = RunClient({"watch", "1", "7", "--reconnect"});
  EXPECT_EQ(kCallFailed, result.exit_code);
  EXPECT_EQ("windowctl: NOT_FOUND: No window 7.\n", result.errors);
}

TEST_F(WatchTest, UnknownWindowIsAFailedCall) {
  StartHost();
  const Process::Result result = RunClient({"watch", "1", "7"});
  EXPECT_EQ(kCallFailed, result.exit_code);
  EXPECT_EQ("windowctl: NOT_FOUND: No window 7.\n", result.errors);
}

TEST_F(WatchTest, AbsentHostIsNoConnection) {
  EXPECT_EQ(kNoConnection, RunClient({"watch", "1"}).exit_code);
  EXPECT_EQ(kNoConnection,
            RunClient({"answer", "OnCloseWindow", "1"}).exit_code);
}

TEST_F(WatchTest, WrongUsageIsSaidBeforeConnecting) {
  const struct {
    std::vector<std::string> words;
    const char* fault;
  } cases[] = {
      {{"watch"}, "Name at least one window by its id."},
      {{"watch", "one"}, "'one' is not a window's id."},
      {{"watch", "--reconnect"}, "Name at least one window by its id."},
      {{"methods", "--reconnect"}, "The flag --reconnect is for 'watch' only."},
      {{"answer"}, "'answer' takes a method and the ids of windows."},
      {{"answer", "OnCloseWindow"}, "Name at least one window by its id."},
      {{"answer", "OnClosedWindow", "1"}, "Did you mean OnCloseWindow?"},
      {{"answer", "Show", "1"}, "use 'windowctl call Show REQUEST'"},
      {{"answer", "OnCloseWindow", "1", "--with", "{\"alowed\": true}"},
       "alowed: Cannot find field."},
      {{"answer", "OnCloseWindow", "1", "--with", "{}", "--exec", "true"},
       "Choose between --with and --exec."},
  };
  for (const auto& [words, fault] : cases) {
    const Process::Result result = RunClient(words);
    EXPECT_EQ(kUsage, result.exit_code) << fault;
    EXPECT_EQ("", result.output);
    EXPECT_THAT(result.errors, HasSubstr(fault));
  }
}

class AnswerTest : public EndToEndTest {
 protected:
  AnswerTest() { StartHost(); }

  // What the host's console says about the next thing that the user does.
  std::string UserDoes(const std::string& what) {
    host_->Write(what + "\n");
    return host_->ReadLine();
  }
};

TEST_F(AnswerTest, FixedAnswerRefusesClosingUntilInterrupted) {
  Process& answerer = StartClient(
      {"answer", "OnCloseWindow", "1", "--with", R"({"allowed": false})"});
  EXPECT_EQ("false\n", Call("Close", R"({"value": 1})"));
  EXPECT_THAT(answerer.ReadLine(),
              HasSubstr(R"({"reason":"WINDOW_CLOSE_REASON_CALL",)"
                        R"("answerWithinMs":5000})"));
  EXPECT_EQ("Window 1 stays open: its client does not allow that.",
            UserDoes("close 1"));
  EXPECT_EQ(kUserClosesWindow1, answerer.ReadLine());
  answerer.Signal(SIGINT);
  EXPECT_EQ(kSuccess, answerer.Wait().exit_code);
  EXPECT_EQ("Window 1 is closed: nobody answers for it.", UserDoes("close 1"));
}

TEST_F(AnswerTest, FilterAnswersEachQuestionWithTheNextLine) {
  Process& answerer = StartClient({"answer", "OnCloseWindow", "1", "2"});
  host_->Write("close 1\n");
  EXPECT_EQ(kUserClosesWindow1, answerer.ReadLine());
  answerer.Write("{\"allowed\": false}\n");
  EXPECT_EQ("Window 1 stays open: its client does not allow that.",
            host_->ReadLine());
  answerer.Write("{\"allowed\": true}\n{\"allowed\": false}\n");
  EXPECT_EQ("Window 1 is closed: its client allows that.", UserDoes("close 1"));
  EXPECT_EQ("Window 2 stays open: its client does not allow that.",
            UserDoes("close 2"));
}

TEST_F(AnswerTest, FilterEndsWhenItsInputIsUsedUp) {
  Process& answerer = StartClient({"answer", "OnCloseWindow", "1"});
  answerer.Write("{}\n");
  answerer.CloseInput();
  EXPECT_EQ("Window 1 stays open: its client does not allow that.",
            UserDoes("close 1"));
  const Process::Result result = answerer.Wait();
  EXPECT_EQ(kSuccess, result.exit_code);
  EXPECT_EQ("", result.errors);
  EXPECT_EQ("Window 1 is closed: nobody answers for it.", UserDoes("close 1"));
}

TEST_F(AnswerTest, FilterWithoutAnInputEndsAtOnce) {
  std::vector<std::string> words =
      ClientWords({"answer", "OnCloseWindow", "1"});
  words.insert(words.begin(), {"/bin/sh", "-c", "exec \"$0\" \"$@\" <&-"});
  EXPECT_EQ(kSuccess, RunToEnd(words).exit_code);
}

TEST_F(AnswerTest, CommandAnswersWithWhatItPrints) {
  StartClient({"answer", "OnCloseWindow", "1", "2", "--exec",
               R"(grep -q '"value":"1"' && echo '{"allowed": true}' ||)"
               R"( echo '{"allowed": false}')"});
  EXPECT_EQ("Window 1 is closed: its client allows that.", UserDoes("close 1"));
  EXPECT_EQ("Window 2 stays open: its client does not allow that.",
            UserDoes("close 2"));
}

TEST_F(AnswerTest, WithoutUsableAnswerTheQuestionIsDeclinedAndTheFaultSaid) {
  Process& filter = StartClient({"answer", "OnCloseWindow", "1"});
  filter.Write("nonsense\n");
  EXPECT_EQ("Window 1 is closed: its client could not answer.",
            UserDoes("close 1"));
  EXPECT_THAT(filter.ReadErrorLine(),
              StartsWith("windowctl: Not answered: The JSON does not fit"));

  Process& command =
      StartClient({"answer", "OnCloseWindow", "2", "--exec", "exit 3"});
  EXPECT_EQ("Window 2 is closed: its client could not answer.",
            UserDoes("close 2"));
  EXPECT_EQ("windowctl: Not answered: the command ended with exit code 3",
            command.ReadErrorLine());
}

TEST_F(AnswerTest, ACommandFailsThoughTheParentIgnoresItsChildren) {
  signal(SIGCHLD, SIG_IGN);
  Process& command = StartClient(
      {"answer", "OnCloseWindow", "1", "--exec", "echo {}; exit 3"});
  signal(SIGCHLD, SIG_DFL);
  EXPECT_EQ("Window 1 is closed: its client could not answer.",
            UserDoes("close 1"));
  EXPECT_EQ("windowctl: Not answered: the command ended with exit code 3",
            command.ReadErrorLine());
}

TEST_F(AnswerTest, CommandsAndMenusAreAskedAbout) {
  Process& commands =
      StartClient({"answer", "OnCanExecuteCommand", "1", "--with", "{}"});
  EXPECT_EQ("Window 1 ignores reload: its client does not allow that.",
            UserDoes("command 1 reload"));
  EXPECT_EQ(R"({"browserId":{"value":"1"},"question":)"
            R"({"command":{"id":3,"name":"reload"},"answerWithinMs":5000}})",
            commands.ReadLine());

  Process& menus = StartClient({"answer", "OnShowContextMenu", "1", "--with",
                                R"({"omittedCommandIds": [1, 2, 4, 5, 6]})"});
  EXPECT_EQ("Window 1 shows the menu [reload]: its client allows that.",
            UserDoes("menu 1 40 60"));
  EXPECT_THAT(menus.ReadLine(), HasSubstr(R"("x":40,"y":60)"));
}

TEST_F(AnswerTest, InterruptedAnswererLetsTheHostGoOnAtOnce) {
  Process& answerer = StartClient({"answer", "OnCloseWindow", "1"});
  host_->Write("close 1\n");
  EXPECT_EQ(kUserClosesWindow1, answerer.ReadLine());
  answerer.Signal(SIGINT);
  EXPECT_EQ("Window 1 is closed: its client has left.", host_->ReadLine());
  EXPECT_EQ(kSuccess, answerer.Wait().exit_code);
}

TEST_F(AnswerTest, KilledAnswererLetsTheHostGoOnAtOnce) {
  Process& answerer = StartClient({"answer", "OnCloseWindow", "1"});
  host_->Write("close 1\n");
  EXPECT_EQ(kUserClosesWindow1, answerer.ReadLine());
  answerer.Signal(SIGKILL);
  EXPECT_EQ("Window 1 is closed: its client has left.", host_->ReadLine());
}

TEST_F(AnswerTest, NewestAnswererTakesTheWindowOverAndTheHostWarns) {
  StartClient({"answer", "OnCloseWindow", "1", "--with", "{}"});
  StartClient(
      {"answer", "OnCloseWindow", "1", "--with", R"({"allowed": true})"});
  EXPECT_EQ("Window 1 is closed: its client allows that.", UserDoes("close 1"));
  EXPECT_THAT(
      StopHost().errors,
      HasSubstr("The subscriber is already associated with another stream. "
                "value: 1"));
}

TEST_F(AnswerTest, CallerThatDoesNotWaitForTheAnswerGetsItsDeadline) {
  StartClient({"answer", "OnCloseWindow", "1"});
  const Process::Result result =
      RunClient({"--timeout", "0.05", "call", "Close", R"({"value": 1})"});
  EXPECT_EQ(kCallFailed, result.exit_code);
  EXPECT_THAT(result.errors, StartsWith("windowctl: DEADLINE_EXCEEDED: "));
  EXPECT_EQ("true\n", Call("IsVisible", R"({"value": 1})"));
}

TEST_F(AnswerTest, HostDoesNotWaitForALateAnswer) {
  StopHost();
  StartHost({"--answer-timeout=0.05"});
  Process& answerer = StartClient({"answer", "OnCloseWindow", "1"});
  EXPECT_EQ("Window 1 is closed: its client did not answer in time.",
            UserDoes("close 1"));
  answerer.Write("{\"allowed\": false}\n");
  answerer.CloseInput();
  EXPECT_EQ(kSuccess, answerer.Wait().exit_code);
}

TEST_F(AnswerTest, PersonIsAskedUntilALineIsAnAnswer) {
  Process& answerer =
      StartClient({"answer", "OnCloseWindow", "1"}, Process::Terminal::kInput);
  answerer.Write("{\"allowed\": true}\n");
  EXPECT_EQ("windowctl: No question is open: that line answers nothing.",
            answerer.ReadErrorLine());

  host_->Write("close 1\n");
  EXPECT_EQ(kUserClosesWindow1, answerer.ReadLine());
  EXPECT_THAT(answerer.ReadErrorLine(), MatchesRegex(kPrompt));
  answerer.Write("{\"alowed\": false}\n");
  EXPECT_THAT(
      answerer.ReadErrorLine(),
      StartsWith("windowctl: That is no answer: The JSON does not fit"));
  // The text goes on with what would fit, up to the closing brace.
  std::string line;
  do {
    line = answerer.ReadErrorLine();
  } while (line != "" && line != "}");
  EXPECT_THAT(answerer.ReadErrorLine(), MatchesRegex(kPrompt));
  answerer.Write("{\"allowed\": false}\n");
  EXPECT_EQ("Window 1 stays open: its client does not allow that.",
            host_->ReadLine());
}

TEST_F(AnswerTest, PersonWhoAnswersTooLateIsToldSo) {
  StopHost();
  StartHost({"--answer-timeout=0.05"});
  Process& answerer =
      StartClient({"answer", "OnCloseWindow", "1"}, Process::Terminal::kInput);
  EXPECT_EQ("Window 1 is closed: its client did not answer in time.",
            UserDoes("close 1"));
  EXPECT_THAT(answerer.ReadErrorLine(), MatchesRegex(kPrompt));
  EXPECT_EQ(
      "windowctl: Not answered: it is too late, the host no longer waits for "
      "OnCloseWindow about window 1",
      answerer.ReadErrorLine());
  answerer.Write("{\"allowed\": false}\n");
  EXPECT_EQ("windowctl: No question is open: that line answers nothing.",
            answerer.ReadErrorLine());
}

// The command begins when the question has arrived, and takes longer than the
// host waits: however slow the machine is, it ends too late.
TEST_F(AnswerTest, AnswerOfACommandThatTakesTooLongIsNotSent) {
  StopHost();
  StartHost({"--answer-timeout=0.02"});
  Process& answerer = StartClient(
      {"answer", "OnCloseWindow", "1", "--exec", "sleep 0.03; echo {}"});
  EXPECT_EQ("Window 1 is closed: its client did not answer in time.",
            UserDoes("close 1"));
  EXPECT_EQ(
      "windowctl: Not answered: it is too late, the host no longer waits for "
      "OnCloseWindow about window 1",
      answerer.ReadErrorLine());
}

}  // namespace
}  // namespace windowctl
