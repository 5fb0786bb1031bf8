// Replays to a client what a real server once sent, with some frames changed by
// conversation_mutator.cc. Whatever it receives, the client must keep to the
// protocol, and each call and stream that it has begun must end exactly once.

#include "core/common/rpc/transport/client/client_core.h"

#include <memory>
#include <set>
#include <system_error>
#include <utility>
#include <vector>

#include "core/common/rpc/serving/limits.h"
#include "core/common/rpc/testing/fuzzer.h"
#include "core/common/rpc/testing/socket_pair.h"
#include "core/common/rpc/transport/client.h"
#include "core/common/rpc/transport/fuzzing/client_conversation.h"
#include "core/common/rpc/transport/fuzzing/conversation.h"
#include "core/common/rpc/transport/testing/lab.h"

namespace rpc::transport {
namespace {

using Socket = asio::local::stream_protocol::socket;

// Sends one frame on each turn of the loop, and closes the socket after the
// last, so that no client waits for more. Checks what the client sends.
class Server {
 public:
  Server(loop::Loop& loop, Socket socket, std::string_view bytes)
      : loop_(loop), socket_(std::move(socket)), utterances_(Cut(bytes)) {
    std::error_code error;
    socket_.non_blocking(true, error);
    EXPECT_FALSE(error) << error.message();
    SayMore();
  }

 private:
  void SayMore() {
    Listen();
    if (said_ == utterances_.size() || over_) {
      std::error_code ignored;
      socket_.close(ignored);
      return;
    }
    const Utterance& next = utterances_[said_++];
    if (next.kind == Frame::kWelcome && !welcomed_) {
      WelcomeFrame welcome;
      welcome.ParseFromString(next.body);
      max_frame_bytes_ = welcome.max_frame_bytes();
      welcomed_ = true;
    }
    // If this fails, the client has closed the connection.
    WriteSome(socket_, next.bytes);
    loop_.Post([this] { SayMore(); });
  }

  void Listen() {
    for (const Utterance& utterance : Cut(ReadAll(socket_))) {
      Hear(utterance);
    }
  }

  void Hear(const Utterance& utterance) {
    EXPECT_FALSE(over_) << "something follows the goodbye";
    EXPECT_EQ(std::exchange(greeted_, true), utterance.kind != Frame::kHello);
    if (welcomed_ && utterance.kind != Frame::kHello &&
        utterance.kind != Frame::kGoodbye) {
      EXPECT_LE(utterance.body.size(), max_frame_bytes_);
    }
    switch (utterance.kind) {
      case Frame::kHello:
        return;
      case Frame::kCall:
        EXPECT_TRUE(calls_.insert(Parse<CallFrame>(utterance).call_id()).second)
            << "an id is used again";
        return;
      case Frame::kCancel:
        EXPECT_TRUE(calls_.contains(Parse<CancelFrame>(utterance).call_id()));
        return;
      case Frame::kStreamOpen:
        EXPECT_TRUE(
            streams_.insert(Parse<StreamOpenFrame>(utterance).stream_id())
                .second);
        return;
      case Frame::kStreamData:
        ASSERT_EQ(Parse<StreamDataFrame>(utterance).stream_ids_size(), 1);
        return ExpectOpen(Parse<StreamDataFrame>(utterance).stream_ids(0));
      case Frame::kStreamError:
        return ExpectOpen(Parse<StreamErrorFrame>(utterance).stream_id());
      case Frame::kStreamEnd:
        EXPECT_EQ(streams_.erase(Parse<StreamEndFrame>(utterance).stream_id()),
                  1u);
        return;
      case Frame::kGoodbye:
        over_ = true;
        return;
      default:
        ADD_FAILURE() << "a client says no frame of kind " << utterance.kind;
    }
  }

  void ExpectOpen(uint64_t id) {
    EXPECT_TRUE(streams_.contains(id)) << "stream " << id << " is not open";
  }

  template <typename Body>
  static Body Parse(const Utterance& utterance) {
    Body body;
    EXPECT_TRUE(body.ParseFromString(utterance.body));
    return body;
  }

  loop::Loop& loop_;
  Socket socket_;
  const std::vector<Utterance> utterances_;
  size_t said_ = 0;

  bool greeted_ = false;
  bool welcomed_ = false;
  bool over_ = false;
  size_t max_frame_bytes_ = 0;
  std::set<uint64_t> calls_;
  std::set<uint64_t> streams_;
};

ClientOptions Options() {
  ClientOptions options;
  options.limits.max_frame_bytes = serving::kMinFrameBytes;
  options.limits.max_outbox_bytes = 4 << 10;
  options.limits.busy_outbox_bytes = 4 << 10;
  return options;
}

void Talk(std::string_view bytes) {
  loop::Loop loop;
  auto [ours, theirs] = torvane::SocketPair();
  Server server(loop, Watch(loop, std::move(ours)), bytes);
  auto client = Client::Adopt(loop, std::move(theirs), Options());
  if (!client.ok()) {
    loop.RunReady();
    return;
  }
  int closed = 0;
  (*client)->set_on_closed([&](const absl::Status&) { ++closed; });
  ClientConversation conversation(**client, {});
  loop.RunReady();
  EXPECT_FALSE((*client)->status().ok());
  EXPECT_EQ(closed, 1);
}

}  // namespace
}  // namespace rpc::transport

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  rpc::transport::Talk({reinterpret_cast<const char*>(data), size});
  return 0;
}
