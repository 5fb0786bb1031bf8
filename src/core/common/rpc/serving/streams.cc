#include "core/common/rpc/serving/streams.h"

#include <algorithm>
#include <utility>

#include "absl/log/absl_check.h"
#include "absl/strings/str_cat.h"
#include "core/common/rpc/serving/enter_service.h"

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
    if (--streams_.frames_being_handled_ > 0) {
      return;
    }
    while (streams_.FinishNextEnded()) {
    }
    if (streams_.closed_) {
      streams_.endings_.Wake();
    }
  }

 private:
  Streams& streams_;
};

Streams::Streams(EndingQueue& endings,
                 StreamSink& sink,
                 const ServedMethods& methods,
                 const Limits& limits,
                 ClientRecord& client,
                 Counters& counters,
                 UnclearMessages unclear)
    : endings_(endings),
      sink_(sink),
      methods_(methods),
      limits_(limits),
      client_(client),
      counters_(counters),
      unclear_(unclear) {}

Streams::~Streams() {
  ABSL_CHECK(entries_.empty()) << "streams would not see their OnCompleted";
  ABSL_CHECK(questions_.empty()) << "of streams that are gone";
  ABSL_CHECK_EQ(subscriptions_, 0u) << "of streams that are gone";
}

absl::Status Streams::OnClientOpen(uint64_t id, uint64_t method_id) {
  if (entries_.contains(id)) {
    return absl::InvalidArgumentError(
        absl::StrCat("stream id ", id, " is in use"));
  }
  const ServedMethod* method = methods_.Find(method_id);
  const absl::Status refusal = CheckOpen(method, method_id);
  if (!refusal.ok()) {
    ++counters_.streams_refused;
    client_.trace().Refuse(SpanKind::kStream,
                           method ? method->descriptor : nullptr, id, refusal);
    sink_.SendEnd(id, refusal);
    return absl::OkStatus();
  }
  ++counters_.streams_opened;
  ++counters_.streams_now;
  const ClientFrame frame(*this);
  Entry& entry = entries_[id];
  entry.outgoing.id = id;
  entry.method = method;
  entry.subscriptions.emplace(subscriptions_, counters_,
                              method->subscribers.get());
  if (method->asks_questions()) {
    entry.questions.emplace(*method, questions_, client_.trace());
  }
  client_.trace().Begin(SpanKind::kStream, *method->descriptor, id);
  EnterService(*method->descriptor, [&] {
    entry.stream = method->service->OpenStream(
        method->descriptor,
        torvane::StreamChannel(std::make_unique<Endpoint>(*this, entry)));
  });
  return absl::OkStatus();
}

absl::Status Streams::CheckOpen(const ServedMethod* method,
                                uint64_t method_id) {
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
  const absl::Status refusal =
      entry->method->kind == torvane::MethodKind::kEventStream
          ? HandOnSubscription(*entry, message)
          : HandOnMessage(*entry, message);
  if (!refusal.ok()) {
    End(*entry, refusal);
  }
}

// An event stream never frees what it parses. So nothing is parsed that is too
// long for a subscription, and what changes none is kept from the stream.
absl::Status Streams::HandOnSubscription(Entry& entry, StreamMessage* message) {
  absl::Status refusal = CheckSubscriptionBytes(message->payload().size());
  if (!refusal.ok()) {
    return refusal;
  }
  const WindowMessage said = entry.method->reader->ReadFromClient(*message);
  if (said.has_unknown_fields) {
    return RefuseUnknownFields();
  }
  const Subscriptions::Change change = entry.subscriptions->Note(said, limits_);
  refusal = CheckSubscriptions(change);
  if (refusal.ok() && change != Subscriptions::Change::kNone) {
    EnterService(*entry.method->descriptor,
                 [&] { entry.stream->OnNext(message); });
  }
  return refusal;
}

// Subscribing again is handed on here: it takes a window back from a client
// that came later.
absl::Status Streams::HandOnMessage(Entry& entry, StreamMessage* message) {
  const WindowMessage said = entry.method->reader->ReadFromClient(*message);
  absl::Status refusal = CheckMessage(entry, said, message->payload().size());
  if (!refusal.ok()) {
    return refusal;
  }
  if (entry.questions) {
    entry.questions->OnData(said, message->call_id());
  }
  EnterService(*entry.method->descriptor,
               [&] { entry.stream->OnNext(message); });
  return absl::OkStatus();
}

// Counts the subscription, too.
absl::Status Streams::CheckMessage(Entry& entry,
                                   const WindowMessage& said,
                                   size_t bytes) {
  if (entry.questions && said.kind == WindowMessage::Kind::kOther &&
      unclear_ == UnclearMessages::kRefuse) {
    return client_.NoteRefusedMessage(
        "a message on a stream of questions neither subscribes nor answers");
  }
  if (!said.subscribes_or_unsubscribes()) {
    return absl::OkStatus();
  }
  absl::Status refusal = CheckSubscriptionBytes(bytes);
  if (!refusal.ok()) {
    return refusal;
  }
  return said.has_unknown_fields
             ? RefuseUnknownFields()
             : CheckSubscriptions(entry.subscriptions->Note(said, limits_));
}

absl::Status Streams::CheckSubscriptionBytes(size_t bytes) {
  if (bytes <= limits_.max_subscription_bytes) {
    return absl::OkStatus();
  }
  return client_.NoteLimit(
      &LimitHits::max_subscription_bytes,
      absl::StrCat("a subscription takes ", bytes,
                   " bytes, more than max_subscription_bytes, ",
                   limits_.max_subscription_bytes));
}

absl::Status Streams::RefuseUnknownFields() {
  return client_.NoteRefusedMessage(
      "a subscription has fields that its message type does not know");
}

absl::Status Streams::CheckSubscriptions(Subscriptions::Change change) {
  switch (change) {
    case Subscriptions::Change::kTooManyOfClient:
      return client_.NoteLimit(
          &LimitHits::max_subscriptions,
          absl::StrCat("max_subscriptions, ", limits_.max_subscriptions,
                       ", are in place"));
    case Subscriptions::Change::kTooManyOfServer:
      return client_.NoteLimit(
          &LimitHits::max_server_subscriptions,
          absl::StrCat("max_server_subscriptions, ",
                       limits_.max_server_subscriptions,
                       ", of all clients together, are in place"));
    case Subscriptions::Change::kNone:
    case Subscriptions::Change::kSubscribed:
    case Subscriptions::Change::kUnsubscribed:
      return absl::OkStatus();
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
  EnterService(*entry->method->descriptor,
               [&] { entry->stream->OnError(message); });
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
  for (const std::string& window : entry->second.subscriptions->TakeShared()) {
    Unsubscribe(entry->second, window);
  }
  EnterService(*entry->second.method->descriptor,
               [&] { entry->second.stream->OnCompleted(); });
  End(entry->second, absl::OkStatus());
  entries_.erase(entry);
  --counters_.streams_now;
}

// A stream may have ended in another way meanwhile, and its id may be used
// again.
bool Streams::FinishNextEnded() {
  while (!ended_.empty()) {
    const auto entry = entries_.find(ended_.front());
    ended_.pop_front();
    if (entry != entries_.end() && entry->second.ended &&
        !entry->second.completing) {
      Finish(entry);
      return true;
    }
  }
  return false;
}

void Streams::Close(std::function<void()> on_ended) {
  closed_ = true;
  if (entries_.empty()) {
    on_ended();
    return;
  }
  on_ended_ = std::move(on_ended);
  endings_.AddClosed(weak_from_this());
}

EndingQueue::Progress Streams::EndSome(EndingStage stage) {
  using Progress = EndingQueue::Progress;
  if (frames_being_handled_ > 0) {
    // The frame will finish the streams that have ended itself.
    return stage == EndingStage::kEnded ? Progress::kDone : Progress::kBlocked;
  }
  bool did_something = false;
  switch (stage) {
    case EndingStage::kQuestions:
      did_something = FinishNextWithQuestions();
      break;
    case EndingStage::kEnded:
      did_something = FinishNextEnded();
      break;
    case EndingStage::kSubscriptions:
      did_something = UnsubscribeNext();
      break;
    case EndingStage::kRest:
      return FinishNext();
  }
  return did_something ? Progress::kMore : Progress::kDone;
}

// The stage's next stream by its id. At the end the next stage begins anew.
template <typename Condition>
Streams::Entries::iterator Streams::NextToEnd(const Condition& condition) {
  const auto entry = std::find_if(
      entries_.lower_bound(next_to_end_), entries_.end(),
      [&condition](const Entries::value_type& candidate) {
        return !candidate.second.completing && condition(candidate.second);
      });
  next_to_end_ = entry == entries_.end() ? 0 : entry->first;
  return entry;
}

bool Streams::FinishNextWithQuestions() {
  const auto entry = NextToEnd([](const Entry& candidate) {
    return candidate.questions && !candidate.questions->empty();
  });
  if (entry == entries_.end()) {
    return false;
  }
  Finish(entry);
  return true;
}

bool Streams::UnsubscribeNext() {
  const auto entry = NextToEnd([](const Entry& candidate) {
    return !candidate.ended && !candidate.subscriptions->empty();
  });
  if (entry == entries_.end()) {
    return false;
  }
  const ClientFrame frame(*this);
  Unsubscribe(entry->second, entry->second.subscriptions->TakeOne());
  return true;
}

void Streams::Unsubscribe(Entry& entry, const std::string& window) {
  StreamMessage message;
  message.set_payload(entry.method->reader->UnsubscriptionFrom(window));
  EnterService(*entry.method->descriptor,
               [&] { entry.stream->OnNext(&message); });
}

// A stream that is left may be completing, further down on the stack.
EndingQueue::Progress Streams::FinishNext() {
  const auto entry = NextToEnd([](const Entry&) { return true; });
  if (entry != entries_.end()) {
    Finish(entry);
    return EndingQueue::Progress::kMore;
  }
  if (!entries_.empty()) {
    return EndingQueue::Progress::kBlocked;
  }
  // May destroy this object.
  std::exchange(on_ended_, nullptr)();
  return EndingQueue::Progress::kDone;
}

void Streams::Report(ConnectionReport& report) const {
  report.streams = entries_.size();
  report.subscriptions = subscriptions_;
  serving::Report(questions_, PendingQuestion::Clock::now(), report);
}

bool Streams::Send(Entry& entry, const StreamMessage& message) {
  const bool asks = entry.questions && message.call_id() != 0;
  if (closed_ || entry.ended || (asks && !MayAsk())) {
    return false;
  }
  const absl::Status sent = sink_.SendMessage(entry.outgoing, message);
  if (absl::IsResourceExhausted(sent)) {
    End(entry, sent);
  }
  if (!sent.ok()) {
    return false;
  }
  if (asks) {
    entry.questions->OnAsked(message);
  } else {
    client_.trace().Event(*entry.method->descriptor, entry.outgoing.id,
                          message.payload().size());
  }
  return true;
}

bool Streams::MayAsk() {
  if (questions_.size() < limits_.max_questions) {
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
  client_.trace().End(SpanKind::kStream, *entry.method->descriptor,
                      entry.outgoing.id, status);
  // The end of a client ends its streams without a word.
  if (closed_) {
    return;
  }
  sink_.SendEnd(entry.outgoing.id, status);
  if (!entry.completing) {
    ended_.push_back(entry.outgoing.id);
    endings_.AddEnded(weak_from_this());
  }
}

}  // namespace rpc::serving
