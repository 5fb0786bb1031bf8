#include "core/common/rpc/transport/client/client_stream.h"

#include <utility>

#include "core/common/rpc/transport/client/client_core.h"

namespace rpc::transport {

ClientStream::ClientStream(Client& client,
                           const Method& method,
                           DataCallback on_data,
                           EndCallback on_end)
    : core_(client.core()),
      on_data_(std::make_shared<const DataCallback>(std::move(on_data))),
      on_end_(std::move(on_end)),
      id_(core_->streams().Open(method, this)) {}

ClientStream::ClientStream(Client& client,
                           uint64_t method_id,
                           DataCallback on_data,
                           EndCallback on_end)
    : core_(client.core()),
      on_data_(std::make_shared<const DataCallback>(std::move(on_data))),
      on_end_(std::move(on_end)),
      id_(core_->streams().OpenById(method_id, this)) {}

ClientStream::~ClientStream() {
  core_->streams().EndAndDetach(id_);
}

bool ClientStream::Send(const StreamMessage& message) {
  return core_->streams().SendData(id_, message);
}

bool ClientStream::SendError(const StreamMessage& message) {
  return core_->streams().SendError(id_, message);
}

void ClientStream::End() {
  core_->streams().End(id_);
}

void ClientStream::OnData(const ReceivedMessage& message) {
  const std::shared_ptr<const DataCallback> on_data = on_data_;
  (*on_data)(message);
}

void ClientStream::OnEnd(const absl::Status& status) {
  if (const EndCallback on_end = std::exchange(on_end_, nullptr)) {
    on_end(status);
  }
}

}  // namespace rpc::transport
