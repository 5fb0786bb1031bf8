#include "core/common/rpc/transport/fuzzing/fuzzed_server.h"

#include <gtest/gtest.h>

#include <numeric>
#include <set>
#include <system_error>
#include <utility>

#include "core/common/rpc/serving/limits.h"
#include "core/common/rpc/testing/socket_pair.h"
#include "core/common/rpc/transport/testing/lab.h"

namespace rpc::transport {
namespace {

// Small enough for a fuzzer to get beyond them.
ServerOptions Options() {
  ServerOptions options;
  options.limits.max_frame_bytes = serving::kMinFrameBytes;
  options.limits.max_client_frame_bytes = serving::kMinFrameBytes;
  options.limits.max_outbox_bytes = 64 << 10;
  options.limits.busy_outbox_bytes = 4 << 10;
  options.limits.max_calls = 3;
  options.limits.max_streams = 3;
  options.limits.max_subscriptions = 4;
  options.limits.max_questions = 3;
  return options;
}

template <typename Body>
Body Parse(const Utterance& utterance) {
  Body body;
  EXPECT_TRUE(body.ParseFromString(utterance.body));
  return body;
}

int64_t Sum(const std::map<uint64_t, int>& debts) {
  return std::accumulate(
      debts.begin(), debts.end(), int64_t{0},
      [](int64_t sum, const auto& debt) { return sum + debt.second; });
}

}  // namespace

FuzzedServer::FuzzedServer()
    : server_(std::make_unique<Server>(loop_, Options())),
      socket_(loop_.context()) {
  server_->AddService(&service_);
  auto [ours, theirs] = torvane::SocketPair();
  socket_ = Watch(loop_, std::move(ours));
  server_->Adopt(std::move(theirs));
}

FuzzedServer::~FuzzedServer() {
  std::error_code ignored;
  socket_.shutdown(asio::socket_base::shutdown_send, ignored);
  RunAndListen();
  const serving::Counters& counters = server_->counters();
  EXPECT_EQ(counters.connections_now, 0u);
  EXPECT_EQ(counters.calls_now, 0u);
  EXPECT_EQ(counters.streams_now, 0u);
  EXPECT_EQ(counters.subscriptions_now, 0u);
  EXPECT_LE(counters.protocol_violations, refused_ ? 1u : 0u);
  server_.reset();
}

void FuzzedServer::Say(const Utterance& utterance) {
  Note(utterance);
  std::string_view rest = utterance.bytes;
  // If a write makes no progress after the server has run, the server is closed
  // or has paused; only this client could change that, so give up.
  for (size_t left = 0; !rest.empty() && rest.size() != left;) {
    left = rest.size();
    rest = WriteSome(socket_, rest);
    RunAndListen();
  }
}

void FuzzedServer::Note(const Utterance& utterance) {
  if (utterance.kind == Frame::kCall) {
    CallFrame call;
    if (call.ParseFromString(utterance.body)) {
      ++replies_[call.call_id()];
    }
  } else if (utterance.kind == Frame::kStreamOpen) {
    StreamOpenFrame open;
    if (open.ParseFromString(utterance.body)) {
      ++ends_[open.stream_id()];
    }
  }
}

void FuzzedServer::RunAndListen() {
  loop_.RunReady();
  for (const Utterance& utterance : Cut(ReadAll(socket_))) {
    Hear(utterance);
  }
}

void FuzzedServer::Hear(const Utterance& utterance) {
  EXPECT_FALSE(refused_) << "something follows the goodbye";
  EXPECT_TRUE(welcomed_ || utterance.kind == Frame::kWelcome ||
              utterance.kind == Frame::kGoodbye)
      << "something precedes the welcome";
  switch (utterance.kind) {
    case Frame::kWelcome:
      return HearWelcome(Parse<WelcomeFrame>(utterance));
    case Frame::kReply:
      return HearReply(Parse<ReplyFrame>(utterance));
    case Frame::kStreamData:
      return HearData(Parse<StreamDataFrame>(utterance));
    case Frame::kStreamEnd:
      return HearEnd(Parse<StreamEndFrame>(utterance));
    case Frame::kGoodbye:
      EXPECT_NE(Parse<GoodbyeFrame>(utterance).status().code(), 0);
      refused_ = true;
      return;
    default:
      ADD_FAILURE() << "a server says no frame of kind " << utterance.kind;
  }
}

void FuzzedServer::HearWelcome(const WelcomeFrame& welcome) {
  EXPECT_FALSE(std::exchange(welcomed_, true)) << "a second welcome";
  EXPECT_EQ(welcome.services_size(), 1);
}

void FuzzedServer::HearReply(const ReplyFrame& reply) {
  NoteReceived(replies_, reply.call_id());
}

void FuzzedServer::HearData(const StreamDataFrame& data) {
  const std::set<uint64_t> ids(data.stream_ids().begin(),
                               data.stream_ids().end());
  EXPECT_FALSE(ids.empty());
  EXPECT_EQ(ids.size(), static_cast<size_t>(data.stream_ids_size()));
  for (const uint64_t id : ids) {
    EXPECT_TRUE(ends_.contains(id)) << "data on a stream that is not open";
  }
}

void FuzzedServer::HearEnd(const StreamEndFrame& end) {
  NoteReceived(ends_, end.stream_id());
}

void FuzzedServer::NoteReceived(std::map<uint64_t, int>& debts, uint64_t id) {
  const auto debt = debts.find(id);
  if (debt == debts.end()) {
    ADD_FAILURE() << "nobody has asked for the end of " << id;
    return;
  }
  if (--debt->second == 0) {
    debts.erase(debt);
  }
}

void FuzzedServer::CheckBalance() const {
  const serving::Counters& counters = server_->counters();
  if (counters.connections_now == 0) {
    return;
  }
  EXPECT_EQ(Sum(replies_), static_cast<int64_t>(counters.calls_now));
  EXPECT_EQ(Sum(ends_), static_cast<int64_t>(counters.streams_now));
}

}  // namespace rpc::transport
