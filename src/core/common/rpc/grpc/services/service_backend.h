// The backend for services in this process: serving/ with gRPC peers as its
// clients.
//
// Ownership: the server's, which destroys the front first. Services are the
// program's and outlive it.
//
// Sequence: the front's loop.
//
// Failure: as serving/ has it.

#ifndef CORE_COMMON_RPC_GRPC_SERVICES_SERVICE_BACKEND_H_
#define CORE_COMMON_RPC_GRPC_SERVICES_SERVICE_BACKEND_H_

#include <google/protobuf/descriptor.h>

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "absl/container/flat_hash_map.h"
#include "absl/status/statusor.h"
#include "core/common/rpc/grpc/backend.h"
#include "core/common/rpc/loop/loop.h"
#include "core/common/rpc/serving/call_pool.h"
#include "core/common/rpc/serving/counters.h"
#include "core/common/rpc/serving/ending_queue.h"
#include "core/common/rpc/serving/limits.h"
#include "core/common/rpc/serving/served_methods.h"
#include "core/common/rpc/serving/server_report.h"
#include "core/common/rpc/serving/unclear_messages.h"
#include "core/common/rpc/stream/service.h"

namespace rpc::grpc {

class ServiceSession;

class ServiceBackend final : public Backend {
 public:
  ServiceBackend(loop::Loop& loop,
                 const serving::Limits& limits,
                 serving::UnclearMessages unclear_messages);
  ServiceBackend(const ServiceBackend&) = delete;
  ServiceBackend& operator=(const ServiceBackend&) = delete;
  // All its clients are destroyed. Ends what streams of theirs are left.
  ~ServiceBackend();

  void AddService(torvane::Service* service);
  std::vector<const google::protobuf::ServiceDescriptor*> Services() const {
    return methods_.Services();
  }

  // From now on clients leave because the server stops.
  void EndSubscriptionsFirst() { endings_->EndSubscriptionsFirst(); }

  const serving::Counters& counters() const { return *counters_; }
  serving::ServerReport Report() const;

  // Backend:
  std::unique_ptr<BackendClient> Connect(const std::string& name,
                                         BackendSink& sink) override;

  // For sessions.
  absl::StatusOr<BackendMethod> Find(std::string_view service,
                                     std::string_view method) const;
  void OnSessionEnded(ServiceSession* session);

 private:
  friend class ServiceSession;

  loop::Loop& loop_;
  const serving::Limits limits_;
  const serving::UnclearMessages unclear_messages_;
  const std::shared_ptr<serving::Counters> counters_;
  const std::shared_ptr<serving::CallPool> call_pool_;
  const std::shared_ptr<serving::EndingQueue> endings_;
  serving::ServedMethods methods_;
  // "rpc.BrowserWindow/GetTitle"
  absl::flat_hash_map<std::string, uint64_t> ids_;
  // With those whose clients have left and whose streams have to end yet.
  absl::flat_hash_map<ServiceSession*, std::shared_ptr<ServiceSession>>
      sessions_;
};

}  // namespace rpc::grpc

#endif  // CORE_COMMON_RPC_GRPC_SERVICES_SERVICE_BACKEND_H_
