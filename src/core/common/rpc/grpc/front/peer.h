// One gRPC peer: its calls, and the backend's client for it.
//
// Ownership: the front's.
//
// Sequence: the front's.
//
// Failure: none of its own.

#ifndef CORE_COMMON_RPC_GRPC_FRONT_PEER_H_
#define CORE_COMMON_RPC_GRPC_FRONT_PEER_H_

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "absl/container/flat_hash_map.h"
#include "core/common/rpc/grpc/backend.h"
#include "core/common/rpc/grpc/front.h"
#include "core/common/rpc/grpc/front/exchange.h"
#include "core/common/rpc/grpc/front/rpc.h"
#include "core/common/rpc/grpc/front/sliced_tasks.h"
#include "core/common/rpc/grpc/front/unary_paths.h"
#include "core/common/rpc/grpc/reflection/reflection_answers.h"

namespace rpc::grpc {

class Peer final : private BackendSink {
 public:
  // What the peers of one front share. It outlives them.
  struct Shared {
    loop::Loop& loop;
    Backend& backend;
    const FrontOptions& options;
    // Never null.
    const std::shared_ptr<const ReflectionAnswers>& reflection;
    UnaryPaths& unary_paths;
    SlicedTasks& stream_ends;
  };

  Peer(const Shared& shared, const std::string& name);
  Peer(const Peer&) = delete;
  Peer& operator=(const Peer&) = delete;
  // Its calls are over.
  ~Peer();

  void Begin(const std::shared_ptr<Exchange>& exchange);

  // Ends everything but calls that the backend has, on later turns.
  void EndStreams(const absl::Status& why);
  // Ends everything.
  void EndAll(const absl::Status& why);

  // Its calls are over, and it has taken what was written on them.
  bool is_idle() const { return rpcs_.empty() && *backlog_ == 0; }
  // Since when its calls are over; only while it is idle.
  loop::Clock::time_point idle_since() const { return idle_since_; }

  // For its calls.
  const Shared& shared() const { return shared_; }
  BackendClient& backend() { return *backend_; }
  absl::Status CheckRoomFor(size_t bytes) const;
  void Forget(uint64_t id);

 private:
  // BackendSink:
  void OnReply(uint64_t call_id, std::string_view response) override;
  void OnFailure(uint64_t call_id, const absl::Status& status) override;
  absl::Status OnMessage(uint64_t stream_id,
                         const transport::StreamMessage& message) override;
  void OnEnd(uint64_t stream_id, const absl::Status& status) override;
  size_t queued_bytes() const override { return *backlog_; }

  std::shared_ptr<Rpc> Find(uint64_t id) const;
  std::vector<std::shared_ptr<Rpc>> All() const;

  const Shared shared_;
  const Exchange::Backlog backlog_ = std::make_shared<std::atomic<size_t>>(0);
  absl::flat_hash_map<uint64_t, std::shared_ptr<Rpc>> rpcs_;
  uint64_t last_id_ = 0;
  loop::Clock::time_point idle_since_;
  const std::unique_ptr<BackendClient> backend_;
};

}  // namespace rpc::grpc

#endif  // CORE_COMMON_RPC_GRPC_FRONT_PEER_H_
