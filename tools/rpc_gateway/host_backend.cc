#include "tools/rpc_gateway/host_backend.h"

#include <cstdint>
#include <optional>
#include <utility>
#include <vector>

#include "absl/container/flat_hash_map.h"
#include "absl/strings/str_cat.h"
#include "core/common/rpc/transport/raw_methods.h"

namespace rpc_gateway {
namespace {

using rpc::grpc::BackendClient;
using rpc::grpc::BackendMethod;
using rpc::grpc::BackendSink;
using rpc::loop::Loop;
using rpc::transport::Client;
using rpc::transport::ClientStream;
using rpc::transport::OfferedMethod;
using rpc::transport::RawCall;
using rpc::transport::ReconnectingClient;
using rpc::transport::ReconnectingOptions;
using rpc::transport::StreamMessage;

BackendMethod::Kind KindOf(const OfferedMethod& method) {
  if (!method.streaming()) {
    return BackendMethod::Kind::kUnary;
  }
  switch (method.stream_kind()) {
    case OfferedMethod::STREAM_KIND_EVENTS:
      return BackendMethod::Kind::kEvents;
    case OfferedMethod::STREAM_KIND_QUESTIONS:
      return BackendMethod::Kind::kQuestions;
    default:
      return BackendMethod::Kind::kOtherStream;
  }
}

// What a gRPC peer that has come in vain is told.
absl::Status NotReached(const absl::Status& why) {
  if (absl::IsResourceExhausted(why)) {
    return why;
  }
  return absl::UnavailableError(
      absl::StrCat("the host cannot be reached: ", why.message()));
}

class HostClient final : public BackendClient {
 public:
  HostClient(Loop& loop,
             const std::string& socket,
             const ReconnectingOptions& options,
             BackendSink& sink)
      : sink_(sink),
        connection_(
            loop,
            socket,
            options,
            [this](Client&, const auto&) { OnConnected(); },
            [this](const absl::Status& why, auto) { OnDown(why); }) {}

  void Find(std::string_view service,
            std::string_view method,
            FoundCallback on_found) override {
    if (connection_.client() == nullptr && down_.ok()) {
      waiting_.push_back(
          {std::string(service), std::string(method), std::move(on_found)});
    } else {
      on_found(Look(service, method));
    }
  }

  void Call(uint64_t id,
            const BackendMethod& method,
            std::chrono::milliseconds timeout,
            const std::string& request) override {
    Client* const client = ClientFor(method);
    if (client == nullptr) {
      sink_.OnFailure(id, down_);
      return;
    }
    std::optional<std::chrono::milliseconds> limit;
    if (timeout.count() > 0) {
      limit = timeout;
    }
    calls_.emplace(
        id, std::make_unique<RawCall>(*client, method.id, limit, request,
                                      [this, id](const absl::Status& status,
                                                 const std::string& response) {
                                        OnCallDone(id, status, response);
                                      }));
  }

  void Cancel(uint64_t id) override { calls_.erase(id); }

  void Open(uint64_t id, const BackendMethod& method) override {
    Client* const client = ClientFor(method);
    if (client == nullptr) {
      sink_.OnEnd(id, down_);
      return;
    }
    streams_.emplace(
        id, std::make_unique<ClientStream>(
                *client, method.id,
                [this, id](const StreamMessage& message) {
                  OnStreamMessage(id, message);
                },
                [this, id](const absl::Status& status) { End(id, status); }));
  }

  absl::Status Send(uint64_t id, StreamMessage& message) override {
    const auto stream = streams_.find(id);
    return stream == streams_.end() || stream->second->Send(message)
               ? absl::OkStatus()
               : NotTaken();
  }

  absl::Status Decline(uint64_t id, StreamMessage& message) override {
    const auto stream = streams_.find(id);
    return stream == streams_.end() || stream->second->SendError(message)
               ? absl::OkStatus()
               : NotTaken();
  }

  void End(uint64_t id) override {
    const auto stream = streams_.find(id);
    if (stream != streams_.end()) {
      stream->second->End();
    }
  }

 private:
  struct Waiting {
    std::string service;
    std::string method;
    FoundCallback on_found;
  };

  // What becomes of a stream that has not taken a message.
  absl::Status NotTaken() const {
    const Client* const client = connection_.client();
    if (client == nullptr || !client->can_send()) {
      return absl::OkStatus();  // Its end follows, and says why.
    }
    return absl::ResourceExhaustedError(
        "the message is longer than the host takes, or too much waits to be "
        "written to it");
  }

  // The client that `method` was found with; null if that is gone.
  Client* ClientFor(const BackendMethod& method) {
    return method.epoch == epoch_ ? connection_.client() : nullptr;
  }

  absl::StatusOr<BackendMethod> Look(std::string_view service,
                                     std::string_view method) {
    const Client* const client = connection_.client();
    if (client == nullptr) {
      return down_;
    }
    const auto offered = rpc::transport::FindMethod(*client, service, method);
    if (!offered.ok()) {
      return offered.status();
    }
    return BackendMethod{offered->id(), epoch_, KindOf(*offered)};
  }

  void OnConnected() {
    ++epoch_;
    Continue();
  }

  // After all calls and streams have ended.
  void OnDown(const absl::Status& why) {
    down_ = NotReached(why);
    Continue();
  }

  void Continue() {
    for (const Waiting& waiting : std::exchange(waiting_, {})) {
      waiting.on_found(Look(waiting.service, waiting.method));
    }
  }

  void OnCallDone(uint64_t id,
                  const absl::Status& status,
                  const std::string& response) {
    calls_.erase(id);
    if (status.ok()) {
      sink_.OnReply(id, response);
    } else {
      sink_.OnFailure(id, status);
    }
  }

  void OnStreamMessage(uint64_t id, const StreamMessage& message) {
    const absl::Status taken = sink_.OnMessage(id, message);
    if (!taken.ok()) {
      End(id, taken);
    }
  }

  void End(uint64_t id, const absl::Status& status) {
    streams_.erase(id);
    sink_.OnEnd(id, status);
  }

  BackendSink& sink_;
  // Why there is no connection, once there has been none. Stays when there is
  // one again, for what the lost one leaves behind.
  absl::Status down_;
  // Counts connections, since each has numbers of its own for methods.
  uint64_t epoch_ = 0;
  // Until the first attempt to connect is over.
  std::vector<Waiting> waiting_;
  absl::flat_hash_map<uint64_t, std::unique_ptr<RawCall>> calls_;
  absl::flat_hash_map<uint64_t, std::unique_ptr<ClientStream>> streams_;
  // Destroyed first: it calls nobody back.
  ReconnectingClient connection_;
};

}  // namespace

HostBackend::HostBackend(Loop& loop,
                         std::string socket,
                         ReconnectingOptions options)
    : loop_(loop), socket_(std::move(socket)), options_(std::move(options)) {}

std::unique_ptr<BackendClient> HostBackend::Connect(const std::string& name,
                                                    BackendSink& sink) {
  ReconnectingOptions options = options_;
  options.client.name = absl::StrCat("grpc ", name);
  return std::make_unique<HostClient>(loop_, socket_, options, sink);
}

}  // namespace rpc_gateway
