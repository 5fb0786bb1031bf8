// How frames share writes, and what happens when the other side does not read.

#include "core/common/rpc/transport/wire/connection.h"

#include <gtest/gtest.h>
#include <sys/socket.h>

#include <functional>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "core/common/rpc/testing/socket_pair.h"
#include "core/common/rpc/transport/client/client_stream.h"
#include "core/common/rpc/transport/testing/lab.h"

namespace rpc::transport {
namespace {

using lab::Lab_Stub;

class Writing : public ::testing::Test {
 protected:
  const serving::Counters& counters() { return lab.server->counters(); }

  // The bytes of `count` calls of `method`.
  std::string Calls(const std::string& method, int count) {
    std::string bytes;
    for (int i = 0; i < count; ++i) {
      CallFrame call;
      call.set_call_id(static_cast<uint64_t>(i));
      call.set_method_id(peer->IdOf(method));
      AppendFrame(Frame::kCall, call, FrameSize(call), &bytes);
    }
    return bytes;
  }

  void ExpectReplies(uint64_t count) {
    for (uint64_t id = 0; id < count; ++id) {
      const auto frame = peer->Receive();
      ASSERT_TRUE(frame && frame->has_reply());
      EXPECT_EQ(frame->reply().call_id(), id);
    }
  }

  Lab lab{WithLargeRequests()};
  std::unique_ptr<RawPeer> peer = lab.NewPeer();
};

TEST_F(Writing, ASingleReplyIsWrittenWhileItsCallIsRead) {
  const uint64_t writes = counters().writes;
  peer->SendBytes(Calls("Echo", 1));
  // Runs one turn; fails if a second one is needed.
  EXPECT_EQ(lab.loop.context().run_one(), 1u);
  EXPECT_EQ(counters().writes, writes + 1);
}

// A slice has room for two calls, however slow the machine is.
TEST_F(Writing, RepliesThatAreReadyTogetherShareOneWrite) {
  const uint64_t writes = counters().writes;
  peer->SendBytes(Calls("Echo", 2));
  ExpectReplies(2);
  EXPECT_EQ(counters().writes, writes + 1);
  peer->SendBytes(Calls("Echo", 100));
  ExpectReplies(100);
  EXPECT_LE(counters().writes, writes + 1 + 100 / 2);
}

TEST_F(Writing, RepliesCompletedInOneTurnLaterShareOneWrite) {
  peer->SendBytes(Calls("Park", 50));
  lab.RunUntil([&] { return lab.service.parked.size() == 50; });
  const uint64_t writes = counters().writes;
  for (const auto& parked : lab.service.parked) {
    parked.Complete();
  }
  EXPECT_EQ(counters().writes, writes);
  lab.RunReady();
  EXPECT_EQ(counters().writes, writes + 1);
  EXPECT_EQ(counters().calls_now, 0u);
}

TEST_F(Writing, CallsStartedInOneTurnShareOneWrite) {
  const auto client = lab.NewClient();
  const uint64_t writes = client->counters().writes;
  TextCall calls[20];
  for (TextCall& call : calls) {
    call.Start(*client, &Lab_Stub::Echo, "x");
  }
  lab.RunUntil([&] { return calls[19].over(); });
  EXPECT_EQ(client->counters().writes, writes + 1);
}

TEST_F(Writing, EverythingArrivesAlsoThroughAVerySmallSocketBuffer) {
  loop::ScopedFd socket = lab.Connect();
  const int smallest = 1;
  ASSERT_EQ(setsockopt(socket.get(), SOL_SOCKET, SO_SNDBUF, &smallest,
                       sizeof(smallest)),
            0);
  auto client = Client::Adopt(lab.loop, std::move(socket));
  ASSERT_TRUE(client.ok());
  const std::string text(2'000'000, 'x');
  EXPECT_EQ(CallText(**client, &Lab_Stub::Echo, text).value(), text);
  EXPECT_GT((*client)->counters().writes, 10u);
}

class HeldWrites : public ::testing::Test, public Connection::Delegate {
 protected:
  HeldWrites() {
    connection->Start(std::shared_ptr<Connection::Delegate>(this, [](auto) {}));
  }
  ~HeldWrites() override { connection->Close(absl::CancelledError("over")); }

  void Append() { connection->Append(Frame::kCancel, CancelFrame()); }

  loop::Loop loop;
  std::pair<loop::ScopedFd, loop::ScopedFd> sockets = torvane::SocketPair();
  std::shared_ptr<serving::Counters> counters =
      std::make_shared<serving::Counters>();
  std::shared_ptr<Connection> connection =
      std::make_shared<Connection>(Connection::Side::kClient,
                                   Watch(loop, std::move(sockets.first)),
                                   serving::Limits(),
                                   counters);

 private:
  absl::Status OnFrame(const FrameView&) override { return absl::OkStatus(); }
  void OnClosed(const absl::Status&) override {}
};

TEST_F(HeldWrites, AHeldWriteTakesNoTurnOfTheLoop) {
  connection->HoldWrites();
  Append();
  loop.RunReady();
  EXPECT_EQ(counters->writes, 0u);
  connection->Write();
  EXPECT_EQ(counters->writes, 1u);
}

TEST_F(HeldWrites, HoldingEndsWithTheNextWrite) {
  connection->HoldWrites();
  connection->Write();
  Append();
  loop.RunReady();
  EXPECT_EQ(counters->writes, 1u);
}

TEST_F(HeldWrites, AHeldWriteTakesAlongWhatATurnWouldHaveWritten) {
  Append();
  connection->HoldWrites();
  loop.RunReady();
  EXPECT_EQ(counters->writes, 0u);
  Append();
  connection->Write();
  EXPECT_EQ(counters->writes, 1u);
  EXPECT_EQ(counters->frames_written, 2u);
}

// If the call had taken a turn of the loop to write, the second call would have
// been written in it.
TEST(BlockingCall, ABlockingCallTakesNoTurnOfTheLoopToWrite) {
  Lab lab;
  const auto client = lab.NewClient();
  const uint64_t writes = client->counters().writes;
  TextCall second;
  uint64_t writes_a_turn_later = 0;
  lab.loop.Post([&] {
    lab.loop.Post([&] { writes_a_turn_later = client->counters().writes; });
    second.Start(*client, &Lab_Stub::Echo, "x");
  });
  EXPECT_TRUE(CallText(*client, &Lab_Stub::Echo, "x").ok());
  EXPECT_EQ(writes_a_turn_later, writes + 1);
  lab.RunUntil([&] { return second.over(); });
}

// A peer that sends calls but takes no replies.
class SlowReader : public ::testing::Test {
 protected:
  void Serve(size_t busy, size_t max) {
    ServerOptions options = WithLargeRequests();
    options.limits.busy_outbox_bytes = busy;
    options.limits.max_outbox_bytes = max;
    lab.emplace(options);
    peer = lab->NewPeer();
  }
  const serving::Counters& counters() { return lab->server->counters(); }

  // Calls Make for a large response.
  void Call(uint64_t id) {
    CallFrame call;
    lab::Number size;
    size.set_number(kResponseBytes);
    call.set_call_id(id);
    call.set_method_id(peer->IdOf("Make"));
    size.SerializeToString(call.mutable_request());
    peer->Send(Frame::kCall, call);
  }

  // Completes so many calls at once, which have been read although nothing of
  // their replies was.
  void CompleteCalls(uint64_t count) {
    lab::Text request;
    request.set_text(std::string(size_t{kResponseBytes}, 'x'));
    for (uint64_t id = 0; id < count; ++id) {
      CallFrame call = peer->CallOf("Park", id);
      request.SerializeToString(call.mutable_request());
      peer->Send(Frame::kCall, call);
    }
    lab->RunUntil([&] { return lab->service.parked.size() == count; });
    for (const auto& parked : lab->service.parked) {
      parked.Complete();
    }
  }

  static constexpr int64_t kResponseBytes = 100'000;
  std::optional<Lab> lab;
  std::unique_ptr<RawPeer> peer;
};

TEST_F(SlowReader, ASlowReaderIsReadNoFurtherUntilItReads) {
  Serve(/*busy=*/500'000, /*max=*/2'000'000);
  constexpr uint64_t kCalls = 100;
  for (uint64_t id = 0; id < kCalls; ++id) {
    Call(id);
  }
  lab->RunReady();
  EXPECT_GT(counters().calls_started, 4u);
  EXPECT_LT(counters().calls_started, 20u);
  for (uint64_t id = 0; id < kCalls; ++id) {
    const auto frame = peer->Receive();
    ASSERT_TRUE(frame && frame->has_reply());
    EXPECT_EQ(frame->reply().call_id(), id);
    EXPECT_GT(frame->reply().response().size(), size_t{kResponseBytes});
  }
  EXPECT_EQ(counters().calls_started, kCalls);
  EXPECT_EQ(counters().limit_hits.max_outbox_bytes, 0u);
}

TEST_F(SlowReader, ASlowReaderDoesNotHoldUpOthers) {
  Serve(/*busy=*/500'000, /*max=*/2'000'000);
  for (uint64_t id = 0; id < 100; ++id) {
    Call(id);
  }
  lab->RunReady();
  const auto client = lab->NewClient();
  EXPECT_EQ(CallText(*client, &Lab_Stub::Echo, "quick").value(), "quick");
}

TEST_F(SlowReader, ASlowReaderIsClosedWhenTooMuchWouldWaitForIt) {
  Serve(/*busy=*/1'000'000, /*max=*/1'000'000);
  CompleteCalls(50);
  lab->RunUntil([&] { return counters().connections_now == 0; });
  EXPECT_EQ(counters().limit_hits.max_outbox_bytes, 1u);
}

// A frame that is partly written would have to be completed before a goodbye;
// the server does not wait for that.
TEST_F(SlowReader, ASlowReaderGetsNoGoodbyeThatItsSocketDoesNotTake) {
  Serve(/*busy=*/1'000'000, /*max=*/1'000'000);
  CompleteCalls(50);
  lab->RunUntil([&] { return counters().connections_now == 0; });
  EXPECT_EQ(peer->AwaitGoodbye(), absl::OkStatus());
  lab->server.reset();
  // Only a socket or a timer could keep the loop running now.
  lab->loop.Run();
}

TEST_F(SlowReader, ASlowReaderDoesNotHoldUpTheEndOfTheServer) {
  Serve(/*busy=*/500'000, /*max=*/2'000'000);
  for (uint64_t id = 0; id < 100; ++id) {
    Call(id);
  }
  lab->RunReady();
  lab->server->Stop();
  lab->RunReady();
  EXPECT_EQ(counters().connections_now, 0u);
}

// Its socket still takes the goodbye, in place of frames that have not begun to
// leave.
TEST_F(SlowReader,
       ASlowReaderLearnsWhyItIsClosedWhereItsSocketTakesTheGoodbye) {
  Serve(/*busy=*/8'192, /*max=*/8'192);
  Call(0);
  EXPECT_EQ(peer->AwaitGoodbye(),
            absl::ResourceExhaustedError(
                "the client reads too slowly: more than max_outbox_bytes, "
                "8192, would wait for it"));
}

TEST_F(SlowReader, APausedReaderThatGoesIsNoticed) {
  Serve(/*busy=*/500'000, /*max=*/2'000'000);
  for (uint64_t id = 0; id < 100; ++id) {
    Call(id);
  }
  lab->RunReady();
  peer->Close();
  lab->RunUntil([&] { return counters().connections_now == 0; });
}

TEST(ClientOutbox, ACallThatDoesNotFitFailsAloneAtOnce) {
  Lab lab{WithLargeRequests()};
  ClientOptions options;
  options.limits.max_outbox_bytes = 1'000'000;
  options.limits.busy_outbox_bytes = 1'000'000;
  const auto client = lab.NewClient(options);
  TextCall calls[3];
  for (TextCall& call : calls) {
    call.Start(*client, &Lab_Stub::Echo, std::string(600'000, 'x'));
  }
  lab.RunUntil(
      [&] { return calls[0].over() && calls[1].over() && calls[2].over(); });
  EXPECT_TRUE(calls[0].controller.status().ok());
  EXPECT_EQ(calls[2].controller.status(),
            absl::ResourceExhaustedError(
                "the server reads too slowly: more than max_outbox_bytes, "
                "1000000, would wait for it"));
  EXPECT_EQ(CallText(*client, &Lab_Stub::Echo, "x").value(), "x");
}

// A client whose server does not read.
class UnreadClient : public ::testing::Test {
 protected:
  static ClientOptions Options() {
    ClientOptions options;
    options.limits.max_outbox_bytes = 1'000'000;
    options.limits.busy_outbox_bytes = 1'000'000;
    return options;
  }
  static const google::protobuf::MethodDescriptor* Watch() {
    return lab::Lab::descriptor()->FindMethodByName("Watch");
  }

  // Fills the outbox to within a few bytes of its limit.
  void FillOutbox() {
    for (size_t size = 1 << 19; size > 0; size /= 2) {
      for (int i = 0; i < 4; ++i) {
        calls.push_back(std::make_unique<TextCall>());
        calls.back()->Start(*server.client, &Lab_Stub::Echo,
                            std::string(size, 'x'));
      }
    }
  }
  const serving::Counters& counters() { return server.client->counters(); }
  void RunUntil(const std::function<bool()>& condition) {
    ASSERT_TRUE(loop.RunUntil(condition));
  }

  const absl::Status full = absl::ResourceExhaustedError(
      "the server reads too slowly: more than max_outbox_bytes, 1000000, "
      "would wait for it");
  loop::Loop loop;
  std::vector<std::unique_ptr<TextCall>> calls;
  RawServer server{loop, Options()};
};

TEST_F(UnreadClient, AClientOpensNoStreamBeyondTheLimit) {
  FillOutbox();
  const uint64_t hits = counters().limit_hits.max_outbox_bytes;
  std::vector<absl::Status> ends;
  std::vector<std::unique_ptr<ClientStream>> streams;
  for (int i = 0; i < 10; ++i) {
    streams.push_back(std::make_unique<ClientStream>(
        *server.client, Watch(), [](const StreamMessage&) {},
        [&](const absl::Status& end) { ends.push_back(end); }));
  }
  loop.RunReady();
  ASSERT_GT(ends.size(), 5u);
  EXPECT_EQ(ends[0], full);
  EXPECT_EQ(counters().limit_hits.max_outbox_bytes, hits + ends.size());
  EXPECT_TRUE(server.client->status().ok());
}

TEST_F(UnreadClient, AClientDropsAStreamsMessageBeyondTheLimit) {
  ClientStream stream(
      *server.client, Watch(), [](const StreamMessage&) {},
      [](const absl::Status&) {});
  FillOutbox();
  const uint64_t hits = counters().limit_hits.max_outbox_bytes;
  StreamMessage message;
  message.set_payload(std::string(1'000, 'x'));
  EXPECT_FALSE(stream.Send(message));
  EXPECT_EQ(counters().limit_hits.max_outbox_bytes, hits + 1);
  EXPECT_TRUE(server.client->status().ok());
}

TEST_F(UnreadClient, AClientThatCannotEvenRefuseIsClosed) {
  absl::Status end;
  ClientStream stream(
      *server.client, Watch(), [](const StreamMessage&) {},
      [&](const absl::Status& status) { end = status; });
  FillOutbox();
  StreamMessage refusal;
  refusal.set_payload("no");
  int sent = 0;
  while (sent < 100 && stream.SendError(refusal)) {
    ++sent;
  }
  EXPECT_LT(sent, 10);
  RunUntil([&] { return !server.client->status().ok(); });
  EXPECT_EQ(server.client->status(), full);
  EXPECT_EQ(end, full);
  // The socket is full, so there is no goodbye.
  EXPECT_EQ(server.peer.AwaitGoodbye(), absl::OkStatus());
}

}  // namespace
}  // namespace rpc::transport
