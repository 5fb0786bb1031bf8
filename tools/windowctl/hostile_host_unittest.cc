// The real client against a host whose texts are meant for the terminal of the
// user.

#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "core/common/rpc/loop/loop.h"
#include "core/common/rpc/transport/server.h"
#include "core/common/rpc/transport/socket/unix_socket.h"
#include "core/common/rpc/transport/testing/lab.h"
#include "core/common/rpc/transport/wire/rpc_status.h"
#include "gmock/gmock.h"
#include "gtest/gtest.h"
#include "rpc/browser/browser_window.pb.h"
#include "rpc/status/server_status.pb.h"
#include "tools/rpcctl/exit_code.h"
#include "tools/rpcctl/false_host_test_support.h"
#include "tools/windowctl/end_to_end_test_support.h"

namespace windowctl {
namespace {

using rpc::loop::ScopedFd;
using rpc::transport::Frame;
using rpc::transport::RawPeer;
using rpcctl::Accept;
using ::testing::HasSubstr;
using ::testing::Not;

// Clears the screen, begins a new line, turns the text around.
constexpr char kAttack[] = "\x1b[2J\nforged\u202e\u2066";
constexpr char kEscaped[] = R"(\x1b[2J\x0aforged\u202e\u2066)";
constexpr char kEscapedInJson[] = R"(\u001b[2J\nforged\u202e\u2066)";

// A host that serves one client, and says what the test has it say.
class HostileHostTest : public EndToEndTest {
 protected:
  // Runs windowctl. After the welcome, `then` has the host do its worst.
  Process::Result Run(const std::vector<std::string>& words,
                      const std::function<void(RawPeer&)>& then) {
    rpc::loop::Loop loop;
    auto listener = rpc::transport::UnixListener::Open(socket_);
    EXPECT_TRUE(listener.ok()) << listener.status();
    const ScopedFd descriptor(listener->Release());
    Process client(ClientWords(words));
    RawPeer peer(loop, Accept(loop, descriptor.get()));
    then(peer);
    peer.Close();
    return client.Wait();
  }

  static void Welcome(RawPeer& peer) {
    rpc::transport::WelcomeFrame welcome;
    welcome.set_protocol_version(rpc::transport::kProtocolVersion);
    welcome.set_max_frame_bytes(1 << 20);
    AddService(welcome, "rpc.BrowserWindow", {"GetTitle", "IsVisible"});
    rpc::transport::OfferedMethod* const stream =
        welcome.mutable_services(0)->add_methods();
    stream->set_name("WhenBrowserWindowClosed");
    stream->set_id(2);
    stream->set_streaming(true);
    AddService(welcome, "rpc.status.ServerStatus", {"GetStatus"});
    peer.Send(Frame::kWelcome, welcome);
  }

  // Waits for the first call and answers it.
  static void Answer(RawPeer& peer,
                     const google::protobuf::MessageLite& response,
                     const absl::Status& status = absl::OkStatus()) {
    AnswerWithBytes(peer, response.SerializeAsString(), status);
  }
  static void AnswerWithBytes(RawPeer& peer,
                              const std::string& response,
                              const absl::Status& status = absl::OkStatus()) {
    std::optional<Frame> frame;
    do {
      frame = peer.Receive();
    } while (frame && !frame->has_call());
    ASSERT_TRUE(frame);
    rpc::transport::ReplyFrame reply;
    reply.set_call_id(frame->call().call_id());
    reply.set_response(response);
    if (!status.ok())
      ToWire(status, reply.mutable_status());
    peer.Send(Frame::kReply, reply);
  }

 private:
  static void AddService(rpc::transport::WelcomeFrame& welcome,
                         const std::string& name,
                         const std::vector<std::string>& methods) {
    static constexpr uint32_t kIdsPerService = 10;
    const auto first =
        static_cast<uint32_t>(welcome.services_size()) * kIdsPerService;
    rpc::transport::OfferedService* const service = welcome.add_services();
    service->set_full_name(name);
    for (const std::string& method : methods) {
      rpc::transport::OfferedMethod* const offered = service->add_methods();
      offered->set_name(method);
      offered->set_id(first + static_cast<uint32_t>(service->methods_size()) -
                      1);
    }
  }
};

TEST_F(HostileHostTest, TextOfAFailedCallIsEscaped) {
  const Process::Result result =
      Run({"call", "GetTitle", "{}"}, [](RawPeer& peer) {
        Welcome(peer);
        Answer(peer, google::protobuf::StringValue(),
               absl::NotFoundError(kAttack));
      });
  EXPECT_EQ(kCallFailed, result.exit_code);
  EXPECT_EQ("", result.output);
  EXPECT_EQ(std::string("windowctl: NOT_FOUND: ") + kEscaped + "\n",
            result.errors);
}

TEST_F(HostileHostTest, TextOfAResponseIsEscapedAndStaysJson) {
  google::protobuf::StringValue title;
  title.set_value(kAttack);
  const Process::Result result =
      Run({"call", "GetTitle", "{}"}, [&](RawPeer& peer) {
        Welcome(peer);
        Answer(peer, title);
      });
  EXPECT_EQ(kSuccess, result.exit_code);
  EXPECT_EQ(std::string("\"") + kEscapedInJson + "\"\n", result.output);
  EXPECT_EQ("", result.errors);
}

// Protocol Buffers would write a line of its own about it.
TEST_F(HostileHostTest, ResponseThatIsNotUtf8IsAFailedCallAndNothingElse) {
  const Process::Result result =
      Run({"call", "GetTitle", "{}"}, [&](RawPeer& peer) {
        Welcome(peer);
        AnswerWithBytes(peer, "\x0a\x05\xff\x1b[2J");
      });
  EXPECT_EQ(kCallFailed, result.exit_code);
  EXPECT_EQ("", result.output);
  EXPECT_THAT(result.errors,
              ::testing::MatchesRegex("windowctl: [^\n\x1b]*\n"));
}

TEST_F(HostileHostTest, TextOfARefusedConnectionIsEscaped) {
  const Process::Result result =
      Run({"call", "GetTitle", "{}"}, [](RawPeer& peer) {
        rpc::transport::GoodbyeFrame goodbye;
        ToWire(absl::ResourceExhaustedError(kAttack), goodbye.mutable_status());
        peer.Send(Frame::kGoodbye, goodbye);
      });
  EXPECT_EQ(kNoConnection, result.exit_code);
  EXPECT_EQ(std::string("windowctl: No connection: ") + kEscaped + "\n",
            result.errors);
}

TEST_F(HostileHostTest, TextOfALostStreamIsEscaped) {
  const Process::Result result = Run({"watch", "1"}, [](RawPeer& peer) {
    Welcome(peer);
    Answer(peer, google::protobuf::BoolValue());
    rpc::transport::GoodbyeFrame goodbye;
    ToWire(absl::UnavailableError(kAttack), goodbye.mutable_status());
    peer.Send(Frame::kGoodbye, goodbye);
  });
  EXPECT_EQ(kNoConnection, result.exit_code);
  EXPECT_THAT(result.errors,
              HasSubstr(std::string("UNAVAILABLE: ") + kEscaped + "\n"));
  EXPECT_THAT(result.errors, Not(HasSubstr("\x1b")));
}

TEST_F(HostileHostTest, TextOfAnEventIsEscaped) {
  rpc::BrowserWindowClosed event;
  event.set_title(kAttack);
  const Process::Result result = Run({"watch", "1"}, [&](RawPeer& peer) {
    Welcome(peer);
    uint64_t stream_id = 0;
    while (stream_id == 0) {
      const std::optional<Frame> frame = peer.Receive();
      ASSERT_TRUE(frame);
      stream_id = frame->stream_open().stream_id();
    }
    Answer(peer, google::protobuf::BoolValue());
    rpc::transport::StreamDataFrame data;
    data.add_stream_ids(stream_id);
    event.SerializeToString(data.mutable_message()->mutable_payload());
    peer.Send(Frame::kStreamData, data);
  });
  EXPECT_THAT(result.output, HasSubstr(std::string("\"title\":\"") +
                                       kEscapedInJson + "\"}\n"));
}

TEST_F(HostileHostTest, NamesInTheStatusAreEscaped) {
  rpc::status::StatusReport report;
  rpc::status::Connection& connection = *report.add_connections();
  connection.set_name(kAttack);
  connection.add_oldest_questions()->set_method(kAttack);
  report.add_refusals()->set_limit(kAttack);
  const auto status = [&](RawPeer& peer) {
    Welcome(peer);
    Answer(peer, report);
  };
  const Process::Result table = Run({"status"}, status);
  EXPECT_EQ(kSuccess, table.exit_code);
  EXPECT_THAT(table.output, HasSubstr(std::string("  ") + kEscaped + "  "));
  EXPECT_THAT(table.output, HasSubstr(std::string("\n") + kEscaped + "  "));
  EXPECT_THAT(table.output, Not(HasSubstr("\x1b")));
  EXPECT_THAT(table.output, Not(HasSubstr("\nforged")));

  const Process::Result json = Run({"status", "--json"}, status);
  EXPECT_EQ(kSuccess, json.exit_code);
  EXPECT_THAT(json.output, HasSubstr(kEscapedInJson));
  EXPECT_THAT(json.output, Not(HasSubstr("\x1b")));
}

}  // namespace
}  // namespace windowctl
