// One gRPC peer as serving/ sees it: a client with its record, calls and
// streams.
//
// Ownership: the backend's, until the streams have ended. The peer's client
// refers to it until the peer has left.
//
// Sequence: the front's loop.
//
// Failure: by what the sink is told.

#ifndef CORE_COMMON_RPC_GRPC_SERVICES_SERVICE_SESSION_H_
#define CORE_COMMON_RPC_GRPC_SERVICES_SERVICE_SESSION_H_

#include <chrono>
#include <cstdint>
#include <memory>
#include <string>

#include "absl/status/status.h"
#include "core/common/rpc/grpc/backend.h"
#include "core/common/rpc/grpc/services/service_backend.h"
#include "core/common/rpc/serving/calls.h"
#include "core/common/rpc/serving/client_record.h"
#include "core/common/rpc/serving/outgoing_stream.h"
#include "core/common/rpc/serving/server_report.h"
#include "core/common/rpc/serving/streams.h"
#include "rpc/transport/stream_message.pb.h"

namespace rpc::grpc {

class ServiceSession final
    : public std::enable_shared_from_this<ServiceSession>,
      public serving::ReplySink,
      public serving::StreamSink {
 public:
  // `id` tells the peer apart from all others of the server.
  ServiceSession(ServiceBackend& backend,
                 uint64_t id,
                 const std::string& name,
                 BackendSink& sink);

  serving::Calls& calls() { return calls_; }
  serving::Streams& streams() { return *streams_; }

  // The peer has left: the sink is used no longer.
  void Leave();

  serving::ConnectionReport Report() const;

  // serving::ReplySink:
  void SendReply(uint64_t call_id,
                 const google::protobuf::Message& response) override;
  void SendError(uint64_t call_id, const absl::Status& status) override;

  // serving::StreamSink:
  absl::Status SendMessage(serving::OutgoingStream& stream,
                           const transport::StreamMessage& message) override;
  void SendEnd(uint64_t stream_id, const absl::Status& status) override;

 private:
  absl::Status CheckSize(const char* what, size_t bytes);

  ServiceBackend& backend_;
  const uint64_t id_;
  const std::chrono::steady_clock::time_point start_ =
      std::chrono::steady_clock::now();
  // Null once the peer has left.
  BackendSink* sink_;
  serving::ClientRecord client_;
  serving::Calls calls_;
  const std::shared_ptr<serving::Streams> streams_;
};

}  // namespace rpc::grpc

#endif  // CORE_COMMON_RPC_GRPC_SERVICES_SERVICE_SESSION_H_
