#include "core/common/rpc/serving/streams.h"

#include <algorithm>
#include <utility>

#include "absl/log/absl_check.h"
#include "absl/strings/str_cat.h"

namespace rpc::serving {

using transport::StreamMessage;

class Streams::Endpoint final : public torvane::StreamChannel::Endpoint {
 public:
  Endpoint(Streams& streams, Entry& entry) : streams_(streams), entry_(entry) {}

  bool Send(const StreamMessage& message) override {
    return streams_.Send(entry_, message);
  }
  void Complete() override { streams_.End(entry_, absl::OkStatus()); }

 private:
  Streams& streams_;
  Entry& entry_;
};

// One frame of the client, from its arrival until streams may be destroyed
// again.
class Streams::ClientFrame {
 public:
  explicit ClientFrame(Streams& streams) : streams_(streams) {
    ++streams_.frames_being_handled_;
  }
  ClientFrame(const ClientFrame&) = delete;
  ClientFrame& operator=(const ClientFrame&) = delete;
  ~ClientFrame() {
    if (--streams_.frames_being_handled_ == 0) {
      streams_.FinishEnded();
    }
  }

 private:
  Streams& streams_;
};

Streams::Streams(loop::Sequence& sequence,
                 StreamSink& sink,
                 const ServedMethods& methods,
                 const Limits& limits,
                 ClientRecord& client,
                 Counters& counters)
    : sequence_(sequence),
      sink_(sink),
      methods_(methods),
      limits_(limits),
      client_(client),
      counters_(counters) {}

Streams::~Streams() {
  ABSL_CHECK(entries_.empty()) << "streams would not see their OnCompleted";
  ABSL_CHECK_EQ(questions_, 0u) << "of streams that are gone";
  ABSL_CHECK_EQ(subscriptions_, 0u) << "of streams that are gone";
}

absl::Status Streams::OnClientOpen(uint64_t id, uint32_t method_id) {
  if (entries_.contains(id)) {
    return absl::InvalidArgumentError(
        absl::StrCat("stream id ", id, " is in use"));
  }
  const ServedMethod* method = methods_.Find(method_id);
  const absl::Status refusal = CheckOpen(method, method_id);
  if (!refusal.ok()) {
    ++counters_.streams_refused;
    sink_.SendEnd(id, refusal);
    return absl::OkStatus();
  }
  ++counters_.streams_opened;
  ++counters_.streams_now;
  const ClientFrame frame(*this);
  Entry& entry = entries_[id];
  entry.outgoing.id = id;
  entry.method = method;
  entry.subscriptions.emplace(subscriptions_, counters_);
  if (method->asks_questions()) {
    entry.questions.emplace(*method, questions_);
  }
  entry.stream = method->service->OpenStream(
      method->descriptor,
      torvane::StreamChannel(std::make_unique<Endpoint>(*this, entry)));
  return absl::OkStatus();
}

absl::Status Streams::CheckOpen(const ServedMethod* method,
                                uint32_t method_id) {
  if (method == nullptr) {
    return absl::UnimplementedError(
        absl::StrCat("no method has the id ", method_id));
  }
  if (!method->streaming()) {
    return absl::UnimplementedError(
        absl::StrCat(method->descriptor->full_name(), " is not a stream"));
  }
  if (entries_.size() >= limits_.max_streams) {
    return client_.NoteLimit(
        &LimitHits::max_streams,
        absl::StrCat("max_streams, ", limits_.max_streams, ", are open"));
  }
  return absl::OkStatus();
}

Streams::Entry* Streams::FindOpen(uint64_t id) {
  const auto entry = entries_.find(id);
  if (entry == entries_.end() || entry->second.ended) {
    return nullptr;
  }
  return &entry->second;
}

void Streams::OnClientData(uint64_t id, StreamMessage* message) {
  Entry* entry = FindOpen(id);
  if (entry == nullptr) {
    return;
  }
  const ClientFrame frame(*this);
  const WindowMessage said = entry->method->reader->ReadFromClient(*message);
  const absl::Status refusal =
      CheckMessage(*entry, said, message->payload().size());
  if (!refusal.ok()) {
    End(*entry, refusal);
    return;
  }
  if (entry->questions) {
    entry->questions->OnData(said, message->call_id());
  }
  entry->stream->OnNext(message);
}

// Counts the subscription, too.
absl::Status Streams::CheckMessage(Entry& entry,
                                   const WindowMessage& said,
                                   size_t bytes) {
  const bool subscribes =
      entry.method->kind == torvane::MethodKind::kEventStream ||
      said.kind == WindowMessage::Kind::kSubscribe ||
      said.kind == WindowMessage::Kind::kUnsubscribe;
  if (subscribes && bytes > limits_.max_subscription_bytes) {
    return client_.NoteLimit(
        &LimitHits::max_subscription_bytes,
        absl::StrCat("a subscription takes ", bytes,
                     " bytes, more than max_subscription_bytes, ",
                     limits_.max_subscription_bytes));
  }
  if (!entry.subscriptions->Note(said, limits_.max_subscriptions)) {
    return client_.NoteLimit(
        &LimitHits::max_subscriptions,
        absl::StrCat("max_subscriptions, ", limits_.max_subscriptions,
                     ", are in place"));
  }
  return absl::OkStatus();
}

void Streams::OnClientError(uint64_t id, StreamMessage* message) {
  Entry* entry = FindOpen(id);
  if (entry == nullptr) {
    return;
  }
  const ClientFrame frame(*this);
  if (entry->questions) {
    entry->questions->OnError(entry->method->reader->ReadFromClient(*message),
                              message->call_id());
  }
  entry->stream->OnError(message);
}

void Streams::OnClientEnd(uint64_t id) {
  const auto entry = entries_.find(id);
  if (entry != entries_.end()) {
    const ClientFrame frame(*this);
    Finish(entry);
  }
}

// The entry stays until the stream has said all it wants to say. Should it run
// the loop meanwhile, others may find the entry.
void Streams::Finish(Entries::iterator entry) {
  if (std::exchange(entry->second.completing, true)) {
    return;
  }
  entry->second.stream->OnCompleted();
  End(entry->second, absl::OkStatus());
  entries_.erase(entry);
  --counters_.streams_now;
}

void Streams::FinishAll(const std::vector<uint64_t>& ids) {
  for (const uint64_t id : ids) {
    const auto entry = entries_.find(id);
    if (entry != entries_.end()) {
      Finish(entry);
    }
  }
}

void Streams::FinishEnded() {
  while (!ended_.empty()) {
    FinishAll(std::exchange(ended_, {}));
  }
}

void Streams::FinishEndedSoon() {
  sequence_.Post([weak_self = weak_from_this()] {
    const auto self = weak_self.lock();
    if (self && self->frames_being_handled_ == 0) {
      self->FinishEnded();
    }
  });
}

void Streams::CloseAll() {
  std::vector<uint64_t> ids;
  for (const auto& [id, entry] : entries_) {
    ids.push_back(id);
  }
  FinishAll(ids);
}

void Streams::Report(ConnectionReport& report) const {
  report.streams = entries_.size();
  const auto now = PendingQuestions::Clock::now();
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

bool Streams::Send(Entry& entry, const StreamMessage& message) {
  const bool asks = entry.questions && message.call_id() != 0;
  if (entry.ended || (asks && !MayAsk())) {
    return false;
  }
  const absl::Status sent = sink_.SendMessage(entry.outgoing, message);
  if (absl::IsResourceExhausted(sent)) {
    End(entry, sent);
  }
  if (sent.ok() && asks) {
    entry.questions->OnAsked(message);
  }
  return sent.ok();
}

bool Streams::MayAsk() {
  if (questions_ < limits_.max_questions) {
    return true;
  }
  client_
      .NoteLimit(&LimitHits::max_questions,
                 absl::StrCat("max_questions, ", limits_.max_questions,
                              ", wait for the client's answers, and no more "
                              "are asked"))
      .IgnoreError();
  return false;
}

// Called from within the stream as well, which therefore lives on until a later
// turn.
void Streams::End(Entry& entry, const absl::Status& status) {
  if (std::exchange(entry.ended, true)) {
    return;
  }
  sink_.SendEnd(entry.outgoing.id, status);
  if (!entry.completing) {
    ended_.push_back(entry.outgoing.id);
    FinishEndedSoon();
  }
}

}  // namespace rpc::serving
