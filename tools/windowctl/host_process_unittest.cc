// The real host as a process: its standard streams, its signals, and titles.

#include <google/protobuf/struct.pb.h>
#include <google/protobuf/util/json_util.h>
#include <sched.h>
#include <signal.h>
#include <unistd.h>

#include <fstream>
#include <functional>
#include <memory>
#include <optional>
#include <sstream>
#include <string>
#include <vector>

#include "absl/strings/match.h"
#include "absl/strings/str_split.h"
#include "core/common/rpc/loop/loop.h"
#include "core/common/rpc/transport/client.h"
#include "core/common/rpc/transport/client_controller.h"
#include "core/common/rpc/transport/event_subscriber.h"
#include "core/common/rpc/transport/testing/lab.h"
#include "core/common/rpc/transport/wire/rpc_status.h"
#include "gmock/gmock.h"
#include "gtest/gtest.h"
#include "rpc/browser/browser_window.pb.h"
#include "tools/rpcctl/exit_code.h"
#include "tools/windowctl/end_to_end_test_support.h"

namespace windowctl {
namespace {

using rpc::transport::Client;
using rpc::transport::ClientController;
using rpc::transport::ClientOptions;
using rpc::transport::Frame;
using rpc::transport::RawPeer;
using ::testing::Each;
using ::testing::EndsWith;
using ::testing::HasSubstr;
using ::testing::Not;
using ::testing::StartsWith;

class HostProcessTest : public EndToEndTest {
 protected:
  // More records or answers than any pipe holds.
  static constexpr int kMany = 3'000;

  void Connect(const ClientOptions& options = {}) {
    auto client = Client::Connect(loop_, socket_, options);
    ASSERT_TRUE(client.ok()) << client.status();
    client_ = *std::move(client);
  }

  // Calls a method of the host and waits, but not for ever.
  absl::Status IsVisible() {
    ClientController controller;
    controller.set_timeout(kLong);
    google::protobuf::BoolValue visible;
    Windows().IsVisible(&controller, &Window(), &visible, nullptr);
    return controller.status();
  }
  absl::Status SetTitle(const std::string& text) {
    ClientController controller;
    controller.set_timeout(kLong);
    rpc::WindowTitle title;
    *title.mutable_browser_id() = Window();
    title.set_title(text);
    google::protobuf::Empty nothing;
    Windows().SetTitle(&controller, &title, &nothing, nullptr);
    return controller.status();
  }
  rpc::BrowserWindow_Stub Windows() {
    return rpc::BrowserWindow_Stub(client_.get());
  }

  // Has the host make more records than its standard error takes.
  void MakeManyRecords() {
    for (int i = 0; i < kMany; ++i)
      ASSERT_EQ(absl::OkStatus(), IsVisible());
  }

  // Expects the host to end as it should, leaving no socket behind.
  Process::Result ExpectCleanEnd(int signal = SIGTERM) {
    Process::Result result = StopHost(signal);
    EXPECT_EQ(0, result.exit_code);
    EXPECT_NE(0, access(socket_.c_str(), F_OK));
    return result;
  }

  // What is in the file of a host that has ended, which has to be JSON.
  static std::string ReadTrace(const std::string& path) {
    std::ostringstream trace;
    trace << std::ifstream(path).rdbuf();
    google::protobuf::ListValue events;
    EXPECT_TRUE(
        google::protobuf::util::JsonStringToMessage(trace.str(), &events).ok())
        << trace.str();
    return trace.str();
  }

  static const BrowserId& Window() {
    static const BrowserId* const window = [] {
      auto* const id = new BrowserId();
      id->set_value(1);
      return id;
    }();
    return *window;
  }

  static constexpr std::chrono::seconds kLong{60};

  rpc::loop::Loop loop_;
  std::unique_ptr<Client> client_;
};

TEST_F(HostProcessTest, ServesAndStopsThoughNobodyReadsItsRecords) {
  StartHost();
  Connect();
  MakeManyRecords();
  ExpectCleanEnd();
}

TEST_F(HostProcessTest, SaysHowManyRecordsWereDropped) {
  StartHost();
  Connect();
  MakeManyRecords();
  for (int i = 0; i < 200; ++i)
    EXPECT_THAT(host_->ReadErrorLine(), HasSubstr(": IsVisible {value: 1} OK"));
  ASSERT_EQ(absl::OkStatus(), IsVisible());
  const std::string records = ExpectCleanEnd().errors;
  EXPECT_THAT(records, HasSubstr(" records were dropped: nobody read them in "
                                 "time.\n["));
}

TEST_F(HostProcessTest, ServesAndStopsThoughNobodyReadsItsAnswers) {
  StartHost();
  Process& watcher = StartClient({"watch", "1"});
  for (int i = 0; i < kMany; ++i)
    host_->Write("help\n");
  host_->Write("close 1\n");
  EXPECT_THAT(watcher.ReadLine(), HasSubstr("WINDOW_CLOSE_REASON_USER"));
  ExpectCleanEnd();
}

TEST_F(HostProcessTest, ServesAndStopsWhenTheReaderOfItsRecordsHasGone) {
  StartHost();
  host_->CloseErrors();
  Connect();
  EXPECT_EQ(absl::OkStatus(), IsVisible());
  EXPECT_EQ(absl::OkStatus(), IsVisible());
  ExpectCleanEnd();
}

TEST_F(HostProcessTest, ServesAndStopsWhenTheReaderOfItsAnswersHasGone) {
  StartHost();
  Process& watcher = StartClient({"watch", "1"});
  host_->CloseOutput();
  host_->Write("list\nlist\nclose 1\n");
  EXPECT_THAT(watcher.ReadLine(), HasSubstr("WINDOW_CLOSE_REASON_USER"));
  ExpectCleanEnd();
}

TEST_F(HostProcessTest, RecordsFewOfTheClientsThatItRefusesInALoop) {
  StartHost({"--max-connections=1"});
  Connect();
  constexpr size_t kRefused = 1'000;
  for (size_t i = 0; i < kRefused; ++i)
    EXPECT_FALSE(Client::Connect(loop_, socket_).ok());
  const std::string errors = ExpectCleanEnd().errors;
  const std::vector<std::string> records =
      absl::StrSplit(errors, '\n', absl::SkipEmpty());
  EXPECT_LT(records.size(), kRefused / 2);
  EXPECT_THAT(records.front(), HasSubstr("max_connections"));
  EXPECT_THAT(records.back(), HasSubstr("Left out "));
  EXPECT_THAT(records.back(), EndsWith(" more like this."));
}

TEST_F(HostProcessTest, RecordsALongTitleOnAShortLine) {
  StartHost();
  Connect();
  // Each byte of it takes four in a record.
  ASSERT_EQ(absl::OkStatus(), SetTitle(std::string(4'096, '\x01')));
  const std::string records = ExpectCleanEnd().errors;
  EXPECT_EQ(4'096u, records.size());
  EXPECT_THAT(records, EndsWith("[...]\n"));
}

TEST_F(HostProcessTest, EachStopSignalEndsItWithAGoodbye) {
  for (const int signal : {SIGINT, SIGQUIT, SIGTERM, SIGHUP}) {
    StartHost({"--windows=1"});
    EXPECT_EQ(0, access(socket_.c_str(), F_OK));
    Process& watcher = StartClient({"watch", "1"});
    ExpectCleanEnd(signal);
    EXPECT_THAT(watcher.ReadLine(), HasSubstr("WINDOW_CLOSE_REASON_SHUTDOWN"));
    const Process::Result result = watcher.Wait();
    EXPECT_EQ(kNoConnection, result.exit_code);
    EXPECT_EQ("windowctl: UNAVAILABLE: the server is stopping\n",
              result.errors);
  }
}

TEST_F(HostProcessTest, ATraceShowsWhatClientsDid) {
  const std::string path = folder_.File("trace.json");
  StartHost({"--trace", path});
  Call("IsVisible", R"({"value": 1})");
  EXPECT_EQ(kCallFailed,
            RunClient({"call", "Show", R"({"value": 77})"}).exit_code);
  ExpectCleanEnd();

  const std::string trace = ReadTrace(path);
  EXPECT_THAT(trace, HasSubstr("\"name\":\"windowctl (pid "));
  EXPECT_THAT(trace, HasSubstr("\"name\":\"IsVisible\""));
  EXPECT_THAT(trace, HasSubstr("\"text\":\"No window 77.\""));
}

// As if the first one had been forgotten.
TEST_F(HostProcessTest, ASecondHostOfTheSameFlagsLeavesTheTraceOfTheFirst) {
  const std::string path = folder_.File("trace.json");
  StartHost({"--trace", path});
  const Process::Result second = RunToEnd(HostWords({"--trace", path}));
  EXPECT_EQ(1, second.exit_code);
  EXPECT_EQ("window_host: another process writes the trace file " + path +
                ": choose another one\n",
            second.errors);
  Call("IsVisible", R"({"value": 1})");
  ExpectCleanEnd();
  EXPECT_THAT(ReadTrace(path), HasSubstr("\"name\":\"IsVisible\""));
}

TEST_F(HostProcessTest, ATraceThatCannotBeWrittenIsSaidAtTheStart) {
  const Process::Result result =
      RunToEnd(HostWords({"--trace", folder_.path()}));
  EXPECT_EQ(1, result.exit_code);
  EXPECT_EQ("window_host: cannot write the trace file " + folder_.path() +
                ": Is a directory\n",
            result.errors);
}

TEST_F(HostProcessTest, AHangupThatIsIgnoredAtTheStartDoesNotEndIt) {
  host_ = std::make_unique<Process>(std::vector<std::string>{
      "/usr/bin/env", "nohup", WINDOW_HOST, "--socket", socket_});
  EXPECT_EQ("window_host: ready at " + socket_, host_->ReadLine());
  host_->Signal(SIGHUP);
  EXPECT_EQ("true\n", Call("IsVisible", R"({"value": 1})"));
  ExpectCleanEnd();
}

// Again and again, since the moment in question is short.
TEST_F(HostProcessTest, ASignalAsSoonAsThereIsASocketLeavesNoFile) {
  for (int i = 0; i < 20; ++i) {
    host_ = std::make_unique<Process>(HostWords({}));
    while (access(socket_.c_str(), F_OK) != 0)
      sched_yield();
    ExpectCleanEnd();
  }
}

TEST_F(HostProcessTest, ServesAndStopsThoughTheFileOfItsRecordsMayNotGrow) {
  host_ = std::make_unique<Process>(std::vector<std::string>{
      "/bin/sh", "-c", R"(ulimit -f 1; exec "$0" --socket "$1" 2> "$2")",
      WINDOW_HOST, socket_, folder_.File("records")});
  EXPECT_EQ("window_host: ready at " + socket_, host_->ReadLine());
  Connect();
  MakeManyRecords();
  ExpectCleanEnd();
}

TEST_F(HostProcessTest, ALineOfInputThatIsTooLongIsSkippedAndAnswered) {
  StartHost({"--windows=1"});
  host_->Write(std::string(65'537, 'x') + "\nclose 1\n");
  EXPECT_EQ("A line of more than 65536 bytes is not read.", host_->ReadLine());
  EXPECT_EQ("Window 1 is closed: nobody answers for it.", host_->ReadLine());
}

TEST_F(HostProcessTest, ALineOfInputOfTheGreatestLengthIsRead) {
  StartHost({"--windows=1"});
  host_->Write("close 1" + std::string(65'529, ' ') + "\n");
  EXPECT_EQ("Window 1 is closed: nobody answers for it.", host_->ReadLine());
}

// Unescaped, it would clear the screen, and pass for another window.
TEST_F(HostProcessTest, ListEscapesTitles) {
  StartHost({"--windows=1"});
  Connect();
  ASSERT_EQ(absl::OkStatus(), SetTitle("\x1b[2J\nWindow 9, \u202e"));
  host_->Write("list\n");
  EXPECT_THAT(host_->ReadLine(),
              StartsWith(R"(Window 1, "\x1b[2J\x0aWindow 9, \u202e": active)"));
}

// The longest title still fits into the event that closes its window, for a
// client that takes the shortest frames.
TEST_F(HostProcessTest, ATitleOfTheGreatestLengthReachesAClientOfShortFrames) {
  StartHost();
  ClientOptions options;
  options.limits.max_frame_bytes = rpc::serving::kMinFrameBytes;
  Connect(options);
  std::string closed;
  absl::Status end;
  rpc::transport::EventSubscriber<rpc::BrowserWindowClosed> events(
      *client_,
      rpc::BrowserWindow::descriptor()->FindMethodByName(
          "WhenBrowserWindowClosed"),
      [&](const rpc::BrowserWindowClosed& event) { closed = event.title(); },
      [&](const absl::Status& status) { end = status; });
  events.Subscribe(Window());
  const std::string longest(4'096, 'x');
  EXPECT_EQ(absl::OkStatus(), SetTitle(longest));
  EXPECT_EQ(absl::InvalidArgumentError("The title has 4097 bytes; a window "
                                       "takes at most 4096."),
            SetTitle(longest + 'x'));
  host_->Write("close 1\n");
  EXPECT_TRUE(loop_.RunUntil([&] { return !closed.empty() || !end.ok(); }));
  EXPECT_EQ(longest, closed);
  EXPECT_EQ(absl::OkStatus(), end);
}

// What Protocol Buffers would print about it names nobody.
TEST_F(HostProcessTest, ATitleThatIsNotUtf8IsRefusedAndNothingAnonymousSaid) {
  StartHost();
  auto connected = Client::OpenSocket(socket_);
  ASSERT_TRUE(connected.ok());
  RawPeer peer(loop_, *std::move(connected));
  peer.SendHello();
  ASSERT_TRUE(peer.Receive()->has_welcome());
  rpc::transport::CallFrame call;
  call.set_call_id(1);
  call.set_method_id(peer.IdOf("SetTitle"));
  call.set_request("\x0a\x02\x08\x01\x12\x05\xff\x1b[2J");
  peer.Send(Frame::kCall, call);
  const std::optional<Frame> reply = peer.Receive();
  ASSERT_TRUE(reply && reply->has_reply());
  EXPECT_EQ(absl::StatusCode::kInvalidArgument,
            rpc::transport::FromWire(reply->reply().status()).code());
  const std::vector<std::string> records =
      absl::StrSplit(ExpectCleanEnd().errors, '\n', absl::SkipEmpty());
  EXPECT_THAT(records, Each(HasSubstr("raw (pid ")));
  EXPECT_THAT(records, Each(Not(HasSubstr("\x1b"))));
}

}  // namespace
}  // namespace windowctl
