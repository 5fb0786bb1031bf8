// Tells clients what a server is doing, as one more of its services.
//
//   rpc::status::StatusService status([&server] { return server.Report(); });
//   rpc::transport::Server server(loop);
//   server.AddService(&status);
//
// Whoever may connect may ask. rpc/status/server_status.proto says what they
// are told.
//
// Ownership: the caller's, who sees to it that the server lives when it is
// called; services outlive their server, so the service comes first.
//
// Sequence: the loop's, as for every service.
//
// Failure: none.

#ifndef CORE_COMMON_RPC_STATUS_STATUS_SERVICE_H_
#define CORE_COMMON_RPC_STATUS_STATUS_SERVICE_H_

#include <functional>

#include "core/common/rpc/serving/server_report.h"
#include "rpc/status/server_status.rpc.h"

namespace rpc::status {

class StatusService final : public ServerStatusRpc {
 public:
  using TakeReport = std::function<serving::ServerReport()>;

  // `take_report` is called for each request.
  explicit StatusService(TakeReport take_report);
  ~StatusService() override;

  // ServerStatusRpc:
  void GetStatus(google::protobuf::RpcController* controller,
                 const StatusRequest* request,
                 StatusReport* response,
                 google::protobuf::Closure* done) override;

 private:
  const TakeReport take_report_;
};

}  // namespace rpc::status

#endif  // CORE_COMMON_RPC_STATUS_STATUS_SERVICE_H_
