#include "core/common/rpc/serving/call.h"

#include <utility>

#include "absl/log/absl_check.h"
#include "absl/strings/str_cat.h"
#include "core/common/rpc/serving/call_pool.h"
#include "core/common/rpc/serving/enter_service.h"

namespace rpc::serving {

Call::Call(std::shared_ptr<CallPool> pool) : pool_(std::move(pool)) {}

Call::~Call() = default;

absl::Status Call::Prepare(uint64_t id,
                           const ServedMethod& method,
                           const std::string& request,
                           const std::string& peer,
                           CallContext::Deadline deadline) {
  id_ = id;
  method_ = &method;
  context_.Start(*method.descriptor, peer, deadline);
  request_.reset(method.service->GetRequestPrototype(method.descriptor).New());
  response_.reset(
      method.service->GetResponsePrototype(method.descriptor).New());
  if (!request_->ParseFromString(request)) {
    return absl::InvalidArgumentError(
        absl::StrCat("the request of ", method.descriptor->full_name(),
                     " does not parse as a ", request_->GetTypeName()));
  }
  return absl::OkStatus();
}

void Call::Invoke(Waiter& waiter) {
  const std::shared_ptr<Call> self = shared_from_this();
  waiter_ = &waiter;
  held_by_method_ = self;
  if (context_.deadline()) {
    deadline_timer_ = pool_->sequence().RunAt(
        *context_.deadline(), [this] { waiter_->OnCallExpired(*this); });
  }
  closure_is_ready_.store(true, std::memory_order_release);
  EnterService(*method_->descriptor, [this] {
    method_->service->CallMethod(method_->descriptor, &context_, request_.get(),
                                 response_.get(), this);
  });
}

void Call::Abandon(const std::shared_ptr<size_t>& abandoned) {
  abandoned_ = abandoned;
  ++*abandoned_;
  ++pool_->counters().calls_abandoned_now;
  waiter_ = nullptr;
  deadline_timer_.reset();
  EnterService(*method_->descriptor, [this] { context_.Cancel(); });
}

void Call::Run() {
  ABSL_CHECK(closure_is_ready_.exchange(false, std::memory_order_acq_rel))
      << "The closure of a call of " << method_->descriptor->full_name()
      << " has been run twice.";
  std::shared_ptr<Call> self = std::move(held_by_method_);
  if (pool_->sequence().IsCurrent()) {
    OnDone();
    return;
  }
  loop::Sequence& sequence = pool_->sequence();
  sequence.Post([self = std::move(self)] { self->OnDone(); });
}

void Call::OnDone() {
  deadline_timer_.reset();
  if (waiter_ != nullptr) {
    std::exchange(waiter_, nullptr)->OnCallDone(*this);
  } else {
    --*std::exchange(abandoned_, nullptr);
    --pool_->counters().calls_abandoned_now;
    ++pool_->counters().results_late;
  }
  pool_->Return(shared_from_this());
}

void Call::Clear() {
  context_.Finish();
  request_.reset();
  response_.reset();
}

}  // namespace rpc::serving
