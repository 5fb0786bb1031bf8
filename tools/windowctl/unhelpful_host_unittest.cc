// The real client against hosts that answer late, or go as they answer.

#include <signal.h>

#include <functional>
#include <memory>
#include <string>
#include <system_error>

#include "core/common/rpc/transport/lab.h"
#include "core/common/rpc/transport/rpc_status.h"
#include "core/common/rpc/transport/server.h"
#include "gmock/gmock.h"
#include "gtest/gtest.h"
#include "rpc/browser/browser_window.rpc.h"
#include "tools/windowctl/end_to_end_test_support.h"
#include "tools/windowctl/exit_code.h"

namespace windowctl {
namespace {

using asio::local::stream_protocol;
using rpc::transport::Frame;
using rpc::transport::RawPeer;

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

using LateHostTest = EndToEndTest;

// "windowctl: subscribed" comes only when the host has said that it is so.
TEST_F(LateHostTest, InterruptedBeforeItIsSubscribedAStreamEndsByTheSignal) {
  for (const int signal : {SIGINT, SIGTERM}) {
    asio::io_context loop(1);
    LateService service;
    rpc::transport::Server server(loop);
    server.AddService(&service);
    ASSERT_TRUE(server.Listen(socket_).ok());
    Process watcher(ClientWords({"watch", "1"}));
    while (service.kept == nullptr)
      loop.run_one();
    watcher.Signal(signal);
    const Process::Result result = watcher.Wait();
    EXPECT_EQ(-signal, result.exit_code);
    EXPECT_EQ("", result.output);
    EXPECT_EQ("", result.errors);
    service.kept->Run();
  }
}

// A host that serves one client, and says what the test has it say.
class LeavingHostTest : public EndToEndTest {
 protected:
  // Has windowctl call the host, which replies with `status` and says goodbye
  // in one go.
  Process::Result Run(const std::vector<std::string>& words,
                      const absl::Status& status) {
    asio::io_context loop(1);
    stream_protocol::acceptor acceptor(loop,
                                       stream_protocol::endpoint(socket_));
    Process client(ClientWords(words));
    stream_protocol::socket socket(loop);
    std::error_code error;
    acceptor.accept(socket, error);
    EXPECT_FALSE(error);
    RawPeer peer(loop, std::move(socket));
    peer.Send(Frame::kWelcome, Welcome());
    std::optional<Frame> frame;
    do {
      frame = peer.Receive();
    } while (frame && !frame->has_call());
    EXPECT_TRUE(frame);

    rpc::transport::ReplyFrame reply;
    reply.set_call_id(frame->call().call_id());
    if (!status.ok())
      ToWire(status, reply.mutable_status());
    rpc::transport::GoodbyeFrame goodbye;
    ToWire(absl::UnavailableError("the server is stopping"),
           goodbye.mutable_status());
    std::string bytes;
    AppendFrame(Frame::kReply, reply, FrameSize(reply), &bytes);
    AppendFrame(Frame::kGoodbye, goodbye, FrameSize(goodbye), &bytes);
    peer.SendBytes(bytes);
    const Process::Result result = client.Wait();
    unlink(socket_.c_str());
    return result;
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

// It has replied, so it has heard of the subscription before.
TEST_F(LeavingHostTest, StreamDoesNotNeedTheMethodThatItWaitsFor) {
  const Process::Result result =
      Run({"watch", "1"}, absl::UnimplementedError("no IsVisible"));
  EXPECT_EQ(kNoConnection, result.exit_code);
  EXPECT_EQ("windowctl: UNAVAILABLE: the server is stopping\n", result.errors);
}

}  // namespace
}  // namespace windowctl
