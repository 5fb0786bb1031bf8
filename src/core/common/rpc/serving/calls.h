// The unary calls of one client.
//
//   id, method, request            the method runs its closure
//   (none) ------------> [waiting] --------------------------> (none)  reply
//      |                    | cancel, deadline
//      | unknown method,    '------------> [abandoned] ------> (none)  result
//      | too many, ...          reply                  closure         dropped
//      '-> reply
//
// A reply takes its place among what the client is sent at the moment when the
// closure is run.
//
// Ownership: the transport's, one for each client. A call whose method has not
// run its closure outlives it.
//
// Sequence: the server's.
//
// Failure: by a reply. Only what breaks the protocol is returned as a status.

#ifndef CORE_COMMON_RPC_SERVING_CALLS_H_
#define CORE_COMMON_RPC_SERVING_CALLS_H_

#include <google/protobuf/message.h>

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>

#include "absl/container/flat_hash_map.h"
#include "absl/status/status.h"
#include "core/common/rpc/serving/call.h"
#include "core/common/rpc/serving/call_pool.h"
#include "core/common/rpc/serving/client_record.h"
#include "core/common/rpc/serving/counters.h"
#include "core/common/rpc/serving/limits.h"
#include "core/common/rpc/serving/served_methods.h"

namespace rpc::serving {

// Sends replies to the client. Must not call back into Calls.
class ReplySink {
 public:
  virtual void SendReply(uint64_t call_id,
                         const google::protobuf::Message& response) = 0;
  // `status` is not OK.
  virtual void SendError(uint64_t call_id, const absl::Status& status) = 0;

 protected:
  ~ReplySink() = default;
};

class Calls final : private Call::Waiter {
 public:
  // All of these outlive it.
  Calls(ReplySink& sink,
        const ServedMethods& methods,
        const Limits& limits,
        CallPool& pool,
        ClientRecord& client);
  Calls(const Calls&) = delete;
  Calls& operator=(const Calls&) = delete;

  // AbandonAll() has been called.
  ~Calls();

  // The client calls a method, and waits for `timeout`; for ever where that is
  // zero. INVALID_ARGUMENT when the id is in use. The transport calls nothing
  // else here until this returns: the method may be on the stack.
  absl::Status Start(uint64_t id,
                     uint64_t method_id,
                     std::chrono::milliseconds timeout,
                     const std::string& request);

  // The client no longer wants the result. Its reply may be on its way already.
  void Cancel(uint64_t id);

  // The client is gone.
  void AbandonAll();

  // As max_calls counts them: with those that are abandoned, without one whose
  // method is being called just now.
  size_t size() const { return waiting_.size() + *abandoned_; }

 private:
  // Call::Waiter:
  void OnCallDone(Call& call) override;
  void OnCallExpired(Call& call) override;

  absl::Status CheckMethod(const ServedMethod* method, uint64_t method_id);
  void RefuseCall(uint64_t id,
                  const ServedMethod* method,
                  const absl::Status& why);
  void GiveUp(Call& call, const absl::Status& why);
  void TraceEnd(const Call& call, const absl::Status& status) const;

  ReplySink& sink_;
  const ServedMethods& methods_;
  const Limits& limits_;
  CallPool& pool_;
  ClientRecord& client_;

  // Calls that the client waits for, by id. Not those whose methods complete
  // them at once: most do, so that there is often nothing to look for here.
  absl::flat_hash_map<uint64_t, std::shared_ptr<Call>> waiting_;

  // How many it waits for no longer, but whose methods have not run the
  // closures. Shared with those calls, which may outlive this.
  const std::shared_ptr<size_t> abandoned_ = std::make_shared<size_t>(0);
};

}  // namespace rpc::serving

#endif  // CORE_COMMON_RPC_SERVING_CALLS_H_
