#include "core/common/rpc/serving/calls.h"

#include <utility>

#include "absl/log/absl_check.h"
#include "absl/strings/str_cat.h"

namespace rpc::serving {

Calls::Calls(ReplySink& sink,
             const ServedMethods& methods,
             const Limits& limits,
             CallPool& pool,
             ClientRecord& client)
    : sink_(sink),
      methods_(methods),
      limits_(limits),
      pool_(pool),
      client_(client) {}

Calls::~Calls() {
  ABSL_CHECK(waiting_.empty()) << "methods would not hear that nobody waits";
}

absl::Status Calls::Start(uint64_t id,
                          uint64_t method_id,
                          std::chrono::milliseconds timeout,
                          const std::string& request) {
  if (!waiting_.empty() && waiting_.contains(id)) {
    return absl::InvalidArgumentError(
        absl::StrCat("call id ", id, " is in use"));
  }
  const ServedMethod* method = methods_.Find(method_id);
  absl::Status refusal = CheckMethod(method, method_id);
  if (!refusal.ok()) {
    RefuseCall(id, method, refusal);
    return absl::OkStatus();
  }
  CallContext::Deadline deadline;
  if (timeout.count() > 0) {
    deadline = pool_.sequence().TimeAfter(timeout);
  }
  std::shared_ptr<Call> call = pool_.Take();
  refusal = call->Prepare(id, *method, request, client_.peer(), deadline);
  if (!refusal.ok()) {
    pool_.Return(std::move(call));
    RefuseCall(id, method, refusal);
    return absl::OkStatus();
  }
  ++pool_.counters().calls_started;
  ++pool_.counters().calls_now;
  client_.trace().Begin(SpanKind::kCall, *method->descriptor, id);
  call->Invoke(*this);
  if (call->is_waited_for()) {
    waiting_.emplace(id, std::move(call));
  }
  return absl::OkStatus();
}

absl::Status Calls::CheckMethod(const ServedMethod* method,
                                uint64_t method_id) {
  if (method == nullptr) {
    return absl::UnimplementedError(
        absl::StrCat("no method has the id ", method_id));
  }
  if (method->streaming()) {
    return absl::UnimplementedError(
        absl::StrCat(method->descriptor->full_name(), " is a stream"));
  }
  if (size() >= limits_.max_calls) {
    return client_.NoteLimit(
        &LimitHits::max_calls,
        absl::StrCat("max_calls, ", limits_.max_calls, ", are in flight"));
  }
  return absl::OkStatus();
}

void Calls::RefuseCall(uint64_t id,
                       const ServedMethod* method,
                       const absl::Status& why) {
  ++pool_.counters().calls_refused;
  client_.trace().Refuse(SpanKind::kCall, method ? method->descriptor : nullptr,
                         id, why);
  sink_.SendError(id, why);
}

void Calls::OnCallDone(Call& call) {
  if (!waiting_.empty()) {
    waiting_.erase(call.id());
  }
  --pool_.counters().calls_now;
  TraceEnd(call, call.status());
  if (call.status().ok()) {
    sink_.SendReply(call.id(), call.response());
  } else {
    sink_.SendError(call.id(), call.status());
  }
}

void Calls::OnCallExpired(Call& call) {
  ++pool_.counters().calls_expired;
  GiveUp(call, absl::DeadlineExceededError("the deadline has passed"));
}

void Calls::Cancel(uint64_t id) {
  const auto call = waiting_.find(id);
  if (call != waiting_.end()) {
    ++pool_.counters().calls_cancelled;
    GiveUp(*call->second, absl::CancelledError("the client has cancelled it"));
  }
}

void Calls::GiveUp(Call& call, const absl::Status& why) {
  sink_.SendError(call.id(), why);
  TraceEnd(call, why);
  const auto entry = waiting_.extract(call.id());
  --pool_.counters().calls_now;
  call.Abandon(abandoned_);
}

// One by one: a method that hears of its end may complete another.
void Calls::AbandonAll() {
  while (!waiting_.empty()) {
    const auto entry = waiting_.extract(waiting_.begin());
    --pool_.counters().calls_now;
    TraceEnd(*entry.mapped(), absl::CancelledError("the client is gone"));
    entry.mapped()->Abandon(abandoned_);
  }
}

void Calls::TraceEnd(const Call& call, const absl::Status& status) const {
  client_.trace().End(SpanKind::kCall, *call.method().descriptor, call.id(),
                      status);
}

}  // namespace rpc::serving
