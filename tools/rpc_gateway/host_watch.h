// Keeps an eye on the host: what it offers, whether it is there. For what a
// gRPC front says of that by reflection and health checks.
//
// Ownership: the program's. The front outlives it.
//
// Sequence: the loop's.
//
// Failure: a host that is away is not served. Of one that offers no reflection
// nothing is listed, but it is served.

#ifndef TOOLS_RPC_GATEWAY_HOST_WATCH_H_
#define TOOLS_RPC_GATEWAY_HOST_WATCH_H_

#include <memory>
#include <optional>
#include <string>

#include "absl/status/status.h"
#include "absl/status/statusor.h"
#include "core/common/rpc/grpc/front.h"
#include "core/common/rpc/loop/loop.h"
#include "core/common/rpc/transport/raw_methods.h"
#include "core/common/rpc/transport/reconnecting_client.h"

namespace rpc_gateway {

class HostWatch {
 public:
  HostWatch(rpc::loop::Loop& loop,
            const std::string& socket,
            rpc::transport::ReconnectingOptions options,
            rpc::grpc::Front& front);
  HostWatch(const HostWatch&) = delete;
  HostWatch& operator=(const HostWatch&) = delete;
  ~HostWatch();

 private:
  using Parse = absl::Status (HostWatch::*)(const std::string& response);

  void OnConnected();
  void OnDown(const absl::Status& why);
  // One call of the host's reflection after the other, each of which begins in
  // the function for the response to the one before.
  void Ask(const std::string& method, const std::string& request, Parse parse);
  void AskForFiles();
  absl::Status ReadServices(const std::string& response);
  absl::Status ReadFiles(const std::string& response);
  void OnAsked(const absl::Status& status);

  rpc::grpc::Front& front_;
  // What has come so far, the files unparsed.
  rpc::grpc::Offer offer_;
  std::string files_;
  bool down_noted_ = false;
  std::optional<rpc::transport::RawCall> call_;
  rpc::transport::ReconnectingClient connection_;
};

}  // namespace rpc_gateway

#endif  // TOOLS_RPC_GATEWAY_HOST_WATCH_H_
