// The frames of one connection are handled in slices of time, and others have
// their turn in between.

#include <gtest/gtest.h>

#include <chrono>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "core/common/rpc/transport/client/client_stream.h"
#include "core/common/rpc/transport/testing/lab.h"
#include "core/common/rpc/transport/wire/connection.h"

namespace rpc::transport {
namespace {

// Each Echo takes as long as a slice, so that no more than two are handled in
// one: the first is over before the clock is looked at.
class Slices : public ::testing::Test {
 protected:
  static constexpr uint64_t kCalls = 50;

  void Serve(const serving::Limits& limits = {}) {
    ServerOptions options;
    options.limits = limits;
    lab.emplace(options);
    lab->service.on_echo = [this](serving::CallContext*) {
      ++echoes;
      Spin();
    };
    busy = lab->NewPeer();
  }

  static void Spin() {
    const auto end = std::chrono::steady_clock::now() + Connection::kSlice;
    while (std::chrono::steady_clock::now() < end) {
    }
  }

  static void AppendCall(const RawPeer& peer,
                         const std::string& method,
                         uint64_t id,
                         const google::protobuf::Message& request,
                         std::string* bytes) {
    CallFrame call;
    call.set_call_id(id);
    call.set_method_id(peer.IdOf(method));
    request.SerializeToString(call.mutable_request());
    AppendFrame(Frame::kCall, call, FrameSize(call), bytes);
  }

  // Sends `count` calls of Echo in one write.
  static void SendCalls(RawPeer& peer, uint64_t count) {
    std::string bytes;
    for (uint64_t id = 0; id < count; ++id) {
      AppendCall(peer, "Echo", id, lab::Text(), &bytes);
    }
    peer.SendBytes(bytes);
  }

  static void ExpectReplies(RawPeer& peer, uint64_t count) {
    for (uint64_t id = 0; id < count; ++id) {
      const auto frame = peer.Receive();
      ASSERT_TRUE(frame && frame->has_reply());
      EXPECT_EQ(frame->reply().call_id(), id);
    }
  }

  // Sends the calls and runs their first slice.
  void BeginCalls() {
    SendCalls(*busy, kCalls);
    lab->RunUntil([this] { return echoes > 0; });
    ASSERT_LE(echoes, 2u);
  }

  const serving::Counters& counters() { return lab->server->counters(); }

  uint64_t echoes = 0;
  std::optional<Lab> lab;
  std::unique_ptr<RawPeer> busy;
};

TEST_F(Slices, ACallerIsAnsweredBetweenTheFramesOfABusyClient) {
  Serve();
  const auto other = lab->NewPeer();
  SendCalls(*busy, kCalls);
  SendCalls(*other, 1);
  ExpectReplies(*other, 1);
  // At most two slices of the busy client, and the call itself.
  EXPECT_LE(echoes, 5u);
  ExpectReplies(*busy, kCalls);
  EXPECT_EQ(echoes, kCalls + 1);
}

TEST_F(Slices, ACallerWaitsForNoMoreThoughManyClientsAreBusy) {
  constexpr uint64_t kClients = 20;
  Serve();
  const auto other = lab->NewPeer();
  std::vector<std::unique_ptr<RawPeer>> crowd;
  for (uint64_t i = 0; i < kClients; ++i) {
    crowd.push_back(lab->NewPeer());
    SendCalls(*crowd.back(), kCalls);
  }
  // Each has had its first slice.
  lab->RunUntil([this] { return echoes > 2 * kClients; });
  const uint64_t before = echoes;
  SendCalls(*other, 1);
  ExpectReplies(*other, 1);
  EXPECT_LE(echoes, before + 10);
  for (const auto& peer : crowd) {
    ExpectReplies(*peer, kCalls);
  }
}

// Who sends one such frame after the other waits as if they had come together.
TEST_F(Slices, ALongFrameIsTheLastOfItsSlice) {
  constexpr uint64_t kClients = 20;
  Serve();
  const auto other = lab->NewPeer();
  std::vector<std::unique_ptr<RawPeer>> crowd;
  for (uint64_t i = 0; i < kClients; ++i) {
    crowd.push_back(lab->NewPeer());
  }
  lab::Text request;
  request.set_text(std::string(3'000, 'x'));
  const auto send_from_all = [&](uint64_t id) {
    for (const auto& peer : crowd) {
      std::string call;
      AppendCall(*peer, "Echo", id, request, &call);
      peer->SendBytes(call);
    }
  };
  send_from_all(0);
  lab->RunUntil([this] { return echoes == kClients; });
  send_from_all(1);
  SendCalls(*other, 1);
  ExpectReplies(*other, 1);
  EXPECT_LE(echoes, kClients + 10);
  for (const auto& peer : crowd) {
    ExpectReplies(*peer, 2);
  }
}

TEST_F(Slices, RepliesLeaveWithTheSliceOfTheirCalls) {
  Serve();
  const uint64_t writes = counters().writes;
  BeginCalls();
  EXPECT_EQ(counters().writes, writes + 1);
  ExpectReplies(*busy, echoes);
}

TEST_F(Slices, NothingIsReadBetweenSlices) {
  Serve();
  BeginCalls();
  const uint64_t bytes = counters().bytes_read;
  SendCalls(*busy, 1);
  lab->RunUntil([this] { return echoes == kCalls; });
  EXPECT_EQ(counters().bytes_read, bytes);
  lab->RunUntil([this] { return echoes == kCalls + 1; });
  EXPECT_GT(counters().bytes_read, bytes);
}

TEST_F(Slices, AServerThatStopsBetweenSlicesHandlesNothingMore) {
  Serve();
  BeginCalls();
  const uint64_t handled = echoes;
  lab->server.reset();
  lab->loop.Run();
  EXPECT_EQ(echoes, handled);
  EXPECT_EQ(busy->AwaitGoodbye(),
            absl::UnavailableError("the server is stopping"));
}

TEST_F(Slices, AConnectionThatFailsBetweenSlicesHandlesNothingMore) {
  Serve({.max_outbox_bytes = 10'000, .busy_outbox_bytes = 10'000});
  lab::Text request;
  request.set_text(std::string(20'000, 'x'));
  std::string bytes;
  AppendCall(*busy, "Park", /*id=*/1'000, request, &bytes);
  busy->SendBytes(bytes);
  lab->RunUntil([&] { return lab->service.parked.size() == 1; });
  BeginCalls();
  const uint64_t handled = echoes;
  // Its reply is too much for the outbox.
  lab->service.parked[0].Complete();
  lab->RunUntil([&] { return counters().connections_now == 0; });
  EXPECT_LE(echoes, handled + 2);
  EXPECT_EQ(busy->AwaitGoodbye().code(), absl::StatusCode::kResourceExhausted);
  lab->RunReady();
  EXPECT_LE(echoes, handled + 2);
}

TEST_F(Slices, ABrokenFrameBehindASliceClosesTheConnectionAfterTheOthers) {
  Serve();
  SendCalls(*busy, kCalls);
  busy->SendBytes(std::string(1, '\0'));
  EXPECT_TRUE(absl::IsInvalidArgument(busy->AwaitGoodbye()));
  EXPECT_EQ(echoes, kCalls);
}

TEST_F(Slices, AClientThatDoesNotReadIsPausedBetweenSlices) {
  Serve({.busy_outbox_bytes = 100'000});
  lab::Number size;
  size.set_number(50'000);
  std::string bytes;
  for (uint64_t id = 0; id < 2 * kCalls; id += 2) {
    AppendCall(*busy, "Echo", id, lab::Text(), &bytes);
    AppendCall(*busy, "Make", id + 1, size, &bytes);
  }
  busy->SendBytes(bytes);
  lab->RunReady();
  EXPECT_EQ(counters().limit_hits.busy_outbox_bytes, 1u);
  EXPECT_LT(echoes, kCalls);
  ExpectReplies(*busy, 2 * kCalls);
  EXPECT_EQ(echoes, kCalls);
}

// Within the handler nothing but the rest of its own connection waits.
// A client's loop is that of its own program.
TEST_F(Slices, AClientHandlesInOneTurnWhatOneReadHasBrought) {
  loop::Loop loop;
  RawServer server(loop);
  uint64_t messages = 0;
  uint64_t messages_at_next_turn = 0;
  const ClientStream stream(
      *server.client, lab::Lab::descriptor()->FindMethodByName("Watch"),
      [&](const StreamMessage&) {
        if (++messages == 1) {
          loop.Post([&] { messages_at_next_turn = messages; });
        }
        Spin();
      },
      [](const absl::Status&) {});
  StreamDataFrame data;
  data.add_stream_ids(1);
  std::string bytes;
  for (uint64_t i = 0; i < kCalls; ++i) {
    AppendFrame(Frame::kStreamData, data, FrameSize(data), &bytes);
  }
  server.peer.SendBytes(bytes);
  ASSERT_TRUE(loop.RunUntil([&] { return messages_at_next_turn > 0; }));
  EXPECT_EQ(messages_at_next_turn, kCalls);
}

TEST_F(Slices, AHandlerThatRunsTheLoopIsNotEnteredAgain) {
  Serve();
  int depth = 0;
  lab->service.on_echo = [&](serving::CallContext*) {
    ++echoes;
    EXPECT_EQ(++depth, 1);
    Spin();
    lab->loop.RunReady();
    --depth;
  };
  SendCalls(*busy, kCalls);
  ExpectReplies(*busy, kCalls);
  EXPECT_EQ(echoes, kCalls);
}

}  // namespace
}  // namespace rpc::transport
