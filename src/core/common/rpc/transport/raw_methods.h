// Calls and streams of methods that this program knows by their names alone: it
// passes serialised messages on, without descriptors. For methods whose
// messages are known there are Client::CallMethod(), event_subscriber.h and the
// rest.
//
//   const auto method = rpc::transport::FindMethod(client, "shop.Shop",
//   "Price"); if (!method.ok()) return method.status(); RawCall call(client,
//   *method, timeout, request_bytes,
//                [](const absl::Status& status, std::string response) { ... });
//
// A stream is a ClientStream:
//
//   ClientStream stream(client, method->id, on_data, on_end);
//
// Ownership: the user's. Destroying a call that is under way cancels it; its
// function is then not called. It may outlive its client.
//
// Sequence: that of the client. The function never runs within the constructor;
// it may destroy the call and the client.
//
// Failure: FindMethod() is UNIMPLEMENTED, with a text that names what the
// server lacks. A call fails by its status, as one of Client::CallMethod()
// does.

#ifndef CORE_COMMON_RPC_TRANSPORT_RAW_METHODS_H_
#define CORE_COMMON_RPC_TRANSPORT_RAW_METHODS_H_

#include <chrono>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <string_view>

#include "absl/status/status.h"
#include "absl/status/statusor.h"
#include "core/common/rpc/transport/client.h"
#include "core/common/rpc/transport/client/client_stream.h"
#include "rpc/transport/frame.pb.h"

namespace rpc::transport {

// What the server offers under these names. `id` means something to this client
// alone.
absl::StatusOr<OfferedMethod> FindMethod(const Client& client,
                                         std::string_view service,
                                         std::string_view method);

class RawCall final {
 public:
  using DoneCallback =
      std::function<void(const absl::Status& status, std::string response)>;

  // `method_id` is that of a unary method. Without a timeout the client's
  // call_timeout holds.
  RawCall(Client& client,
          uint64_t method_id,
          std::optional<std::chrono::milliseconds> timeout,
          const std::string& request,
          DoneCallback on_done);
  RawCall(const RawCall&) = delete;
  RawCall& operator=(const RawCall&) = delete;
  ~RawCall();

 private:
  class Running;

  // Null once the call is over. Deletes itself when it is.
  Running* running_;
};

}  // namespace rpc::transport

#endif  // CORE_COMMON_RPC_TRANSPORT_RAW_METHODS_H_
