// The real client against hosts that answer late, or go as they answer.

#include <signal.h>

#include <functional>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "core/common/rpc/loop/loop.h"
#include "core/common/rpc/loop/scoped_fd.h"
#include "core/common/rpc/transport/server.h"
#include "core/common/rpc/transport/socket/unix_socket.h"
#include "core/common/rpc/transport/testing/lab.h"
#include "core/common/rpc/transport/wire/rpc_status.h"
#include "gmock/gmock.h"
#include "gtest/gtest.h"
#include "rpc/browser/browser_window.rpc.h"
#include "tools/rpcctl/exit_code.h"
#include "tools/rpcctl/false_host_test_support.h"
#include "tools/windowctl/end_to_end_test_support.h"

namespace windowctl {
namespace {

using rpc::loop::ScopedFd;
using rpc::transport::Frame;
using rpc::transport::RawPeer;
using rpcctl::Accept;

// Keeps a call of IsVisible for later.
class LateService final : public rpc::BrowserWindowRpc {
 public:
  void IsVisible(google::protobuf::RpcController*,
                 const BrowserId*,
                 google::protobuf::BoolValue*,
                 google::protobuf::Closure* done) override {
    kept = done;
  }

  google::protobuf::Closure* kept = nullptr;
};

class LateHostTest : public EndToEndTest {
 protected:
  // The text has the time that the client has waited for its welcome.
  void ExpectNoAnswerWithinTheTimeout() {
    for (const std::vector<std::string>& words :
         {std::vector<std::string>{"call", "IsVisible", "{}"},
          {"watch", "1"},
          {"answer", "OnCloseWindow", "1"},
          {"status"}}) {
      std::vector<std::string> limited = words;
      limited.insert(limited.begin(), {"--timeout", "0.05"});
      const Process::Result result = RunClient(limited);
      EXPECT_EQ(kNoConnection, result.exit_code);
      EXPECT_EQ("", result.output);
      EXPECT_EQ(
          "windowctl: No connection: the server has not answered the hello "
          "within handshake_timeout, 50 ms\n",
          result.errors);
    }
  }
};

// "windowctl: subscribed" comes only when the host has said that it is so.
TEST_F(LateHostTest, InterruptedBeforeItIsSubscribedAStreamEndsByTheSignal) {
  for (const int signal : {SIGINT, SIGTERM}) {
    rpc::loop::Loop loop;
    LateService service;
    rpc::transport::Server server(loop);
    server.AddService(&service);
    ASSERT_TRUE(server.Listen(socket_).ok());
    Process watcher(ClientWords({"watch", "1"}));
    ASSERT_TRUE(loop.RunUntil([&] { return service.kept != nullptr; }));
    watcher.Signal(signal);
    const Process::Result result = watcher.Wait();
    EXPECT_EQ(-signal, result.exit_code);
    EXPECT_EQ("", result.output);
    EXPECT_EQ("", result.errors);
    service.kept->Run();
  }
}

// Connecting needs nothing of a host but a socket that listens: the system
// keeps the connection until the host accepts it.
TEST_F(LateHostTest, HostThatNeverAnswersCostsNoMoreThanTheTimeout) {
  const auto listener = rpc::transport::UnixListener::Open(socket_);
  ASSERT_TRUE(listener.ok()) << listener.status();
  ExpectNoAnswerWithinTheTimeout();
}

TEST_F(LateHostTest, StoppedHostCostsNoMoreThanTheTimeout) {
  StartHost();
  host_->Signal(SIGSTOP);
  ExpectNoAnswerWithinTheTimeout();
  host_->Signal(SIGCONT);
  EXPECT_EQ("true\n", Call("IsVisible", R"({"value": 1})"));
}

// A host that serves one client, and says what the test has it say.
class LeavingHostTest : public EndToEndTest {
 protected:
  // Has windowctl call the host, which replies with `status` and says goodbye
  // in one go.
  Process::Result Run(const std::vector<std::string>& words,
                      const absl::Status& status) {
    rpc::loop::Loop loop;
    auto listener = rpc::transport::UnixListener::Open(socket_);
    EXPECT_TRUE(listener.ok()) << listener.status();
    const ScopedFd descriptor(listener->Release());
    Process client(ClientWords(words));
    RawPeer peer(loop, Accept(loop, descriptor.get()));
    peer.Send(Frame::kWelcome, Welcome());
    std::optional<Frame> frame;
    do {
      frame = peer.Receive();
    } while (frame && !frame->has_call());
    EXPECT_TRUE(frame);
    call = frame->call();

    rpc::transport::ReplyFrame reply;
    reply.set_call_id(call.call_id());
    if (!status.ok())
      ToWire(status, reply.mutable_status());
    rpc::transport::GoodbyeFrame goodbye;
    ToWire(absl::UnavailableError("the server is stopping"),
           goodbye.mutable_status());
    std::string bytes;
    AppendFrame(Frame::kReply, reply, FrameSize(reply), &bytes);
    AppendFrame(Frame::kGoodbye, goodbye, FrameSize(goodbye), &bytes);
    peer.SendBytes(bytes);
    return client.Wait();
  }

  // Offers IsVisible and WhenBrowserWindowClosed.
  static rpc::transport::WelcomeFrame Welcome() {
    rpc::transport::WelcomeFrame welcome;
    welcome.set_protocol_version(rpc::transport::kProtocolVersion);
    welcome.set_max_frame_bytes(1 << 20);
    rpc::transport::OfferedService* service = welcome.add_services();
    service->set_full_name("rpc.BrowserWindow");
    rpc::transport::OfferedMethod* method = service->add_methods();
    method->set_name("IsVisible");
    method = service->add_methods();
    method->set_name("WhenBrowserWindowClosed");
    method->set_id(1);
    method->set_streaming(true);
    return welcome;
  }

  // The last call.
  rpc::transport::CallFrame call;
};

TEST_F(LeavingHostTest, ReplyThatComesWithTheGoodbyeCounts) {
  const Process::Result result =
      Run({"call", "IsVisible", "{}"}, absl::OkStatus());
  EXPECT_EQ(kSuccess, result.exit_code);
  EXPECT_EQ("false\n", result.output);
  EXPECT_EQ("", result.errors);
}

TEST_F(LeavingHostTest, FailureThatComesWithTheGoodbyeIsTheCallsOwn) {
  for (const std::vector<std::string>& words :
       {std::vector<std::string>{"call", "IsVisible", "{}"},
        std::vector<std::string>{"watch", "1"}}) {
    const Process::Result result =
        Run(words, absl::NotFoundError("No window 1."));
    EXPECT_EQ(kCallFailed, result.exit_code);
    EXPECT_EQ("", result.output);
    EXPECT_EQ("windowctl: NOT_FOUND: No window 1.\n", result.errors);
  }
}

TEST_F(LeavingHostTest, StreamThatEndsWithTheGoodbyeHasLostItsConnection) {
  const Process::Result result = Run({"watch", "1"}, absl::OkStatus());
  EXPECT_EQ(kNoConnection, result.exit_code);
  EXPECT_EQ("windowctl: UNAVAILABLE: the server is stopping\n", result.errors);
}

// Connecting has taken some of it, if only a moment.
TEST_F(LeavingHostTest, CallHasWhatConnectingLeavesOfTheTimeout) {
  for (const std::vector<std::string>& words :
       {std::vector<std::string>{"call", "IsVisible", "{}"}, {"watch", "1"}}) {
    std::vector<std::string> limited = words;
    limited.insert(limited.begin(), {"--timeout", "3600"});
    Run(limited, absl::OkStatus());
    EXPECT_GT(call.timeout_ms(), 0u);
    EXPECT_LT(call.timeout_ms(), 3'600'000u);
  }
}

// It has replied, so it has heard of the subscription before.
TEST_F(LeavingHostTest, StreamDoesNotNeedTheMethodThatItWaitsFor) {
  const Process::Result result =
      Run({"watch", "1"}, absl::UnimplementedError("no IsVisible"));
  EXPECT_EQ(kNoConnection, result.exit_code);
  EXPECT_EQ("windowctl: UNAVAILABLE: the server is stopping\n", result.errors);
}

}  // namespace
}  // namespace windowctl
