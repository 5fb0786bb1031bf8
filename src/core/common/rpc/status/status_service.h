// A service that tells clients what the server is doing.
//
//   rpc::status::StatusService status_{[this] { return server_.Report(); }};
//   rpc::transport::Server server_{loop};    // a later member: it goes first
//   ...
//   server_.AddService(&status_);
//
// Every client that may connect may ask. What it is told is described in
// rpc/status/server_status.proto.
//
// Ownership: the caller's. Like any service it must outlive the server. The
// function that it is given refers to the server, but is called only while the
// server runs.
//
// Sequence: that of the server.
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
