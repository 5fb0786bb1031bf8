#include "core/common/rpc/transport/client/client_stream_table.h"

#include <utility>

#include "core/common/rpc/transport/client/remote_methods.h"
#include "core/common/rpc/transport/wire/connection.h"
#include "core/common/rpc/transport/wire/rpc_status.h"
#include "rpc/transport/frame.pb.h"

namespace rpc::transport {

ClientStreamTable::ClientStreamTable(loop::Sequence& sequence,
                                     std::shared_ptr<Connection> connection,
                                     RemoteMethods& methods)
    : sequence_(sequence),
      connection_(std::move(connection)),
      methods_(methods) {}

ClientStreamTable::~ClientStreamTable() = default;

uint64_t ClientStreamTable::Open(const Method& method, Observer* observer) {
  return OpenById(IdOf(method), observer);
}

absl::StatusOr<uint64_t> ClientStreamTable::IdOf(const Method& method) {
  if (!method.ok()) {
    return method.status();
  }
  if (!closed_.ok()) {
    return closed_;
  }
  return methods_.Find(*method);
}

uint64_t ClientStreamTable::OpenById(const absl::StatusOr<uint64_t>& method_id,
                                     Observer* observer) {
  const uint64_t id = ++last_id_;
  streams_.emplace(id, Stream{observer});
  const absl::Status status = AppendOpen(id, method_id);
  if (!status.ok()) {
    // The server knows no such stream, so no end frame may be sent for it.
    streams_.at(id).can_send = false;
    sequence_.Post(
        [self = shared_from_this(), id, status] { self->Finish(id, status); });
  }
  return id;
}

absl::Status ClientStreamTable::AppendOpen(
    uint64_t id,
    const absl::StatusOr<uint64_t>& method_id) {
  if (!method_id.ok()) {
    return method_id.status();
  }
  if (!closed_.ok()) {
    return closed_;
  }
  StreamOpenFrame open;
  open.set_stream_id(id);
  open.set_method_id(*method_id);
  const size_t size = FrameSize(open);
  absl::Status room = connection_->CheckRoomFor(size);
  if (!room.ok()) {
    return room;
  }
  if (!connection_->Append(Frame::kStreamOpen, open, size)) {
    return absl::UnavailableError("the connection takes no more frames");
  }
  return absl::OkStatus();
}

bool ClientStreamTable::SendData(uint64_t id, const StreamMessage& message) {
  if (!CanSend(id)) {
    return false;
  }
  StreamDataFrame data;
  data.add_stream_ids(id);
  *data.mutable_message() = message;
  const size_t size = FrameSize(data);
  return connection_->CheckRoomFor(size).ok() &&
         connection_->Append(Frame::kStreamData, data, size);
}

bool ClientStreamTable::SendError(uint64_t id, const StreamMessage& message) {
  if (!CanSend(id)) {
    return false;
  }
  StreamErrorFrame error;
  error.set_stream_id(id);
  *error.mutable_message() = message;
  const size_t size = FrameSize(error);
  if (!connection_->HasRoomFor(size)) {
    connection_->FailAsFull();
    return false;
  }
  return connection_->Append(Frame::kStreamError, error, size);
}

bool ClientStreamTable::CanSend(uint64_t id) const {
  const auto stream = streams_.find(id);
  return stream != streams_.end() && stream->second.can_send;
}

void ClientStreamTable::End(uint64_t id) {
  const auto stream = streams_.find(id);
  if (stream != streams_.end()) {
    AppendEnd(stream);
  }
}

void ClientStreamTable::EndAndDetach(uint64_t id) {
  const auto stream = streams_.find(id);
  if (stream != streams_.end()) {
    stream->second.observer = nullptr;
    AppendEnd(stream);
  }
}

void ClientStreamTable::AppendEnd(Streams::iterator stream) {
  if (!std::exchange(stream->second.can_send, false)) {
    return;
  }
  StreamEndFrame end;
  end.set_stream_id(stream->first);
  connection_->Append(Frame::kStreamEnd, end);
}

void ClientStreamTable::OnDataFrame(const StreamDataFrame& frame) {
  const ReceivedMessage message(frame.message());
  for (const uint64_t id : frame.stream_ids()) {
    const auto stream = streams_.find(id);
    if (stream != streams_.end() && stream->second.observer != nullptr) {
      stream->second.observer->OnData(message);
    }
  }
}

void ClientStreamTable::OnEndFrame(const StreamEndFrame& frame) {
  const auto stream = streams_.find(frame.stream_id());
  if (stream != streams_.end()) {
    AppendEnd(stream);
    Finish(frame.stream_id(), FromWire(frame.status()));
  }
}

void ClientStreamTable::Finish(uint64_t id, const absl::Status& status) {
  const auto stream = streams_.find(id);
  if (stream == streams_.end()) {
    return;
  }
  Observer* observer = stream->second.observer;
  streams_.erase(stream);
  if (observer != nullptr) {
    observer->OnEnd(status);
  }
}

void ClientStreamTable::FinishAll(const absl::Status& why) {
  closed_ = why;
  const uint64_t last_id = last_id_;
  while (!streams_.empty() && streams_.begin()->first <= last_id) {
    Finish(streams_.begin()->first, why);
  }
}

}  // namespace rpc::transport
