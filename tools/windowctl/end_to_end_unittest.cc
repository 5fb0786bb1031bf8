// Calls from the real client to the real host.

#include <signal.h>
#include <unistd.h>

#include <string>
#include <vector>

#include "absl/strings/str_cat.h"
#include "absl/strings/str_split.h"
#include "gmock/gmock.h"
#include "gtest/gtest.h"
#include "tools/rpcctl/exit_code.h"
#include "tools/windowctl/end_to_end_test_support.h"

namespace windowctl {
namespace {

using ::testing::ContainsRegex;
using ::testing::HasSubstr;
using ::testing::StartsWith;

TEST_F(EndToEndTest, HelpIsNoFailure) {
  for (const char* flag : {"-h", "--help"}) {
    const Process::Result client = RunClient({flag});
    EXPECT_EQ(kSuccess, client.exit_code);
    EXPECT_THAT(client.output, HasSubstr("\n  call METHOD REQUEST "));
    EXPECT_EQ("", client.errors);

    const Process::Result host = RunToEnd(HostWords({flag}));
    EXPECT_EQ(0, host.exit_code);
    EXPECT_THAT(host.output, HasSubstr("--windows N"));
    EXPECT_THAT(host.output, HasSubstr("--max-streams N"));
    EXPECT_EQ("", host.errors);
  }
}

TEST_F(EndToEndTest, MethodsAreListedWithoutAHost) {
  const Process::Result result = RunClient({"methods"});
  EXPECT_EQ(kSuccess, result.exit_code);
  EXPECT_THAT(result.output, StartsWith("Show "));
  EXPECT_EQ(
      42u,
      std::vector<std::string>(absl::StrSplit(result.output, '\n')).size());
  EXPECT_EQ(kUsage, RunClient({"methods", "all"}).exit_code);
}

TEST_F(EndToEndTest, CallPrintsTheResponse) {
  StartHost();
  EXPECT_EQ("{}\n", Call("Maximize", R"({"value": 1})"));
  EXPECT_EQ("true\n", Call("IsMaximized", R"({"value": 1})"));
  EXPECT_EQ("false\n", Call("IsMaximized", R"({"value": 2})"));
  EXPECT_EQ("{\"x\":0,\"y\":32,\"width\":1920,\"height\":1000}\n",
            Call("GetBounds", R"({"value": 1})"));
  EXPECT_EQ("\"Window 1\"\n", Call("GetTitle", R"({"value": 1})"));
}

TEST_F(EndToEndTest, FailedCallSaysCodeAndText) {
  StartHost({"--windows=1"});
  const Process::Result result = RunClient({"call", "Show", R"({"value": 7})"});
  EXPECT_EQ(kCallFailed, result.exit_code);
  EXPECT_EQ("", result.output);
  EXPECT_EQ("windowctl: NOT_FOUND: No window 7.\n", result.errors);
}

TEST_F(EndToEndTest, WrongUsageSaysWhatIsWrongBeforeConnecting) {
  const struct {
    std::vector<std::string> words;
    const char* fault;
  } cases[] = {
      {{}, "A command is missing. 'windowctl --help' says more."},
      {{"cal"}, "There is no command 'cal'. Did you mean call?"},
      {{"call"}, "'call' takes a method and its request."},
      {{"call", "Show"}, "'call' takes a method and its request."},
      {{"call", "Show", "{}", "{}"}, "A request is one word of JSON, or"},
      {{"call", "Show", "valeu=1"}, "has no field valeu. Did you mean value?"},
      {{"call", "Shwo", "{}"}, "There is no method Shwo. Did you mean Show?"},
      {{"call", "Show", "{"}, "The JSON does not fit: Unexpected end"},
      {{"call", "Show", R"({"valeu": 1})"}, "valeu: Cannot find field."},
      {{"call", "OnCloseWindow", "{}"}, "'windowctl answer OnCloseWindow ID"},
      {{"call", "WhenBrowserWindowClosed", "{}"}, "'windowctl watch ID...'"},
      {{"--tmeout", "1"}, "There is no flag --tmeout. Did you mean --timeout?"},
      {{"--timeout", "soon"}, "The value of --timeout, 'soon', is not"},
      {{"watch", "1", "--with", "{}"}, "The flag --with is for 'answer' only."},
      {{"call", "Show", "{}", "--with={}"}, "--with is for 'answer' only."},
      {{"methods", "--exec", "true"}, "The flag --exec is for 'answer' only."},
      {{"call", "Show", "{}", "--json"},
       "The flag --json is for 'list' and 'open' and 'status' only."},
      {{"watch", "1", "--all"}, "'watch' takes ids of windows, or --all."},
      {{"list", "1"}, "'list' takes no arguments."},
      {{"open", "https://a/", "b"}, "'b' is no FIELD=VALUE."},
      {{"open", "withd=1"}, "has no field withd. Did you mean width?"},
      {{"maximise", "1"}, "There is no command 'maximise'. Did you mean maxi"},
      {{"maximize"}, "'maximize' takes a window's id."},
      {{"maximize", "first"}, "'first' is not a window's id."},
      {{"maximize", "1", "value=2"}, "value: it is set twice."},
      {{"set-title", "1", "titel=a"}, "Did you mean title?"},
      {{"describe", "SetTitel"}, "The files of the contract declare no SetTit"},
      {{"call", "Show", "@/nowhere"}, "Can't open /nowhere: No such file"},
      {{"answer", "OnCloseWindow", "1", "--with", "@/nowhere"}, "Can't open"},
  };
  for (const auto& [words, fault] : cases) {
    const Process::Result result = RunClient(words);
    EXPECT_EQ(kUsage, result.exit_code) << fault;
    EXPECT_EQ("", result.output);
    EXPECT_THAT(result.errors, StartsWith("windowctl: "));
    EXPECT_THAT(result.errors, HasSubstr(fault));
  }
}

TEST_F(EndToEndTest, AbsentHostIsSaidWithItsSocket) {
  const Process::Result result = RunClient({"call", "Show", "{}"});
  EXPECT_EQ(kNoConnection, result.exit_code);
  EXPECT_EQ("", result.output);
  EXPECT_THAT(result.errors, HasSubstr(socket_));
  EXPECT_THAT(result.errors, HasSubstr("Is window_host running"));
}

TEST_F(EndToEndTest, HostThatHasGoneIsSaidWithItsSocket) {
  StartHost();
  StopHost(SIGKILL);
  const Process::Result result = RunClient({"call", "Show", "{}"});
  EXPECT_EQ(kNoConnection, result.exit_code);
  EXPECT_THAT(result.errors, HasSubstr("nobody listens at " + socket_));
  EXPECT_THAT(result.errors, HasSubstr("Is window_host running"));
}

TEST_F(EndToEndTest, HostThatRefusesIsNotTakenForAbsent) {
  StartHost({"--max-connections=1"});
  StartClient({"watch", "1"});
  const Process::Result result = RunClient({"call", "Show", "{}"});
  EXPECT_EQ(kNoConnection, result.exit_code);
  EXPECT_EQ("", result.output);
  EXPECT_EQ("windowctl: No connection: max_connections, 1, are open\n",
            result.errors);
}

TEST_F(EndToEndTest, SocketInAFolderOfAnotherUserIsNotTrusted) {
  constexpr uid_t kNobody = 65534;
  if (chown(folder_.path().c_str(), kNobody, -1) != 0)
    GTEST_SKIP() << "only root can give a folder away";
  const Process::Result client = RunClient({"call", "Show", "{}"});
  EXPECT_EQ(kNoConnection, client.exit_code);
  EXPECT_THAT(client.errors, HasSubstr("belongs to another user"));
  const Process::Result host = RunToEnd(HostWords({}));
  EXPECT_EQ(1, host.exit_code);
  EXPECT_THAT(host.errors, HasSubstr("belongs to another user"));
}

TEST_F(EndToEndTest, HostRecordsEachCallWithItsDuration) {
  StartHost();
  Call("Show", R"({"value": 1})");
  RunClient({"call", "Show", R"({"value": 7})"});
  const std::string records = StopHost().errors;
  EXPECT_THAT(records, ContainsRegex("windowctl \\(pid [0-9]+\\): Show "
                                     "\\{value: 1\\} OK \\{\\} in [0-9.]+"));
  EXPECT_THAT(records, HasSubstr("NOT_FOUND: No window 7."));
}

TEST_F(EndToEndTest, HostReplacesTheSocketOfADeadOne) {
  StartHost();
  EXPECT_EQ(-SIGKILL, StopHost(SIGKILL).exit_code);
  EXPECT_EQ(0, access(socket_.c_str(), F_OK));
  StartHost();
  EXPECT_EQ("true\n", Call("IsVisible", R"({"value": 1})"));
}

TEST_F(EndToEndTest, SecondHostAtTheSameSocketIsRefused) {
  StartHost();
  const Process::Result second = RunToEnd(HostWords({}));
  EXPECT_EQ(1, second.exit_code);
  EXPECT_THAT(second.errors, HasSubstr(socket_));
  EXPECT_EQ("true\n", Call("IsVisible", R"({"value": 1})"));
}

TEST_F(EndToEndTest, HostRefusesWrongUsage) {
  const struct {
    std::vector<std::string> flags;
    const char* fault;
  } cases[] = {
      {{"--windows", "many"}, "The value of --windows, 'many', is not"},
      {{"--windows", "-1"}, "is not a whole number from 0 to 1000"},
      {{"--window=1"}, "There is no flag --window. Did you mean --windows?"},
      {{"--answer-timeout=0"}, "The value of --answer-timeout, '0', is not"},
      {{"--max-calls=0"}, "'0', is not a whole number from 1 to 1000000."},
      {{"--max-outbox-bytes=5000"}, "is above --max-outbox-bytes, 5000."},
      {{"now"}, "There are only flags."},
  };
  for (const auto& [flags, fault] : cases) {
    const Process::Result result = RunToEnd(HostWords(flags));
    EXPECT_EQ(2, result.exit_code) << fault;
    EXPECT_EQ("", result.output);
    EXPECT_THAT(result.errors, StartsWith("window_host: "));
    EXPECT_THAT(result.errors, HasSubstr(fault));
  }
}

TEST_F(EndToEndTest, HostOpensAsManyWindowsAsAskedFor) {
  StartHost({"--windows", "2"});
  host_->Write("list\n");
  EXPECT_THAT(host_->ReadLine(), StartsWith("Window 2, \"Window 2\": active"));
  EXPECT_THAT(host_->ReadLine(), StartsWith("Window 1, \"Window 1\": normal"));
  EXPECT_EQ("", StopHost().output);
}

TEST_F(EndToEndTest, HostRunsOnWhenItsInputEnds) {
  StartHost();
  host_->Write("close 1");
  host_->CloseInput();
  EXPECT_EQ("Window 1 is closed: nobody answers for it.", host_->ReadLine());
  EXPECT_EQ("true\n", Call("IsVisible", R"({"value": 2})"));
}

// Where it takes the place of its output, the loop would take what is printed.
TEST_F(EndToEndTest, OutputThatIsClosedIsAFailure) {
  StartHost();
  std::vector<std::string> words = ClientWords({"get-title", "1"});
  words.insert(words.begin(), {"/bin/sh", "-c", "exec \"$0\" \"$@\" >&-"});
  const Process::Result result = RunToEnd(words);
  EXPECT_EQ(kCallFailed, result.exit_code);
  EXPECT_EQ("windowctl: Standard output can't be written to.\n", result.errors);
}

TEST(OutputTest, OutputThatCannotBeWrittenIsAFailure) {
  const int status = system(WINDOWCTL " methods >/dev/full 2>/dev/null");
  EXPECT_EQ(WEXITSTATUS(status), 1);
}

}  // namespace
}  // namespace windowctl
