#include "core/common/rpc/transport/reconnecting_client.h"

#include <utility>

#include "absl/status/statusor.h"
#include "core/common/rpc/transport/client/client_core.h"

namespace rpc::transport {

ReconnectingClient::ReconnectingClient(loop::Loop& loop,
                                       std::string path,
                                       ReconnectingOptions options,
                                       ConnectedCallback on_connected,
                                       DownCallback on_down)
    : loop_(loop),
      path_(std::move(path)),
      options_(std::move(options)),
      on_connected_(std::move(on_connected)),
      on_down_(std::move(on_down)),
      pause_(options_.first_pause, options_.longest_pause),
      next_attempt_(
          loop.RunAfter(std::chrono::milliseconds(0), [this] { Connect(); })) {}

// Clients that are destroyed call nobody back.
ReconnectingClient::~ReconnectingClient() = default;

Client* ReconnectingClient::client() const {
  return client_ != nullptr && client_->status().ok() ? client_.get() : nullptr;
}

void ReconnectingClient::Connect() {
  const absl::Status begun = BeginToConnect();
  if (!begun.ok()) {
    TryAgain(begun);
  }
}

absl::Status ReconnectingClient::BeginToConnect() {
  absl::StatusOr<loop::ScopedFd> socket = Client::OpenSocket(path_);
  if (!socket.ok()) {
    return socket.status();
  }
  auto attempt = Client::Make(loop_, *std::move(socket), options_.client);
  if (!attempt.ok()) {
    return attempt.status();
  }
  attempt_ = *std::move(attempt);
  attempt_->core()->StartHandshake(
      [this](const absl::Status& status) { OnHandshakeOver(status); });
  return absl::OkStatus();
}

void ReconnectingClient::OnHandshakeOver(const absl::Status& status) {
  std::unique_ptr<Client> client = std::move(attempt_);
  if (!status.ok()) {
    return TryAgain(status);
  }
  client_ = std::move(client);
  client_->set_on_closed([this](const absl::Status& why) { OnLost(why); });
  connected_ = loop_.Now();
  std::optional<Gap> gap = std::exchange(gap_, std::nullopt);
  if (gap) {
    gap->connected = connected_;
  }
  // Copied: it may destroy this.
  const ConnectedCallback on_connected = on_connected_;
  on_connected(*client_, gap);
}

void ReconnectingClient::OnLost(const absl::Status& why) {
  const loop::Clock::time_point now = loop_.Now();
  pause_.ConnectionLasted(now - connected_);
  gap_ = Gap{why, now, {}};
  TryAgain(why);
}

void ReconnectingClient::TryAgain(const absl::Status& why) {
  const std::chrono::milliseconds pause = pause_.Next();
  next_attempt_ = loop_.RunAfter(pause, [this] { Connect(); });
  if (const DownCallback on_down = on_down_) {
    on_down(why, pause);
  }
}

}  // namespace rpc::transport
