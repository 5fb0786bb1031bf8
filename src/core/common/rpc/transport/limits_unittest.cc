// Each limit is kept to the number: what is accepted at it, what is refused
// beyond it and in which words, that it is counted under its own name, that the
// host's records name the client, and that another client notices nothing.

#include "core/common/rpc/transport/limits.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <map>
#include <optional>
#include <string>
#include <vector>

#include "absl/strings/str_cat.h"
#include "base/logging.h"
#include "core/common/rpc/transport/lab.h"

namespace rpc::transport {
namespace {

using lab::Lab_Stub;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

using Hits = std::map<std::string, uint64_t>;

// The limits that have bitten.
Hits HitsOf(const Counters& counters) {
  Hits hits;
  for (const NamedLimit& limit : kNamedLimits) {
    if (const uint64_t count = counters.limit_hits.*limit.hits; count > 0) {
      hits[limit.name] = count;
    }
  }
  return hits;
}

TEST(NamedLimits, AreTheLimitsInTheirOrder) {
  const auto& [a, b, c, d, e, f, g, h] = Limits();
  static_cast<void>(std::tie(a, b, c, d, e, f, g, h));
  std::vector<std::string> names;
  for (const NamedLimit& limit : kNamedLimits) {
    names.emplace_back(limit.name);
  }
  EXPECT_THAT(names,
              ElementsAre("max_frame_bytes", "max_outbox_bytes",
                          "busy_outbox_bytes", "max_connections", "max_calls",
                          "max_streams", "handshake_timeout", "accept_pause"));
}

TEST(NamedLimits, EachHasItsOwnCounter) {
  LimitHits hits;
  hits.max_frame_bytes = 1;
  hits.max_outbox_bytes = 2;
  hits.busy_outbox_bytes = 3;
  hits.max_connections = 4;
  hits.max_calls = 5;
  hits.max_streams = 6;
  hits.handshake_timeout = 7;
  hits.accept_pause = 8;
  Counters counters;
  counters.limit_hits = hits;
  EXPECT_EQ(HitsOf(counters), (Hits{{"max_frame_bytes", 1},
                                    {"max_outbox_bytes", 2},
                                    {"busy_outbox_bytes", 3},
                                    {"max_connections", 4},
                                    {"max_calls", 5},
                                    {"max_streams", 6},
                                    {"handshake_timeout", 7},
                                    {"accept_pause", 8}}));
}

// A server with small limits, and a client that must notice nothing of what
// others run into.
class LimitsTest : public ::testing::Test {
 protected:
  LimitsTest() {
    records_.clear();
    logging::SetLogMessageHandler(&Keep);
  }
  ~LimitsTest() override { logging::SetLogMessageHandler(nullptr); }

  void Serve(const Limits& limits) {
    ServerOptions options;
    options.limits = limits;
    lab_.emplace(options);
    ClientOptions bystander;
    bystander.name = "bystander";
    bystander_ = lab_->NewClient(bystander);
  }
  std::unique_ptr<Client> NewClient() {
    ClientOptions options;
    options.name = "tester";
    return lab_->NewClient(options);
  }

  // Texts of the host's records since the last time.
  std::vector<std::string> TakeRecords() { return std::exchange(records_, {}); }
  // How records name a client.
  static std::string Who(const std::string& name) {
    return absl::StrCat(name, " (", Process(), ")");
  }
  static std::string Process() {
    return absl::StrCat("pid ", getpid(), ", user ", getuid());
  }

  Hits hits() { return HitsOf(lab_->server->counters()); }

  void ExpectBystanderIsServed() {
    EXPECT_EQ(CallText(*bystander_, &Lab_Stub::Echo, "still here").value(),
              "still here");
  }

  std::optional<Lab> lab_;

 private:
  static bool Keep(int,
                   const char*,
                   int,
                   size_t message_start,
                   const std::string& record) {
    records_.push_back(
        record.substr(message_start, record.size() - message_start - 1));
    return true;
  }

  static inline std::vector<std::string> records_;
  std::unique_ptr<Client> bystander_;
};

TEST_F(LimitsTest, MaxConnections) {
  Serve({.max_connections = 2});
  auto last = NewClient();
  EXPECT_THAT(hits(), IsEmpty());
  const absl::Status refusal =
      absl::ResourceExhaustedError("max_connections, 2, are open");
  for (int i = 0; i < 2; ++i) {
    EXPECT_EQ(Client::Adopt(lab_->loop, lab_->Connect()).status(), refusal);
  }
  EXPECT_EQ(hits(), (Hits{{"max_connections", 2}}));
  const std::string record = absl::StrCat("Refused the connection of ",
                                          Process(), ": ", refusal.ToString());
  EXPECT_THAT(TakeRecords(), ElementsAre(record, record));
  ExpectBystanderIsServed();
  last.reset();
  lab_->RunReady();
  EXPECT_NE(NewClient(), nullptr);
}

TEST_F(LimitsTest, MaxCalls) {
  Serve({.max_calls = 2});
  const auto client = NewClient();
  TextCall calls[4];
  calls[0].Start(*client, &Lab_Stub::Park, "");
  calls[1].Start(*client, &Lab_Stub::Park, "");
  lab_->RunReady();
  EXPECT_EQ(lab_->service.parked.size(), 2u);
  EXPECT_THAT(hits(), IsEmpty());

  calls[2].Start(*client, &Lab_Stub::Park, "");
  calls[3].Start(*client, &Lab_Stub::Park, "");
  lab_->RunReady();
  const absl::Status refusal =
      absl::ResourceExhaustedError("max_calls, 2, are in flight");
  EXPECT_EQ(calls[2].controller.status(), refusal);
  EXPECT_EQ(calls[3].controller.status(), refusal);
  EXPECT_EQ(hits(), (Hits{{"max_calls", 2}}));
  // The second refusal of its kind is only counted.
  EXPECT_THAT(TakeRecords(),
              ElementsAre(absl::StrCat("Refused a request of ", Who("tester"),
                                       ": ", refusal.ToString())));
  ExpectBystanderIsServed();
  lab_->service.parked[0].Complete();
  lab_->service.parked[1].Complete();
  lab_->RunReady();
  EXPECT_TRUE(CallText(*client, &Lab_Stub::Echo, "").ok());
}

// Streams that only the test's peer opens.
class StreamLimits : public LimitsTest {
 protected:
  void Open(RawPeer& peer, uint64_t id, const std::string& method = "Watch") {
    StreamOpenFrame open;
    open.set_stream_id(id);
    open.set_method_id(peer.IdOf(method));
    peer.Send(Frame::kStreamOpen, open);
    lab_->RunReady();
  }
};

TEST_F(StreamLimits, MaxStreams) {
  Serve({.max_streams = 2});
  const auto peer = lab_->NewPeer();
  Open(*peer, 1);
  Open(*peer, 2);
  EXPECT_EQ(lab_->server->counters().streams_now, 2u);
  EXPECT_THAT(hits(), IsEmpty());

  Open(*peer, 3);
  const std::optional<Frame> end = peer->Receive();
  ASSERT_TRUE(end && end->has_stream_end());
  EXPECT_EQ(end->stream_end().stream_id(), 3u);
  EXPECT_EQ(end->stream_end().status().code(), 8);
  EXPECT_EQ(end->stream_end().status().text(), "max_streams, 2, are open");
  EXPECT_EQ(lab_->server->counters().streams_now, 2u);
  EXPECT_EQ(hits(), (Hits{{"max_streams", 1}}));
  EXPECT_THAT(TakeRecords(),
              ElementsAre(absl::StrCat(
                  "Refused a request of ", Who("raw"),
                  ": RESOURCE_EXHAUSTED: max_streams, 2, are open")));
  ExpectBystanderIsServed();
}

TEST_F(LimitsTest, MaxFrameBytesOfTheServer) {
  Serve({.max_frame_bytes = 10'000});
  const auto client = NewClient();
  // A frame of 10,000 bytes holds a text of 9,989.
  const std::string longest(9'989, 'x');
  EXPECT_TRUE(CallText(*client, &Lab_Stub::Echo, longest).ok());
  EXPECT_THAT(hits(), IsEmpty());

  // Our client does not even send it,
  EXPECT_EQ(CallText(*client, &Lab_Stub::Echo, longest + 'x').status(),
            absl::ResourceExhaustedError(
                "the request takes a frame of 10001 bytes, more than the "
                "server's max_frame_bytes, 10000"));
  EXPECT_EQ(HitsOf(client->counters()), (Hits{{"max_frame_bytes", 1}}));

  // another one is closed for it.
  const auto peer = lab_->NewPeer();
  CallFrame call;
  call.set_request(std::string(10'000, 'x'));
  peer->Send(Frame::kCall, call);
  const absl::Status why = absl::ResourceExhaustedError(
      "a frame of 10006 bytes exceeds max_frame_bytes, 10000");
  EXPECT_EQ(peer->AwaitGoodbye(), why);
  EXPECT_EQ(hits(), (Hits{{"max_frame_bytes", 1}}));
  EXPECT_THAT(TakeRecords(),
              ElementsAre(absl::StrCat("Closed the connection of ", Who("raw"),
                                       ": ", why.ToString())));
  ExpectBystanderIsServed();
}

TEST_F(LimitsTest, MaxFrameBytesOfTheClient) {
  Serve({});
  ClientOptions options;
  options.name = "small";
  options.limits.max_frame_bytes = 10'000;
  const auto client = lab_->NewClient(options);
  const std::string longest(9'989, 'x');
  EXPECT_TRUE(CallText(*client, &Lab_Stub::Echo, longest).ok());
  EXPECT_THAT(hits(), IsEmpty());

  const absl::Status refusal = absl::ResourceExhaustedError(
      "the response takes a frame of 10001 bytes, more than the client's "
      "max_frame_bytes, 10000");
  EXPECT_EQ(CallText(*client, &Lab_Stub::Echo, longest + 'x').status(),
            refusal);
  EXPECT_EQ(hits(), (Hits{{"max_frame_bytes", 1}}));
  EXPECT_THAT(TakeRecords(),
              ElementsAre(absl::StrCat("Refused a request of ", Who("small"),
                                       ": ", refusal.ToString())));
  ExpectBystanderIsServed();
}

TEST_F(LimitsTest, HandshakeTimeout) {
  Serve({.handshake_timeout = std::chrono::milliseconds(5)});
  EXPECT_THAT(hits(), IsEmpty());
  RawPeer silent(lab_->loop, lab_->Connect());
  const absl::Status why =
      absl::DeadlineExceededError("no hello within handshake_timeout, 5 ms");
  EXPECT_EQ(silent.AwaitGoodbye(), why);
  EXPECT_EQ(hits(), (Hits{{"handshake_timeout", 1}}));
  EXPECT_THAT(TakeRecords(),
              ElementsAre(absl::StrCat("Closed the connection of ", Process(),
                                       ": ", why.ToString())));
  ExpectBystanderIsServed();
}

}  // namespace
}  // namespace rpc::transport
