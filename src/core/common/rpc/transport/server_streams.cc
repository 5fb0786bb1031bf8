#include "core/common/rpc/transport/server_streams.h"

#include <algorithm>
#include <utility>

#include "absl/log/absl_check.h"
#include "absl/strings/str_cat.h"
#include "core/common/rpc/transport/rpc_status.h"
#include "core/common/rpc/transport/window_message.h"

namespace rpc::transport {
namespace {

// What a frame of stream data may hold besides its message: tags and lengths,
// and then each id of a stream.
constexpr size_t kEnvelopeBytes = 32;
constexpr size_t kStreamIdBytes = 10;

}  // namespace

class ServerStreams::Endpoint final : public torvane::StreamChannel::Endpoint {
 public:
  Endpoint(ServerStreams& streams, Entry& entry)
      : streams_(streams), entry_(entry) {}

  bool Send(const StreamMessage& message) override {
    return streams_.Send(entry_, message);
  }
  void Complete() override { streams_.Complete(entry_); }

 private:
  ServerStreams& streams_;
  Entry& entry_;
};

ServerStreams::ServerStreams(std::shared_ptr<Connection> connection,
                             const ServedMethods& methods,
                             const Limits& limits,
                             ClientRecord& client,
                             Counters& counters)
    : connection_(std::move(connection)),
      methods_(methods),
      limits_(limits),
      client_(client),
      counters_(counters),
      subscriptions_(limits.max_subscriptions, counters) {}

ServerStreams::~ServerStreams() {
  ABSL_CHECK(entries_.empty()) << "streams would not see their OnCompleted";
  ABSL_CHECK_EQ(questions_, 0u) << "of streams that are gone";
}

absl::Status ServerStreams::OnOpen(const StreamOpenFrame& frame) {
  const uint64_t id = frame.stream_id();
  if (entries_.contains(id)) {
    return absl::InvalidArgumentError(
        absl::StrCat("stream id ", id, " is in use"));
  }
  const absl::Status refusal = Refusal(frame);
  if (!refusal.ok()) {
    ++counters_.streams_refused;
    AppendEnd(id, refusal);
    return absl::OkStatus();
  }
  ++counters_.streams_opened;
  ++counters_.streams_now;
  const ServedMethod& method = *methods_.Find(frame.method_id());
  Entry& entry = entries_[id];
  entry.id = id;
  entry.method = &method;
  entry.questions = AskedQuestions::MakeFor(method, questions_);
  entry.stream = method.service->OpenStream(
      method.descriptor,
      torvane::StreamChannel(std::make_unique<Endpoint>(*this, entry)));
  return absl::OkStatus();
}

absl::Status ServerStreams::Refusal(const StreamOpenFrame& frame) {
  const ServedMethod* method = methods_.Find(frame.method_id());
  if (method == nullptr) {
    return absl::UnimplementedError(
        absl::StrCat("no method has the id ", frame.method_id()));
  }
  if (!method->streaming()) {
    return absl::UnimplementedError(
        absl::StrCat(method->descriptor->full_name(), " is not a stream"));
  }
  if (entries_.size() >= limits_.max_streams) {
    return client_.Refuse(
        &LimitHits::max_streams,
        absl::StrCat("max_streams, ", limits_.max_streams, ", are open"));
  }
  return absl::OkStatus();
}

ServerStreams::Entry* ServerStreams::FindOpen(uint64_t id) {
  const auto entry = entries_.find(id);
  if (entry == entries_.end() || entry->second.ended) {
    return nullptr;
  }
  return &entry->second;
}

absl::Status ServerStreams::OnData(StreamDataFrame& frame) {
  // Each stream would parse the message anew, and those of events keep it.
  if (frame.stream_ids_size() != 1) {
    return absl::InvalidArgumentError(
        absl::StrCat("stream_data of a client names one stream, not ",
                     frame.stream_ids_size()));
  }
  if (Entry* entry = FindOpen(frame.stream_ids(0))) {
    Deliver(*entry, frame.mutable_message());
  }
  return absl::OkStatus();
}

void ServerStreams::Deliver(Entry& entry, StreamMessage* message) {
  const WindowMessage said = ReadWindowMessage(*entry.method, *message);
  const bool subscribes = entry.method->kind == MethodKind::kEvents ||
                          said.kind == WindowMessage::Kind::kSubscribe ||
                          said.kind == WindowMessage::Kind::kUnsubscribe;
  if (subscribes &&
      message->payload().size() > limits_.max_subscription_bytes) {
    EndAtLimit(entry, &LimitHits::max_subscription_bytes,
               absl::StrCat("a subscription takes ", message->payload().size(),
                            " bytes, more than max_subscription_bytes, ",
                            limits_.max_subscription_bytes));
    return;
  }
  if (!subscriptions_.Note(said, entry.subscriptions)) {
    EndAtLimit(entry, &LimitHits::max_subscriptions,
               absl::StrCat("max_subscriptions, ", limits_.max_subscriptions,
                            ", are in place"));
    return;
  }
  if (entry.questions) {
    entry.questions->OnData(said, message->call_id());
  }
  entry.stream->OnNext(message);
}

void ServerStreams::OnError(StreamErrorFrame& frame) {
  Entry* entry = FindOpen(frame.stream_id());
  if (entry == nullptr) {
    return;
  }
  if (entry->questions) {
    entry->questions->OnError(
        ReadWindowMessage(*entry->method, frame.message()),
        frame.message().call_id());
  }
  entry->stream->OnError(frame.mutable_message());
}

void ServerStreams::OnEnd(const StreamEndFrame& frame) {
  const auto entry = entries_.find(frame.stream_id());
  if (entry != entries_.end()) {
    Finish(entry);
  }
}

// The entry stays until the stream has said all it wants to say. Should it run
// the loop meanwhile, others may find the entry.
void ServerStreams::Finish(Entries::iterator entry) {
  if (std::exchange(entry->second.completing, true)) {
    return;
  }
  entry->second.stream->OnCompleted();
  Complete(entry->second);
  subscriptions_.Forget(entry->second.subscriptions);
  entries_.erase(entry);
  --counters_.streams_now;
}

void ServerStreams::FinishAll(const std::vector<uint64_t>& ids) {
  for (const uint64_t id : ids) {
    const auto entry = entries_.find(id);
    if (entry != entries_.end()) {
      Finish(entry);
    }
  }
}

void ServerStreams::Reap() {
  FinishAll(std::exchange(ended_, {}));
}

void ServerStreams::ReapSoon() {
  connection_->Post([weak_self = weak_from_this()] {
    const auto self = weak_self.lock();
    // A frame that is being handled may have come from within the stream.
    if (self && !self->connection_->handling()) {
      self->Reap();
    }
  });
}

void ServerStreams::CloseAll() {
  std::vector<uint64_t> ids;
  for (const auto& [id, entry] : entries_) {
    ids.push_back(id);
  }
  FinishAll(ids);
}

void ServerStreams::Report(ConnectionReport& report) const {
  report.streams = entries_.size();
  const auto now = AskedQuestions::Clock::now();
  for (const auto& [id, entry] : entries_) {
    if (entry.questions) {
      entry.questions->Report(now, report);
    }
  }
  std::vector<QuestionReport>& oldest = report.oldest_questions;
  std::stable_sort(oldest.begin(), oldest.end(),
                   [](const QuestionReport& one, const QuestionReport& other) {
                     return one.age > other.age;
                   });
  if (oldest.size() > kReportedQuestions) {
    oldest.resize(kReportedQuestions);
  }
}

bool ServerStreams::Send(Entry& entry, const StreamMessage& message) {
  const size_t frame_bytes = message.ByteSizeLong() + kEnvelopeBytes;
  if (entry.ended || !connection_->CanTake(0) ||
      !MayTake(entry, message, frame_bytes + kStreamIdBytes)) {
    return false;
  }
  if (!Joins(entry, message)) {
    AppendHeld();
    held_.mutable_message()->CopyFrom(message);
    held_bytes_ = frame_bytes;
    ++held_number_;
  }
  entry.last_held = held_number_;
  held_.add_stream_ids(entry.id);
  held_bytes_ += kStreamIdBytes;
  connection_->WriteSoon();
  if (entry.questions) {
    entry.questions->OnSent(message);
  }
  return true;
}

// Whether the client's limits, and ours for it, let the message through.
bool ServerStreams::MayTake(Entry& entry,
                            const StreamMessage& message,
                            size_t frame_bytes) {
  if (!connection_->Suits(frame_bytes)) {
    EndAtLimit(entry, &LimitHits::max_frame_bytes,
               absl::StrCat("a message takes a frame of ", frame_bytes,
                            " bytes, more than the client's max_frame_bytes, ",
                            connection_->peer_max_frame_bytes()));
    return false;
  }
  const bool asks = entry.questions && message.call_id() != 0;
  if (asks && questions_ >= limits_.max_questions) {
    client_
        .Refuse(&LimitHits::max_questions,
                absl::StrCat(
                    "max_questions, ", limits_.max_questions,
                    ", wait for the client's answers, and no more are asked"))
        .IgnoreError();
    return false;
  }
  return true;
}

// Whether the message held back is `message`, and has yet to go to `entry`.
bool ServerStreams::Joins(const Entry& entry,
                          const StreamMessage& message) const {
  return !held_.stream_ids().empty() && entry.last_held != held_number_ &&
         held_.message().call_id() == message.call_id() &&
         held_.message().payload() == message.payload() &&
         connection_->Suits(held_bytes_ + kStreamIdBytes);
}

void ServerStreams::AppendHeld() {
  if (held_.stream_ids().empty()) {
    return;
  }
  connection_->Append(Frame::kStreamData, held_);
  held_.clear_stream_ids();
  FreeIfLarge(held_, held_.message().payload().capacity());
}

void ServerStreams::EndAtLimit(Entry& entry,
                               uint64_t LimitHits::*limit,
                               const std::string& text) {
  End(entry, client_.Refuse(limit, text));
}

void ServerStreams::End(Entry& entry, const absl::Status& status) {
  if (std::exchange(entry.ended, true)) {
    return;
  }
  AppendEnd(entry.id, status);
  if (!entry.completing) {
    ended_.push_back(entry.id);
    ReapSoon();
  }
}

void ServerStreams::AppendEnd(uint64_t id, const absl::Status& status) {
  AppendHeld();
  end_.Clear();
  end_.set_stream_id(id);
  if (!status.ok()) {
    ToWire(status, end_.mutable_status());
  }
  connection_->Append(Frame::kStreamEnd, end_);
}

}  // namespace rpc::transport
