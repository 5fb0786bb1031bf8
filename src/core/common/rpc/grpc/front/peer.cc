#include "core/common/rpc/grpc/front/peer.h"

#include <algorithm>
#include <utility>

#include "absl/strings/str_cat.h"

namespace rpc::grpc {

Peer::Peer(const Shared& shared, const std::string& name)
    : shared_(shared),
      idle_since_(shared.loop.Now()),
      backend_(shared.backend.Connect(name, *this)) {}

Peer::~Peer() = default;

void Peer::Begin(const std::shared_ptr<Exchange>& exchange) {
  const uint64_t id = ++last_id_;
  const auto rpc = std::make_shared<Rpc>(*this, id, exchange);
  rpcs_.emplace(id, rpc);
  exchange->Observe(rpc, backlog_);
  rpc->Begin();
}

void Peer::Forget(uint64_t id) {
  rpcs_.erase(id);
  if (rpcs_.empty()) {
    idle_since_ = shared_.loop.Now();
  }
}

void Peer::EndStreams(const absl::Status& why) {
  for (const auto& rpc : All()) {
    if (!rpc->is_call()) {
      shared_.stream_ends.Add([weak_rpc = std::weak_ptr(rpc), why] {
        if (const auto ending = weak_rpc.lock()) {
          ending->Fail(why);
        }
      });
    }
  }
}

void Peer::EndAll(const absl::Status& why) {
  for (const auto& rpc : All()) {
    rpc->Fail(why);
  }
}

// By id, so that they end in the order in which they began.
std::vector<std::shared_ptr<Rpc>> Peer::All() const {
  std::vector<std::shared_ptr<Rpc>> all;
  for (const auto& [id, rpc] : rpcs_) {
    all.push_back(rpc);
  }
  std::ranges::sort(all, {}, &Rpc::id);
  return all;
}

std::shared_ptr<Rpc> Peer::Find(uint64_t id) const {
  const auto rpc = rpcs_.find(id);
  return rpc == rpcs_.end() ? nullptr : rpc->second;
}

void Peer::OnReply(uint64_t call_id, std::string_view response) {
  const auto rpc = Find(call_id);
  if (rpc == nullptr) {
    return;
  }
  const absl::Status room = CheckRoomFor(response.size());
  if (room.ok()) {
    rpc->OnReply(response);
  } else {
    rpc->OnEnd(room);
  }
}

void Peer::OnFailure(uint64_t call_id, const absl::Status& status) {
  OnEnd(call_id, status);
}

absl::Status Peer::OnMessage(uint64_t stream_id,
                             const transport::StreamMessage& message) {
  const auto rpc = Find(stream_id);
  if (rpc == nullptr) {
    return absl::OkStatus();
  }
  const std::string to_client = rpc->ToClient(message);
  absl::Status room = CheckRoomFor(to_client.size());
  if (room.ok()) {
    rpc->OnStreamMessage(to_client);
  }
  return room;
}

void Peer::OnEnd(uint64_t stream_id, const absl::Status& status) {
  if (const auto rpc = Find(stream_id)) {
    rpc->OnEnd(status);
  }
}

// One message always has room, whatever its size.
absl::Status Peer::CheckRoomFor(size_t bytes) const {
  const size_t waiting = *backlog_;
  const size_t most = shared_.options.limits.max_outbox_bytes;
  if (waiting == 0 || waiting + bytes <= most) {
    return absl::OkStatus();
  }
  return absl::ResourceExhaustedError(absl::StrCat(
      "the client reads too slowly: ", waiting + bytes,
      " bytes would wait for it, more than max_outbox_bytes, ", most));
}

}  // namespace rpc::grpc
