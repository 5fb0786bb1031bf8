#include "core/common/rpc/transport/server_call.h"

#include <chrono>
#include <cstddef>
#include <system_error>
#include <utility>

#include "absl/log/absl_check.h"
#include "absl/strings/str_cat.h"

namespace rpc::transport {
namespace {

// Calls that lie idle before one of them is used again. A closure that is run
// twice is found out for as long as its call lies idle; each costs a few
// hundred bytes.
constexpr size_t kIdleCalls = 256;

}  // namespace

ServerCallPool::ServerCallPool(asio::io_context& loop,
                               std::shared_ptr<Counters> counters)
    : loop_(loop), counters_(std::move(counters)) {}

ServerCallPool::~ServerCallPool() = default;

ServerCall* ServerCallPool::Take() {
  if (idle_.size() < kIdleCalls) {
    return new ServerCall(shared_from_this());
  }
  ServerCall* call = idle_.front().release();
  idle_.pop_front();
  return call;
}

void ServerCallPool::Return(ServerCall* call) {
  std::unique_ptr<ServerCall> owned(call);
  owned->Clear();
  if (!closed_) {
    idle_.push_back(std::move(owned));
  }
}

void ServerCallPool::Close() {
  closed_ = true;
  idle_.clear();
}

ServerCall::ServerCall(std::shared_ptr<ServerCallPool> pool)
    : pool_(std::move(pool)) {}

ServerCall::~ServerCall() = default;

absl::Status ServerCall::Prepare(const ServedMethod& method,
                                 const CallFrame& frame,
                                 const std::string& peer) {
  service_ = method.service;
  method_ = method.descriptor;
  id_ = frame.call_id();
  ++serial_;
  controller_.Start(method_, peer,
                    std::chrono::milliseconds(frame.timeout_ms()));
  request_.reset(service_->GetRequestPrototype(method_).New());
  response_.reset(service_->GetResponsePrototype(method_).New());
  if (!request_->ParseFromString(frame.request())) {
    return absl::InvalidArgumentError(
        absl::StrCat("the request of ", method_->full_name(), " does not parse",
                     " as a ", request_->GetTypeName()));
  }
  return absl::OkStatus();
}

bool ServerCall::Invoke(ServerCallOwner* owner) {
  done_ = false;
  invoking_ = true;
  closure_.store(Closure::kReady);
  service_->CallMethod(method_, &controller_, request_.get(), response_.get(),
                       this);
  invoking_ = false;
  if (done_) {
    return false;
  }
  owner_ = owner;
  if (controller_.deadline()) {
    AwaitDeadline();
  }
  return true;
}

void ServerCall::AwaitDeadline() {
  timer_.emplace(pool_->loop(), *controller_.deadline());
  // While the pool is open it keeps all of its calls, though maybe for others.
  timer_->async_wait([this, pool = pool_,
                      serial = serial_](const std::error_code& error) {
    if (!error && !pool->closed() && serial == serial_ && owner_ != nullptr) {
      owner_->OnCallExpired(*this);
    }
  });
}

void ServerCall::Abandon(const std::shared_ptr<size_t>& abandoned) {
  abandoned_ = abandoned;
  ++*abandoned_;
  ++pool_->counters().calls_abandoned_now;
  owner_ = nullptr;
  timer_.reset();
  controller_.Cancel();
}

void ServerCall::Run() {
  ABSL_CHECK(closure_.exchange(Closure::kSpent) == Closure::kReady)
      << "The closure of a call of " << method_->full_name()
      << " has been run twice.";
  if (pool_->loop().get_executor().running_in_this_thread()) {
    OnDone();
    return;
  }
  asio::post(pool_->loop(),
             [call = std::unique_ptr<ServerCall>(this)]() mutable {
               call.release()->OnDone();
             });
}

void ServerCall::OnDone() {
  if (invoking_) {
    done_ = true;
    return;
  }
  if (owner_ != nullptr) {
    owner_->OnCallDone(*this);
  } else {
    --*std::exchange(abandoned_, nullptr);
    --pool_->counters().calls_abandoned_now;
    ++pool_->counters().results_late;
  }
  pool_->Return(this);
}

void ServerCall::Clear() {
  owner_ = nullptr;
  timer_.reset();
  controller_.Finish();
  request_.reset();
  response_.reset();
}

}  // namespace rpc::transport
