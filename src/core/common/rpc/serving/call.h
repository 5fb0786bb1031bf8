// One unary call on the server's side: its messages, its context and the
// closure that its method is given.
//
// Who has a share in a call, and so keeps it alive:
//
//   the method      from Invoke() until it runs the closure, on any thread;
//   then
//                   the share travels to the server's sequence
//   Calls           for as long as the client waits for the result
//   the pool        when it is over: for the next call, and so that a closure
//                   that is run twice is noticed
//
// A method that holds on to its closure thus keeps its call, also when the
// client and the server are gone.
//
// Sequence: the server's, but for Run(), which any thread may call once. On the
// server's sequence Run() completes the call before it returns, so that what
// the method writes before comes before the reply and what it writes after
// comes after it; on another thread it posts that.
//
// Failure: running the closure twice ends the process with a text, for as long
// as the pool keeps the call for nobody else: kIdleCalls in call_pool.h.

#ifndef CORE_COMMON_RPC_SERVING_CALL_H_
#define CORE_COMMON_RPC_SERVING_CALL_H_

#include <google/protobuf/message.h>
#include <google/protobuf/service.h>

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>

#include "absl/status/status.h"
#include "core/common/rpc/loop/sequence.h"
#include "core/common/rpc/serving/call_context.h"
#include "core/common/rpc/serving/served_methods.h"

namespace rpc::serving {

class CallPool;

class Call final : public google::protobuf::Closure,
                   public std::enable_shared_from_this<Call> {
 public:
  // Who waits for the result.
  class Waiter {
   public:
    // The method has run the closure.
    virtual void OnCallDone(Call& call) = 0;

    // The call's deadline has passed before that.
    virtual void OnCallExpired(Call& call) = 0;

   protected:
    ~Waiter() = default;
  };

  explicit Call(std::shared_ptr<CallPool> pool);
  ~Call() override;

  // Makes the messages of `method` and reads `request`. INVALID_ARGUMENT when
  // that does not parse; then the call must not be invoked.
  absl::Status Prepare(uint64_t id,
                       const ServedMethod& method,
                       const std::string& request,
                       const std::string& peer,
                       CallContext::Deadline deadline);

  // Calls the method, which may run the closure before this returns.
  void Invoke(Waiter& waiter);

  // Nobody waits any longer: the method is told, its result will be dropped.
  // Until there is one the call counts in `abandoned`.
  void Abandon(const std::shared_ptr<size_t>& abandoned);

  bool is_waited_for() const { return waiter_ != nullptr; }

  uint64_t id() const { return id_; }
  const ServedMethod& method() const { return *method_; }
  const absl::Status& status() const { return context_.status(); }
  const google::protobuf::Message& response() const { return *response_; }

  // The method has completed the call.
  void Run() override;

 private:
  friend class CallPool;

  void OnDone();
  // Lets go of everything, before the pool keeps it.
  void Clear();

  const std::shared_ptr<CallPool> pool_;
  CallContext context_;
  const ServedMethod* method_ = nullptr;
  std::unique_ptr<google::protobuf::Message> request_;
  std::unique_ptr<google::protobuf::Message> response_;
  uint64_t id_ = 0;

  // The method's share in this call.
  std::shared_ptr<Call> held_by_method_;
  // Tells a second run of the closure, on whatever thread.
  std::atomic<bool> closure_is_ready_ = false;

  // Null when nobody waits, or no longer.
  Waiter* waiter_ = nullptr;
  std::unique_ptr<loop::Timer> deadline_timer_;
  // Where the call counts while its method works on for nobody; else null.
  std::shared_ptr<size_t> abandoned_;
};

}  // namespace rpc::serving

#endif  // CORE_COMMON_RPC_SERVING_CALL_H_
