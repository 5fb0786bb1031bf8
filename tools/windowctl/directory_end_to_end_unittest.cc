// Finding, opening and driving windows by short commands, between the real host
// and the real client.

#include <signal.h>

#include <fstream>
#include <optional>
#include <string>
#include <vector>

#include "absl/strings/str_cat.h"
#include "absl/strings/str_split.h"
#include "absl/time/clock.h"
#include "absl/time/time.h"
#include "core/common/rpc/loop/loop.h"
#include "core/common/rpc/transport/client.h"
#include "core/common/rpc/transport/server.h"
#include "core/common/rpc/transport/testing/lab.h"
#include "core/common/rpc/transport/wire/rpc_status.h"
#include "gmock/gmock.h"
#include "gtest/gtest.h"
#include "rpc/browser/browser_window.rpc.h"
#include "rpc/directory/window_directory.rpc.h"
#include "tools/rpcctl/exit_code.h"
#include "tools/rpcctl/json.h"
#include "tools/windowctl/end_to_end_test_support.h"

namespace windowctl {
namespace {

using ::testing::ContainsRegex;
using ::testing::HasSubstr;
using ::testing::MatchesRegex;
using ::testing::Not;
using ::testing::SizeIs;
using ::testing::StartsWith;

class DirectoryTest : public EndToEndTest {
 protected:
  // Expects success, and returns what the command prints.
  std::string Print(const std::vector<std::string>& words) const {
    const Process::Result result = RunClient(words);
    EXPECT_EQ(kSuccess, result.exit_code);
    EXPECT_EQ("", result.errors);
    return result.output;
  }
};

TEST_F(DirectoryTest, ListIsATableOfTheWindows) {
  StartHost();
  Print({"maximize", "1"});
  Print({"hide", "2"});
  Print({"set-title", "3", "title=In \x1b[2J\u202e box"});
  EXPECT_EQ(
      "ID  STATE      ACTIVE  BOUNDS             TITLE\n"
      " 1  maximized          1920x1000 at 0,32  Window 1\n"
      " 2  hidden             1024x700 at 32,64  Window 2\n"
      " 3  normal     yes     1024x700 at 64,96  In \\x1b[2J\\u202e box\n",
      Print({"list"}));
  Print({"minimize", "1"});
  Print({"enter-full-screen", "3"});
  EXPECT_THAT(Print({"list"}), ContainsRegex(" 1  minimized  .*\n 2 .*\n"
                                             " 3  full screen  yes  "));
}

TEST_F(DirectoryTest, ListShowsTheBeginningOfALongTitle) {
  StartHost({"--windows=1"});
  Print({"set-title", "1", "title=" + std::string(81, 'x')});
  EXPECT_THAT(Print({"list"}), HasSubstr(std::string(75, 'x') + "[...]\n"));
}

TEST_F(DirectoryTest, ListAsJsonHasALineForEachWindow) {
  StartHost({"--windows=2"});
  Print({"set-title", "1", "title=a\x1b\u202e"});
  EXPECT_EQ(R"({"browserId":{"value":"1"},"title":"a\u001b\u202e",)"
            R"("state":"STATE_NORMAL","visible":true,"active":false,)"
            R"("bounds":{"x":0,"y":32,"width":1024,"height":700}})"
            "\n"
            R"({"browserId":{"value":"2"},"title":"Window 2",)"
            R"("state":"STATE_NORMAL","visible":true,"active":true,)"
            R"("bounds":{"x":32,"y":64,"width":1024,"height":700}})"
            "\n",
            Print({"list", "--json"}));
}

TEST_F(DirectoryTest, ListOfManyWindowsIsWhole) {
  StartHost({"--windows=300"});
  const std::vector<std::string> lines =
      absl::StrSplit(Print({"list", "--json"}), '\n', absl::SkipEmpty());
  ASSERT_THAT(lines, SizeIs(300));
  for (int i = 0; i < 300; ++i) {
    EXPECT_THAT(lines[i],
                HasSubstr(absl::StrCat("{\"value\":\"", i + 1, "\"}")));
  }
}

TEST_F(DirectoryTest, ListOfNoWindowsHasItsHeadings) {
  StartHost({"--windows=0"});
  EXPECT_EQ("ID  STATE  ACTIVE  BOUNDS  TITLE\n", Print({"list"}));
  EXPECT_EQ("", Print({"list", "--json"}));
}

TEST_F(DirectoryTest, OpenPrintsTheIdOfTheNewWindow) {
  StartHost();
  EXPECT_EQ("4\n", Print({"open", "https://example.org/?a=b"}));
  EXPECT_EQ("5\n", Print({"open"}));
  EXPECT_EQ(R"({"browserId":{"value":"6"},"title":"about:blank",)"
            R"("state":"STATE_NORMAL","visible":true,"active":true,)"
            R"("bounds":{"x":-5,"y":192,"width":800,"height":700}})"
            "\n",
            Print({"open", "about:blank", "x=-5", "width=800", "--json"}));
  EXPECT_EQ("\"https://example.org/?a=b\"\n", Print({"get-title", "4"}));
}

TEST_F(DirectoryTest, HostRefusesWhatItCannotOpen) {
  StartHost({"--windows=2", "--max-windows=3"});
  const Process::Result result = RunClient({"open", "example.org"});
  EXPECT_EQ(kCallFailed, result.exit_code);
  EXPECT_EQ(
      "windowctl: INVALID_ARGUMENT: The URL is not absolute: it needs a "
      "scheme, as in https://example.org/.\n",
      result.errors);
  EXPECT_EQ("3\n", Print({"open"}));
  EXPECT_EQ("windowctl: RESOURCE_EXHAUSTED: max_windows, 3, are open\n",
            RunClient({"open"}).errors);
  Print({"close", "1"});
  EXPECT_EQ("4\n", Print({"open"}));
}

TEST_F(DirectoryTest, HostRefusesAUrlThatIsNotUtf8) {
  StartHost();
  rpc::loop::Loop loop;
  auto connected = rpc::transport::Client::OpenSocket(socket_);
  ASSERT_TRUE(connected.ok());
  rpc::transport::RawPeer peer(loop, *std::move(connected));
  peer.SendHello();
  ASSERT_TRUE(peer.Receive()->has_welcome());
  rpc::transport::CallFrame call;
  call.set_call_id(1);
  call.set_method_id(peer.IdOf("OpenWindow"));
  call.set_request(
      "\x0a\x03"
      "a:\xff");
  peer.Send(rpc::transport::Frame::kCall, call);
  const auto reply = peer.Receive();
  ASSERT_TRUE(reply && reply->has_reply());
  EXPECT_EQ(absl::StatusCode::kInvalidArgument,
            rpc::transport::FromWire(reply->reply().status()).code());
}

TEST_F(DirectoryTest, HostRecordsWhoOpensWindows) {
  StartHost();
  Print({"open", "about:blank"});
  EXPECT_THAT(StopHost().errors,
              ContainsRegex("windowctl \\(pid [0-9]+\\): OpenWindow \\{url: "
                            "\"about:blank\"\\} OK \\{browser_id"));
}

TEST_F(DirectoryTest, WatchOfAllSaysWhichWindowsOpenAndClose) {
  StartHost();
  Process& watcher = StartClient({"watch", "--all"});
  Print({"open", "about:blank"});
  EXPECT_EQ(R"({"opened":{"window":{"browserId":{"value":"4"},)"
            R"("title":"about:blank","state":"STATE_NORMAL","visible":true,)"
            R"("active":true,"bounds":{"x":96,"y":128,"width":1024,)"
            R"("height":700}}}})",
            watcher.ReadLine());
  host_->Write("close 2\n");
  EXPECT_EQ(R"({"closed":{"browserId":{"value":"2"},)"
            R"("reason":"WINDOW_CLOSE_REASON_USER","title":"Window 2"}})",
            watcher.ReadLine());
  Print({"close", "4"});
  EXPECT_THAT(watcher.ReadLine(), StartsWith(R"({"closed":{"browserId":{"va)"));
  watcher.Signal(SIGINT);
  const Process::Result result = watcher.Wait();
  EXPECT_EQ(kSuccess, result.exit_code);
  EXPECT_EQ("", result.output);
  EXPECT_EQ("", result.errors);
}

TEST_F(DirectoryTest, WatchOfAllEndsWithTheHost) {
  StartHost({"--windows=1"});
  Process& watcher = StartClient({"watch", "--all"});
  EXPECT_EQ(0, StopHost().exit_code);
  EXPECT_THAT(watcher.ReadLine(), HasSubstr("WINDOW_CLOSE_REASON_SHUTDOWN"));
  EXPECT_EQ(kNoConnection, watcher.Wait().exit_code);
}

TEST_F(DirectoryTest, WatchOfAllGoesOnWhenTheHostHasComeAgain) {
  StartHost();
  Process& watcher = StartClient({"watch", "--all", "--reconnect"});
  StopHost(SIGKILL);
  EXPECT_THAT(watcher.ReadErrorLine(), StartsWith("windowctl: UNAVAILABLE: "));
  StartHost();
  std::string line;
  do {
    line = watcher.ReadErrorLine();
  } while (line.find("UNAVAILABLE") != line.npos);
  EXPECT_THAT(line, StartsWith("windowctl: subscribed again; events from "));
  Print({"open"});
  EXPECT_THAT(watcher.ReadLine(), StartsWith(R"({"opened":{"window":)"));
  Print({"close", "1"});
  EXPECT_THAT(watcher.ReadLine(), StartsWith(R"({"closed":{"browserId")"));
  watcher.Signal(SIGINT);
  EXPECT_EQ(kSuccess, watcher.Wait().exit_code);
}

// The time in a line of a watch, in UTC.
absl::Time TimeIn(const std::string& line) {
  absl::Time time;
  std::string fault;
  constexpr char kBegin[] = R"({"time":")";
  EXPECT_THAT(line, StartsWith(kBegin));
  const std::string text = line.substr(sizeof(kBegin) - 1, 27);
  EXPECT_THAT(text, MatchesRegex("[0-9-]{10}T[0-9:]{8}\\.[0-9]{6}Z"));
  EXPECT_TRUE(absl::ParseTime(absl::RFC3339_full, text, &time, &fault))
      << fault;
  return time;
}

TEST_F(DirectoryTest, TimestampsSayWhenEachEventHasCome) {
  const struct {
    std::vector<std::string> words;
    const char* event;
  } watches[] = {
      {{"watch", "1", "--timestamps"}, R"(Z","event":{"browserId":{"value")"},
      {{"watch", "--all", "--timestamps"}, R"(Z","event":{"closed":{"bro)"},
      {{"watch", "1", "--reconnect", "--timestamps"},
       R"(Z","event":{"browserId":{"value")"},
  };
  for (const auto& [words, event] : watches) {
    StartHost();
    Process& watcher = StartClient(words);
    const absl::Time before = absl::Now();
    Print({"close", "1"});
    const std::string line = watcher.ReadLine();
    const absl::Time time = TimeIn(line);
    // Printed in microseconds.
    EXPECT_LE(before - absl::Microseconds(1), time);
    EXPECT_LE(time, absl::Now());
    EXPECT_THAT(line, HasSubstr(event));
    EXPECT_EQ('}', line.back());
    watcher.Signal(SIGINT);
    EXPECT_EQ(kSuccess, watcher.Wait().exit_code);
    StopHost();
  }
}

TEST_F(DirectoryTest, HostWithoutADirectoryIsAFailedCall) {
  rpc::BrowserWindowRpc windows;
  const std::vector<std::string> cases[] = {
      {"list"}, {"open"}, {"watch", "--all"}};
  for (const auto& words : cases) {
    rpc::loop::Loop loop;
    rpc::transport::Server server(loop);
    server.AddService(&windows);
    ASSERT_TRUE(server.Listen(socket_).ok());
    Process client(ClientWords(words));
    EXPECT_TRUE(loop.RunUntil([&] {
      return server.counters().connections_accepted > 0 &&
             server.counters().connections_now == 0;
    }));
    const Process::Result result = client.Wait();
    EXPECT_EQ(kCallFailed, result.exit_code) << words[0];
    EXPECT_EQ("", result.output);
    EXPECT_THAT(result.errors,
                StartsWith("windowctl: UNIMPLEMENTED: the server has no "
                           "service rpc.directory.WindowDirectory"));
  }
}

// Says the same part of a list again and again, or parts without windows.
class FalseDirectory final : public rpc::directory::WindowDirectoryRpc {
 public:
  explicit FalseDirectory(bool has_window) : has_window_(has_window) {}

  void ListWindows(google::protobuf::RpcController*,
                   const rpc::directory::ListWindowsRequest*,
                   rpc::directory::WindowList* list,
                   google::protobuf::Closure* done) override {
    if (has_window_)
      list->add_windows()->mutable_browser_id()->set_value(1);
    list->set_more(true);
    done->Run();
  }

 private:
  const bool has_window_;
};

TEST_F(DirectoryTest, ListThatDoesNotGoOnIsAFailedCall) {
  for (const bool has_window : {true, false}) {
    rpc::loop::Loop loop;
    FalseDirectory directory(has_window);
    rpc::transport::Server server(loop);
    server.AddService(&directory);
    ASSERT_TRUE(server.Listen(socket_).ok());
    Process client(ClientWords({"list"}));
    EXPECT_TRUE(loop.RunUntil([&] {
      return server.counters().connections_accepted > 0 &&
             server.counters().connections_now == 0;
    }));
    const Process::Result result = client.Wait();
    EXPECT_EQ(kCallFailed, result.exit_code);
    EXPECT_EQ(has_window
                  ? "windowctl: INTERNAL: the host's list is not in order\n"
                  : "windowctl: INTERNAL: the host's list does not go on\n",
              result.errors);
  }
}

TEST_F(DirectoryTest, MethodsAreCommands) {
  StartHost();
  EXPECT_EQ("", Print({"maximize", "1"}));
  EXPECT_EQ("true\n", Print({"is-maximized", "1"}));
  EXPECT_EQ("", Print({"restore", "1"}));
  EXPECT_EQ("", Print({"set-bounds", "1", "bounds.x=0", "bounds.y=40",
                       "bounds.width=800", "bounds.height=600"}));
  EXPECT_EQ("{\"x\":0,\"y\":40,\"width\":800,\"height\":600}\n",
            Print({"get-bounds", "1"}));
  EXPECT_EQ("", Print({"set-title", "1", "title=Inbox"}));
  EXPECT_EQ("\"Inbox\"\n", Print({"get-title", "1"}));
  EXPECT_EQ("", Print({"set-window-button-visible", "1", "kind=close",
                       "visible=false"}));
  EXPECT_EQ("false\n", Print({"is-window-button-visible", "1", "kind=close"}));
  const Process::Result result = RunClient({"show", "7"});
  EXPECT_EQ(kCallFailed, result.exit_code);
  EXPECT_EQ("windowctl: NOT_FOUND: No window 7.\n", result.errors);
}

TEST_F(DirectoryTest, EachUnaryMethodIsACommandWithAHelpOfItsOwn) {
  const std::string general = Print({"--help"});
  int commands = 0;
  for (const auto line : absl::StrSplit(Print({"methods"}), '\n')) {
    const std::string method(line.substr(0, line.find(' ')));
    if (line.find(" unary") == line.npos)
      continue;
    ++commands;
    std::string name;
    for (const char c : method) {
      if (c >= 'A' && c <= 'Z')
        name += name.empty() ? "" : "-";
      name += static_cast<char>(c | 0x20);
    }
    EXPECT_THAT(general, HasSubstr("\n  " + name + " ID"));
    EXPECT_THAT(Print({name, "--help"}),
                ContainsRegex("^windowctl " + name +
                              ": [a-z].*\n\nUsage: "
                              "windowctl \\[FLAG\\.\\.\\.\\] " +
                              name + " ID"));
  }
  EXPECT_EQ(37, commands);
}

TEST_F(DirectoryTest, HelpOfACommandIsAboutThatOneOnly) {
  for (const char* command : {"list", "open", "watch", "answer", "methods",
                              "describe", "call", "status"}) {
    const std::string help = Print({command, "--help"});
    EXPECT_THAT(help, StartsWith(absl::StrCat("windowctl ", command, ": ")));
    EXPECT_THAT(help, Not(HasSubstr("\nCommands:\n")));
  }
  EXPECT_THAT(Print({"set-title", "--help"}),
              HasSubstr("\n  title             string: The text. Absent: the "
                        "empty title.\n"));
  EXPECT_THAT(Print({"watch", "--help"}), HasSubstr("\n  --reconnect   waits"));
  EXPECT_THAT(Print({"list", "--help"}), Not(HasSubstr("--reconnect")));
}

TEST_F(DirectoryTest, VersionOfEachProgramIsPrinted) {
  EXPECT_THAT(Print({"--version"}),
              MatchesRegex("windowctl [0-9]+\\.[0-9]+\\.[0-9]+\n"));
  EXPECT_THAT(RunToEnd(HostWords({"--version"})).output,
              MatchesRegex("window_host [0-9]+\\.[0-9]+\\.[0-9]+\n"));
}

TEST_F(DirectoryTest, MethodIsDescribedWithItsFieldsAndComments) {
  const std::string text = Print({"describe", "SetBounds"});
  EXPECT_EQ(
      R"(rpc.BrowserWindow.SetBounds: unary

Moves and resizes the window. A window that is not normal stays so: it gets the
bounds when it becomes normal again.

Request rpc.WindowBounds: Where to move a window to and how large to make it.
  browser_id        BrowserId: The window. Required.
  browser_id.value  int64: The number that the browser gave to the window when
                    it opened it. Positive for every real window; numbers are
                    not used again while the browser runs.
  bounds            rpc.Rect: The new bounds. Width and height are treated as in
                    WindowSize, but zero where absent. Required.
  bounds.x          int32: The left edge in DIP. Absent: 0.
  bounds.y          int32: The top edge in DIP. Absent: 0.
  bounds.width      int32: The extent to the right in DIP. Absent: 0.
  bounds.height     int32: The extent downwards in DIP. Absent: 0.

Response google.protobuf.Empty
)",
      text);
  EXPECT_THAT(Print({"describe", "OpenWindow"}),
              HasSubstr("\n                    maximized: It fills the work "
                        "area of its display.\n"));
  EXPECT_THAT(Print({"describe", "OnCloseWindow"}),
              StartsWith("rpc.BrowserWindow.OnCloseWindow: callback stream\n"));
  EXPECT_THAT(Print({"describe", "rpc.Rect"}),
              StartsWith("message Rect {\n  int32 x = 1;\n"));
}

TEST_F(DirectoryTest, RequestIsReadFromAFileOrStandardInput) {
  StartHost();
  const std::string file = folder_.File("request.json");
  std::ofstream(file) << "{\"value\": 2}\n";
  EXPECT_EQ("\"Window 2\"\n", Print({"call", "GetTitle", "@" + file}));
  Process client(ClientWords({"call", "GetTitle", "-"}));
  client.Write("{\"value\":");
  client.Write(" 3}\n");
  client.CloseInput();
  EXPECT_EQ("\"Window 3\"\n", client.Wait().output);
  EXPECT_EQ("\"Window 1\"\n", Print({"call", "GetTitle", "value=1"}));
}

TEST_F(DirectoryTest, FixedAnswerIsReadFromAFile) {
  StartHost();
  const std::string file = folder_.File("answer.json");
  std::ofstream(file) << R"({"allowed": false})";
  StartClient({"answer", "OnCloseWindow", "1", "--with", "@" + file});
  EXPECT_EQ("false\n", Print({"close", "1"}));
}

}  // namespace
}  // namespace windowctl
