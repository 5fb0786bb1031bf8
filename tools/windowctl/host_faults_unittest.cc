// The real host where the machine lets it down: without descriptors, without
// memory, with a full disk, with a clock that is set back; and signals whatever
// it is doing.

#include <sched.h>
#include <signal.h>
#include <string.h>
#include <sys/resource.h>
#include <unistd.h>

#include <cstdio>
#include <fstream>
#include <memory>
#include <optional>
#include <sstream>
#include <string>
#include <vector>

#include "absl/strings/str_cat.h"
#include "core/common/rpc/loop/loop.h"
#include "core/common/rpc/transport/client.h"
#include "core/common/rpc/transport/testing/lab.h"
#include "gmock/gmock.h"
#include "gtest/gtest.h"
#include "rpc/browser/browser_window.pb.h"
#include "tools/windowctl/end_to_end_test_support.h"

namespace windowctl {
namespace {

using rpc::transport::CallFrame;
using rpc::transport::Client;
using rpc::transport::Frame;
using rpc::transport::RawPeer;
using ::testing::AnyOf;
using ::testing::Contains;
using ::testing::EndsWith;
using ::testing::HasSubstr;
using ::testing::Not;
using ::testing::StartsWith;

// As it stands in a shell.
constexpr char kNoCore[] = "ulimit -c 0; ";

class HostFaultsTest : public EndToEndTest {
 protected:
  // Starts the host after these commands of a shell. What stands behind `flags`
  // there redirects it.
  std::unique_ptr<Process> HostAfter(const std::string& commands,
                                     std::vector<std::string> flags,
                                     const std::string& redirection = "") {
    std::vector<std::string> words = HostWords(std::move(flags));
    words.insert(words.begin(),
                 {"/bin/bash", "-c",
                  absl::StrCat(kNoCore, commands, "; exec \"$0\" \"$@\" ",
                               redirection)});
    return std::make_unique<Process>(words);
  }

  void AwaitReady() {
    EXPECT_EQ("window_host: ready at " + socket_, host_->ReadLine());
  }

  // A client that has not said anything yet.
  std::unique_ptr<RawPeer> Connect() {
    auto socket = Client::OpenSocket(socket_);
    EXPECT_TRUE(socket.ok()) << socket.status();
    return std::make_unique<RawPeer>(loop_, *std::move(socket));
  }
  static void AwaitWelcome(RawPeer& peer) {
    const std::optional<Frame> welcome = peer.Receive();
    ASSERT_TRUE(welcome && welcome->has_welcome());
  }
  std::unique_ptr<RawPeer> ConnectAndAwaitWelcome() {
    std::unique_ptr<RawPeer> peer = Connect();
    peer->SendHello();
    AwaitWelcome(*peer);
    return peer;
  }

  // Calls a method, with window 1 where nothing else is said, and does not wait
  // for the reply.
  static void SendCall(RawPeer& peer,
                       const std::string& method,
                       uint64_t id,
                       const std::string& request = "\x08\x01") {
    CallFrame call;
    call.set_call_id(id);
    call.set_method_id(peer.IdOf(method));
    call.set_request(request);
    peer.Send(Frame::kCall, call);
  }

  rpc::loop::Loop loop_;
};

// With one descriptor more each time, until there are enough. With the first
// ones the loader lacks them, and has its own words for it.
TEST_F(HostFaultsTest, WithoutDescriptorsItSaysSoAndDoesNotStart) {
  constexpr int kLeast = 4;
  constexpr int kEnough = 64;
  std::vector<std::string> last_words;
  for (int limit = kLeast; limit < kEnough; ++limit) {
    host_ = HostAfter(absl::StrCat("ulimit -n ", limit), {});
    const std::string ready = host_->ReadLine();
    if (!ready.empty())
      break;
    const Process::Result end = host_->Wait();
    EXPECT_NE(0, end.exit_code) << limit;
    EXPECT_THAT(end.errors,
                AnyOf(HasSubstr("Too many open files"),
                      HasSubstr("error while loading shared libraries")))
        << limit;
    last_words.push_back(end.errors);
  }
  EXPECT_THAT(last_words,
              Contains(absl::StrCat("window_host: cannot listen at ", socket_,
                                    ": Too many open files\n")));
  EXPECT_EQ(0, StopHost().exit_code);
}

TEST_F(HostFaultsTest, WithoutDescriptorsItServesOnAndLetsOthersWait) {
  host_ = HostAfter("ulimit -n 24", {});
  AwaitReady();
  std::vector<std::unique_ptr<RawPeer>> peers;
  peers.push_back(ConnectAndAwaitWelcome());
  // More than fit. Who comes first is served first.
  constexpr size_t kMany = 24;
  while (peers.size() < kMany) {
    peers.push_back(Connect());
    peers.back()->SendHello();
  }
  EXPECT_THAT(host_->ReadErrorLine(),
              EndsWith("No connection can be accepted, trying again every 50 "
                       "ms: Too many open files"));
  SendCall(*peers.front(), "GetTitle", 1);
  const std::optional<Frame> reply = peers.front()->Receive();
  EXPECT_TRUE(reply && reply->has_reply());

  // Each that leaves makes room for one that waits.
  std::unique_ptr<RawPeer> last = std::move(peers.back());
  peers.clear();
  AwaitWelcome(*last);
  const Process::Result end = StopHost();
  EXPECT_EQ(0, end.exit_code);
  EXPECT_THAT(end.errors, Not(HasSubstr("No connection can be accepted")));
}

// A sanitizer's runtime takes more address space than any limit, and ends a
// program that gets no memory by itself.
TEST_F(HostFaultsTest, WithoutMemoryItSaysSoAndEndsAtOnce) {
#ifdef HOST_IS_SANITIZED
  GTEST_SKIP() << "the host cannot be limited";
#endif
  host_ = HostAfter("ulimit -v 40000", {"--max-outbox-bytes=1073741824",
                                        "--busy-outbox-bytes=1073741823"});
  AwaitReady();
  Process& watcher = StartClient({"watch", "1", "2"});
  host_->Write("close 2\n");
  EXPECT_THAT(watcher.ReadLine(), HasSubstr("WINDOW_CLOSE_REASON_USER"));
  // Reads none of the replies: they take more than the host may have.
  std::unique_ptr<RawPeer> greedy = ConnectAndAwaitWelcome();
  constexpr uint64_t kMoreThanFit = 12'000;
  for (uint64_t id = 1; id <= kMoreThanFit; ++id)
    SendCall(*greedy, "GetFiles", id, "");

  const Process::Result end = host_->Wait();
  EXPECT_THAT(end.exit_code, AnyOf(-SIGILL, -SIGTRAP));
  EXPECT_THAT(end.errors, EndsWith("No memory is left: the process ends.\n"));
  // What it had sent is right, and nothing else has come.
  const Process::Result watched = watcher.Wait();
  EXPECT_EQ("", watched.output);
  EXPECT_EQ(kNoConnection, watched.exit_code);
  uint64_t replies = 0;
  std::string first;
  while (const std::optional<Frame> frame = greedy->Receive()) {
    ASSERT_TRUE(frame->has_reply());
    EXPECT_EQ(++replies, frame->reply().call_id());
    first = replies == 1 ? frame->reply().response() : first;
    EXPECT_EQ(first, frame->reply().response());
  }
  EXPECT_GT(replies, 0u);
  // The next one serves at the same place.
  StartHost();
  EXPECT_EQ(0, StopHost().exit_code);
}

TEST_F(HostFaultsTest, ServesAndStopsThoughTheDiskOfItsRecordsIsFull) {
  host_ = HostAfter(":", {}, "2>/dev/full");
  AwaitReady();
  for (int i = 0; i < 3; ++i)
    EXPECT_EQ("true\n", Call("IsVisible", R"({"value": 1})"));
  EXPECT_EQ(0, StopHost().exit_code);
}

TEST_F(HostFaultsTest, ServesAndStopsThoughTheFileOfItsTraceMayNotGrow) {
  const std::string path = folder_.File("trace.json");
  host_ = HostAfter("ulimit -f 1", {"--trace", path});
  AwaitReady();
  std::unique_ptr<RawPeer> peer = ConnectAndAwaitWelcome();
  for (uint64_t id = 1; id <= 20; ++id) {
    SendCall(*peer, "IsVisible", id);
    const std::optional<Frame> reply = peer->Receive();
    EXPECT_TRUE(reply && reply->has_reply());
  }
  const Process::Result end = StopHost();
  EXPECT_EQ(0, end.exit_code);
  EXPECT_THAT(end.errors,
              HasSubstr(absl::StrCat("Nothing more is written to the trace "
                                     "file ",
                                     path, ": File too large")));
  // As far as it goes.
  std::ostringstream trace;
  trace << std::ifstream(path).rdbuf();
  EXPECT_THAT(trace.str(), StartsWith("["));
  EXPECT_LE(trace.str().size(), 1'024u);
}

// A host whose socket lies on a disk of its own, in memory, that nobody else
// sees.
class HostOnADiskTest : public HostFaultsTest {
 protected:
  void SetUp() override {
    if (system("unshare --user --map-root-user --mount "
               "mount -t tmpfs none /tmp 2>/dev/null") != 0)
      GTEST_SKIP() << "no disk can be mounted";
  }

  // `options` are of mount(8). Whatever is left of the disk gets full.
  void StartHostOn(const std::string& options, std::vector<std::string> flags) {
    const std::string folder = folder_.File("");
    std::vector<std::string> words = HostWords(std::move(flags));
    words.insert(words.begin(),
                 {"/usr/bin/unshare", "--user", "--map-root-user", "--mount",
                  "/bin/bash", "-c",
                  absl::StrCat("mount -t tmpfs -o mode=0700,", options,
                               " full ", folder, "; { cat /dev/zero >", folder,
                               "rest; } 2>/dev/null; exec \"$0\" \"$@\"")});
    host_ = std::make_unique<Process>(words);
  }

  // The path of a file of the disk as others see it while the host runs.
  std::string Seen(const std::string& path) const {
    return absl::StrCat("/proc/", host_->pid(), "/root", path);
  }
};

TEST_F(HostOnADiskTest, ServesAndStopsThoughTheDiskIsFull) {
  const std::string trace = folder_.File("trace.json");
  StartHostOn("size=64k", {"--trace", trace});
  AwaitReady();
  auto socket = Client::OpenSocket(Seen(socket_));
  ASSERT_TRUE(socket.ok()) << socket.status();
  RawPeer peer(loop_, *std::move(socket));
  peer.SendHello();
  AwaitWelcome(peer);
  SendCall(peer, "IsVisible", 1);
  const std::optional<Frame> reply = peer.Receive();
  EXPECT_TRUE(reply && reply->has_reply());
  EXPECT_EQ(0, access(Seen(trace).c_str(), F_OK));
  const Process::Result end = StopHost();
  EXPECT_EQ(0, end.exit_code);
  EXPECT_THAT(end.errors,
              HasSubstr(absl::StrCat("Nothing more is written to the trace "
                                     "file ",
                                     trace, ": No space left on device")));
}

// A folder takes one of the files that a disk may have.
TEST_F(HostOnADiskTest, WithoutRoomForTheSocketItSaysSoAndDoesNotStart) {
  StartHostOn("nr_inodes=1", {});
  const Process::Result end = host_->Wait();
  EXPECT_EQ(absl::StrCat("window_host: cannot listen at ", socket_,
                         ": No space left on device\n"),
            end.errors);
  EXPECT_NE(0, end.exit_code);
}

TEST_F(HostOnADiskTest, WithoutRoomForTheTraceItSaysSoAndDoesNotStart) {
  const std::string trace = folder_.File("trace.json");
  StartHostOn("nr_inodes=1", {"--trace", trace});
  const Process::Result end = host_->Wait();
  EXPECT_EQ(absl::StrCat("window_host: cannot write the trace file ", trace,
                         ": No space left on device\n"),
            end.errors);
  EXPECT_NE(0, end.exit_code);
}

// The hour of a record that the host makes now.
int HourOfNextRecord(Process& host) {
  const std::string record = host.ReadErrorLine();
  int hour = -1;
  EXPECT_EQ(1, sscanf(record.c_str(), "[%*4d/%2d", &hour)) << record;
  return hour;
}

// Each look at the clock of the day finds it an hour earlier.
TEST_F(HostFaultsTest, AClockThatIsSetBackHoldsUpNoTimer) {
  const std::string set_back =
      absl::StrCat("export SET_CLOCK=-1 LD_PRELOAD=", SET_CLOCK);
  host_ =
      HostAfter(set_back, {"--answer-timeout=0.1", "--handshake-timeout=0.1",
                           "--frame-timeout=0.1"});
  AwaitReady();
  // It does see that clock.
  Call("IsVisible", R"({"value": 1})");
  const int first = HourOfNextRecord(*host_);
  Call("IsVisible", R"({"value": 1})");
  EXPECT_EQ(1, (first - HourOfNextRecord(*host_) + 24) % 24);

  StartClient({"answer", "OnCloseWindow", "1"});
  host_->Write("close 1\n");
  ASSERT_EQ("Window 1 is closed: its client did not answer in time.",
            host_->ReadLine());
  EXPECT_EQ(absl::StatusCode::kDeadlineExceeded,
            Connect()->AwaitGoodbye().code());
  std::unique_ptr<RawPeer> half = ConnectAndAwaitWelcome();
  half->SendBytes(std::string("\x10", 1));
  EXPECT_EQ(absl::StatusCode::kDeadlineExceeded, half->AwaitGoodbye().code());
  EXPECT_EQ(0, StopHost().exit_code);
}

class SignalledHostTest : public HostFaultsTest,
                          public ::testing::WithParamInterface<int> {
 protected:
  // What this process ignores a host ignores, too, until it has handlers of its
  // own: shells have what they run in the background ignore some.
  SignalledHostTest() {
    signal(GetParam(), SIG_DFL);
    constexpr rlimit kNoCoreFile = {0, 0};
    setrlimit(RLIMIT_CORE, &kNoCoreFile);
  }

  // A stop in good order.
  void ExpectCleanEnd() {
    EXPECT_EQ(0, StopHost(GetParam()).exit_code);
    EXPECT_NE(0, access(socket_.c_str(), F_OK));
  }
};

INSTANTIATE_TEST_SUITE_P(All,
                         SignalledHostTest,
                         ::testing::Values(SIGINT, SIGQUIT, SIGTERM, SIGHUP),
                         [](const auto& tested) {
                           return std::string(sigabbrev_np(tested.param));
                         });

// At any moment of its start: it stops in good order, or had not begun yet.
TEST_P(SignalledHostTest, WhileItStartsLeavesNoFile) {
  for (int yields = 0; yields < 2'000; yields = 2 * yields + 1) {
    // Without a shell before it, which may ignore the signal.
    host_ = std::make_unique<Process>(HostWords({}));
    for (int i = 0; i < yields; ++i)
      sched_yield();
    EXPECT_THAT(StopHost(GetParam()).exit_code, AnyOf(0, -GetParam()));
    EXPECT_NE(0, access(socket_.c_str(), F_OK));
  }
}

TEST_P(SignalledHostTest, WhileItIdlesStopsInGoodOrder) {
  StartHost();
  ExpectCleanEnd();
}

TEST_P(SignalledHostTest, WhileItServesStopsInGoodOrder) {
  StartHost();
  std::unique_ptr<RawPeer> peer = ConnectAndAwaitWelcome();
  // It is somewhere among them when the signal comes.
  constexpr uint64_t kCalls = 500;
  for (uint64_t id = 1; id <= kCalls; ++id)
    SendCall(*peer, "IsVisible", id);
  ExpectCleanEnd();
  // Each reply is whole and in order, and the goodbye the last that comes.
  uint64_t replies = 0;
  bool goodbye = false;
  while (const std::optional<Frame> frame = peer->Receive()) {
    EXPECT_FALSE(goodbye);
    goodbye = frame->has_goodbye();
    if (frame->has_reply()) {
      EXPECT_EQ(++replies, frame->reply().call_id());
    }
  }
  EXPECT_TRUE(goodbye);
}

TEST_P(SignalledHostTest, WhileAQuestionIsPendingStopsInGoodOrder) {
  StartHost({"--windows=1", "--answer-timeout=3600"});
  Process& answerer =
      StartClient({"answer", "OnCloseWindow", "1", "--exec", "cat; read x"});
  host_->Write("close 1\n");
  host_->Write("list\n");
  // The question is out when the next line is answered.
  EXPECT_THAT(host_->ReadLine(), StartsWith("Window 1,"));
  ExpectCleanEnd();
  EXPECT_EQ(kNoConnection, answerer.Wait().exit_code);
}

// The second signal may find it stopping, or gone. Where it is killed its file
// may stay, and the next host replaces that.
TEST_P(SignalledHostTest, WhileItStopsEndsItAtTheLatest) {
  for (int i = 0; i < 5; ++i) {
    StartHost();
    std::vector<std::unique_ptr<RawPeer>> peers(10);
    for (std::unique_ptr<RawPeer>& peer : peers)
      peer = ConnectAndAwaitWelcome();
    host_->Signal(GetParam());
    EXPECT_THAT(StopHost(GetParam()).exit_code, AnyOf(0, -GetParam()));
  }
}

// Those that a terminal, a child or another program may send it.
TEST_F(HostFaultsTest, OtherSignalsDoNotEndIt) {
  StartHost();
  for (const int signal :
       {SIGPIPE, SIGXFSZ, SIGCHLD, SIGWINCH, SIGURG, SIGCONT, SIGSTOP, SIGCONT})
    host_->Signal(signal);
  EXPECT_EQ("true\n", Call("IsVisible", R"({"value": 1})"));
  EXPECT_EQ(0, StopHost().exit_code);
}

}  // namespace
}  // namespace windowctl
