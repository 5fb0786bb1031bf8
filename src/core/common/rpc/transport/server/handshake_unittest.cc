// The hello and the welcome, and what becomes of connections without them.

#include <gmock/gmock.h>
#include <google/protobuf/descriptor.h>
#include <google/protobuf/descriptor.pb.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <memory>
#include <string>
#include <thread>
#include <utility>

#include "absl/strings/str_cat.h"
#include "core/common/rpc/serving/client_record.h"
#include "core/common/rpc/testing/socket_pair.h"
#include "core/common/rpc/transport/testing/lab.h"

namespace rpc::transport {
namespace {

using ::testing::HasSubstr;

// How the host's records name this process.
std::string Process() {
  return serving::Describe({.pid = getpid(), .user = getuid()});
}

TEST(Handshake, TheServerListsWhatItOffers) {
  Lab lab;
  RawPeer peer(lab.loop, lab.Connect());
  peer.SendHello();
  const std::optional<Frame> frame = peer.Receive();
  ASSERT_TRUE(frame && frame->has_welcome());
  const WelcomeFrame& welcome = frame->welcome();
  EXPECT_EQ(welcome.protocol_version(), 1u);
  EXPECT_EQ(welcome.max_frame_bytes(), 64u << 10);
  ASSERT_EQ(welcome.services_size(), 1);
  EXPECT_EQ(welcome.services(0).full_name(), "lab.Lab");
  ASSERT_EQ(welcome.services(0).methods_size(), 7);
  EXPECT_EQ(welcome.services(0).methods(0).name(), "Echo");
  EXPECT_FALSE(welcome.services(0).methods(0).streaming());
  EXPECT_EQ(welcome.services(0).methods(5).name(), "Watch");
  EXPECT_TRUE(welcome.services(0).methods(5).streaming());
}

TEST(Handshake, AClientOfAnotherVersionIsToldWhichOneIsSpoken) {
  Lab lab;
  RawPeer peer(lab.loop, lab.Connect());
  HelloFrame hello;
  hello.set_protocol_version(2);
  peer.Send(Frame::kHello, hello);
  const absl::Status why = absl::FailedPreconditionError(
      "the client speaks protocol version 2, this server version 1");
  testing::internal::CaptureStderr();
  EXPECT_EQ(peer.AwaitGoodbye(), why);
  EXPECT_THAT(testing::internal::GetCapturedStderr(),
              HasSubstr("Closed the connection of " + Process() + ": " +
                        why.ToString()));
  EXPECT_EQ(lab.server->counters().handshakes_failed, 1u);
  EXPECT_EQ(lab.server->counters().connections_now, 0u);
}

TEST(Handshake, AClientThatTakesTooShortFramesIsRefused) {
  Lab lab;
  RawPeer peer(lab.loop, lab.Connect());
  HelloFrame hello;
  hello.set_protocol_version(1);
  hello.set_max_frame_bytes(serving::kMinFrameBytes - 1);
  peer.Send(Frame::kHello, hello);
  EXPECT_EQ(peer.AwaitGoodbye(),
            absl::InvalidArgumentError(
                "the client's max_frame_bytes, 8191, is less than the least "
                "that is allowed, 8192"));
  EXPECT_EQ(lab.server->counters().handshakes_failed, 1u);

  RawPeer other(lab.loop, lab.Connect());
  hello.set_max_frame_bytes(serving::kMinFrameBytes);
  other.Send(Frame::kHello, hello);
  const std::optional<Frame> frame = other.Receive();
  EXPECT_TRUE(frame && frame->has_welcome());
}

// A service with more methods than a short welcome can name.
class LargeService final : public torvane::Service {
 public:
  LargeService() {
    google::protobuf::FileDescriptorProto file;
    file.set_name("large.proto");
    file.add_message_type()->set_name("Nothing");
    auto* service = file.add_service();
    service->set_name("Large");
    for (int i = 0; i < 1000; ++i) {
      auto* method = service->add_method();
      method->set_name("Method" + std::to_string(i));
      method->set_input_type(".Nothing");
      method->set_output_type(".Nothing");
    }
    file_ = pool_.BuildFile(file);
  }

  const google::protobuf::ServiceDescriptor* GetDescriptor() override {
    return file_->service(0);
  }
  void CallMethod(const google::protobuf::MethodDescriptor*,
                  google::protobuf::RpcController*,
                  const google::protobuf::Message*,
                  google::protobuf::Message*,
                  google::protobuf::Closure*) override {}
  const google::protobuf::Message& GetRequestPrototype(
      const google::protobuf::MethodDescriptor*) const override {
    return GoodbyeFrame::default_instance();
  }
  const google::protobuf::Message& GetResponsePrototype(
      const google::protobuf::MethodDescriptor*) const override {
    return GoodbyeFrame::default_instance();
  }
  std::unique_ptr<torvane::AbstractStream> OpenStream(
      const google::protobuf::MethodDescriptor*,
      torvane::StreamChannel) override {
    return nullptr;
  }

 private:
  google::protobuf::DescriptorPool pool_;
  const google::protobuf::FileDescriptor* file_;
};

TEST(Handshake, AClientForWhomTheWelcomeIsTooLongIsToldSo) {
  LargeService service;
  Lab lab;
  lab.server->AddService(&service);
  ClientOptions options;
  options.limits.max_frame_bytes = serving::kMinFrameBytes;
  const absl::Status status =
      Client::Adopt(lab.loop, lab.Connect(), options).status();
  // The server says so in its goodbye; the client does not have to guess.
  EXPECT_TRUE(absl::IsInvalidArgument(status)) << status;
  EXPECT_THAT(std::string(status.message()),
              ::testing::MatchesRegex("the client's max_frame_bytes, 8192, is "
                                      "too small for a welcome of [0-9]+ "
                                      "bytes"));
  EXPECT_EQ(lab.server->counters().handshakes_failed, 1u);
  options.limits.max_frame_bytes = 64 << 10;
  EXPECT_TRUE(Client::Adopt(lab.loop, lab.Connect(), options).ok());
  lab.server.reset();
}

TEST(Handshake, AFirstFrameThatIsNoHelloIsRefused) {
  Lab lab;
  RawPeer peer(lab.loop, lab.Connect());
  peer.Send(Frame::kCall, CallFrame());
  EXPECT_EQ(peer.AwaitGoodbye(),
            absl::FailedPreconditionError("the first frame is not a hello"));
  EXPECT_EQ(lab.server->counters().calls_started, 0u);
}

TEST(Handshake, AHelloThatDoesNotParseIsRefused) {
  Lab lab;
  RawPeer peer(lab.loop, lab.Connect());
  peer.SendBytes({3, Frame::kHello << 3 | 2, 1, '\xff'});
  EXPECT_EQ(peer.AwaitGoodbye(),
            absl::InvalidArgumentError(
                "a frame does not parse as a rpc.transport.HelloFrame"));
}

TEST(Handshake, AClientOfAServerThatStopsIsRefused) {
  Lab lab;
  lab.server->Stop();
  RawPeer peer(lab.loop, lab.Connect());
  EXPECT_EQ(peer.AwaitGoodbye(),
            absl::UnavailableError("the server is stopping"));
  EXPECT_EQ(lab.server->counters().connections_accepted, 0u);
}

TEST(Handshake, AClientThatSaysGoodbyeIsLetGoWithoutAWord) {
  Lab lab;
  const auto peer = lab.NewPeer();
  testing::internal::CaptureStderr();
  peer->Send(Frame::kGoodbye, GoodbyeFrame());
  EXPECT_FALSE(peer->Receive().has_value());
  EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
  EXPECT_EQ(lab.server->counters().connections_now, 0u);
}

TEST(Handshake, AFrameThatAClientMayNotSendBreaksTheProtocol) {
  Lab lab;
  const auto peer = lab.NewPeer();
  peer->Send(Frame::kReply, ReplyFrame());
  EXPECT_EQ(peer->AwaitGoodbye(),
            absl::InvalidArgumentError("a client sends no frame of kind 4"));
}

TEST(Handshake, AFrameWhoseBodyDoesNotParseBreaksTheProtocol) {
  const std::pair<FrameKind, std::string> kinds[] = {
      {Frame::kCall, "CallFrame"},
      {Frame::kCancel, "CancelFrame"},
      {Frame::kStreamOpen, "StreamOpenFrame"},
      {Frame::kStreamData, "StreamDataFrame"},
      {Frame::kStreamError, "StreamErrorFrame"},
      {Frame::kStreamEnd, "StreamEndFrame"}};
  for (const auto& [kind, name] : kinds) {
    Lab lab;
    const auto peer = lab.NewPeer();
    peer->SendBytes({3, static_cast<char>(kind << 3 | 2), 1, '\xff'});
    EXPECT_EQ(peer->AwaitGoodbye(),
              absl::InvalidArgumentError(
                  "a frame does not parse as a rpc.transport." + name));
  }
}

TEST(Handshake, ASecondHelloIsRefused) {
  Lab lab;
  const auto peer = lab.NewPeer();
  peer->SendHello();
  EXPECT_EQ(peer->AwaitGoodbye(),
            absl::FailedPreconditionError("a second hello"));
  EXPECT_EQ(lab.server->counters().frames_read, 2u);
  EXPECT_EQ(lab.server->counters().handshakes_failed, 0u);
  EXPECT_EQ(lab.server->counters().protocol_violations, 1u);
}

TEST(Handshake, GarbageIsRefused) {
  Lab lab;
  RawPeer peer(lab.loop, lab.Connect());
  peer.SendBytes("GET / HTTP/1.1\r\nHost: localhost\r\n" +
                 std::string(100, '\n'));
  const absl::Status why = absl::InvalidArgumentError(
      "a frame begins with field 8 of wire type 5, which is no body");
  testing::internal::CaptureStderr();
  EXPECT_EQ(peer.AwaitGoodbye(), why);
  EXPECT_THAT(testing::internal::GetCapturedStderr(),
              HasSubstr("Closed the connection of " + Process() + ": " +
                        why.ToString()));
  // It was not the length.
  EXPECT_EQ(lab.server->counters().limit_hits.max_client_frame_bytes, 0u);
}

TEST(Handshake, AClientThatGoesInTheMiddleOfAFrameIsNoticed) {
  Lab lab;
  const auto peer = lab.NewPeer();
  peer->SendBytes(std::string(1, '\x10'));
  lab.RunReady();
  EXPECT_EQ(lab.server->counters().connections_now, 1u);
  peer->Close();
  lab.RunUntil([&] { return lab.server->counters().connections_now == 0; });
}

TEST(Handshake, AClientThatKeepsSilentIsClosedWhenItsTimeIsUp) {
  ServerOptions options;
  options.limits.handshake_timeout = std::chrono::milliseconds(5);
  Lab lab(options);
  RawPeer peer(lab.loop, lab.Connect());
  EXPECT_EQ(
      peer.AwaitGoodbye(),
      absl::DeadlineExceededError("no hello within handshake_timeout, 5 ms"));
  EXPECT_EQ(lab.server->counters().handshakes_failed, 1u);
}

TEST(Handshake, AClientThatSaysHalfAHelloIsClosedWhenItsTimeIsUp) {
  ServerOptions options;
  options.limits.handshake_timeout = std::chrono::milliseconds(5);
  Lab lab(options);
  RawPeer peer(lab.loop, lab.Connect());
  peer.SendBytes("\x08\x0a");
  EXPECT_TRUE(absl::IsDeadlineExceeded(peer.AwaitGoodbye()));
}

TEST(Handshake, AClientThatMerelyGoesIsNoFailure) {
  Lab lab;
  RawPeer peer(lab.loop, lab.Connect());
  peer.Close();
  lab.RunUntil([&] { return lab.server->counters().connections_now == 0; });
  EXPECT_EQ(lab.server->counters().handshakes_failed, 0u);
}

TEST(Handshake, ConnectionsBeyondTheLimitAreToldSo) {
  ServerOptions options;
  options.limits.max_connections = 1;
  Lab lab(options);
  auto client = lab.NewClient();
  EXPECT_EQ(Client::Adopt(lab.loop, lab.Connect()).status(),
            absl::ResourceExhaustedError("max_connections, 1, are open"));
  EXPECT_EQ(lab.server->counters().connections_refused, 1u);
  EXPECT_EQ(CallText(*client, &lab::Lab_Stub::Echo, "x").value(), "x");
  client.reset();
  lab.RunReady();
  EXPECT_NE(lab.NewClient(), nullptr);
}

TEST(Handshake, AnotherUsersProcessIsRefused) {
  ServerOptions options;
  options.user = getuid() + 1;
  Lab lab(options);
  testing::internal::CaptureStderr();
  const absl::Status status = Client::Adopt(lab.loop, lab.Connect()).status();
  EXPECT_EQ(status, absl::PermissionDeniedError(absl::StrCat(
                        "pid ", getpid(), " belongs to user ", getuid(),
                        "; user ", getuid() + 1, " is served")));
  EXPECT_THAT(testing::internal::GetCapturedStderr(),
              HasSubstr("Refused the connection of " + Process() + ": " +
                        status.ToString()));
  EXPECT_EQ(lab.server->counters().connections_refused, 1u);
}

// The client's side, against a raw server. What that one sends lies in the
// socket before the client connects.
class ClientHandshake : public ::testing::Test {
 protected:
  ClientHandshake() : sockets_(torvane::SocketPair()) {}

  absl::Status Connect(ClientOptions options = {}) {
    return Client::Adopt(loop_, std::move(sockets_.first), std::move(options))
        .status();
  }

  loop::Loop loop_;
  std::pair<loop::ScopedFd, loop::ScopedFd> sockets_;
  RawPeer server_{loop_, std::move(sockets_.second)};
};

TEST_F(ClientHandshake, AServerOfAnotherVersionIsLeft) {
  WelcomeFrame welcome;
  welcome.set_protocol_version(2);
  server_.Send(Frame::kWelcome, welcome);
  EXPECT_EQ(Connect(),
            absl::FailedPreconditionError(
                "the server speaks protocol version 2, this client version 1"));
}

TEST_F(ClientHandshake, AWelcomeThatDoesNotParseIsToldApart) {
  server_.SendBytes({3, Frame::kWelcome << 3 | 2, 1, '\xff'});
  EXPECT_EQ(Connect(),
            absl::FailedPreconditionError(
                "the other side does not speak this protocol: a frame does not "
                "parse as a rpc.transport.WelcomeFrame"));
}

TEST_F(ClientHandshake, AServerThatTakesTooShortFramesIsLeft) {
  WelcomeFrame welcome;
  welcome.set_protocol_version(1);
  welcome.set_max_frame_bytes(serving::kMinFrameBytes - 1);
  server_.Send(Frame::kWelcome, welcome);
  EXPECT_EQ(Connect(),
            absl::FailedPreconditionError(
                "the other side does not speak this protocol: the server's "
                "max_frame_bytes, 8191, is less than the least that is "
                "allowed, 8192"));
}

TEST_F(ClientHandshake, AServerThatTakesTheShortestFramesIsFine) {
  WelcomeFrame welcome;
  welcome.set_protocol_version(1);
  welcome.set_max_frame_bytes(serving::kMinFrameBytes);
  server_.Send(Frame::kWelcome, welcome);
  EXPECT_EQ(Connect(), absl::OkStatus());
}

TEST_F(ClientHandshake, SomethingThatIsNoServerIsToldApart) {
  server_.SendBytes("* OK mail.example.org IMAP4rev1 ready, please log in");
  EXPECT_EQ(Connect(),
            absl::FailedPreconditionError(
                "the other side does not speak this protocol: a frame "
                "begins with field 4 of wire type 0, which is no body"));
}

TEST_F(ClientHandshake, AServerThatDoesNotWelcomeIsToldApart) {
  server_.Send(Frame::kReply, ReplyFrame());
  EXPECT_EQ(Connect(),
            absl::FailedPreconditionError(
                "the other side does not speak this protocol: the first frame "
                "is not a welcome"));
}

TEST_F(ClientHandshake, AServerThatHangsUpIsUnavailable) {
  server_.Close();
  EXPECT_TRUE(absl::IsUnavailable(Connect()));
}

TEST_F(ClientHandshake, AServerThatKeepsSilentIsLeft) {
  ClientOptions options;
  options.limits.handshake_timeout = std::chrono::milliseconds(5);
  EXPECT_EQ(Connect(options),
            absl::DeadlineExceededError("the server has not answered the hello "
                                        "within handshake_timeout, 5 ms"));
}

TEST_F(ClientHandshake, AServersGoodbyeIsTheStatus) {
  GoodbyeFrame goodbye;
  goodbye.mutable_status()->set_code(8);
  goodbye.mutable_status()->set_text("full");
  server_.Send(Frame::kGoodbye, goodbye);
  EXPECT_EQ(Connect(), absl::ResourceExhaustedError("full"));
}

}  // namespace
}  // namespace rpc::transport
