#include "core/common/rpc/grpc/services/service_session.h"

#include <unistd.h>

#include "absl/strings/str_cat.h"

namespace rpc::grpc {

// A peer is no process that the system vouches for: it may do what the server's
// user may.
ServiceSession::ServiceSession(ServiceBackend& backend,
                               uint64_t id,
                               const std::string& name,
                               BackendSink& sink)
    : backend_(backend),
      id_(id),
      sink_(&sink),
      client_({.pid = 0, .user = geteuid()}, *backend.counters_),
      calls_(*this,
             backend.methods_,
             backend.limits_,
             *backend.call_pool_,
             client_),
      streams_(std::make_shared<serving::Streams>(*backend.endings_,
                                                  *this,
                                                  backend.methods_,
                                                  backend.limits_,
                                                  client_,
                                                  *backend.counters_,
                                                  backend.unclear_messages_)) {
  client_.set_name(name);
}

void ServiceSession::Leave() {
  sink_ = nullptr;
  calls_.AbandonAll();
  streams_->Close([self = shared_from_this()] {
    self->backend_.OnSessionEnded(self.get());
  });
}

serving::ConnectionReport ServiceSession::Report() const {
  serving::ConnectionReport report;
  report.id = id_;
  report.age = std::chrono::steady_clock::now() - start_;
  report.calls = calls_.size();
  report.queued_bytes = sink_ == nullptr ? 0 : sink_->queued_bytes();
  client_.Report(report);
  streams_->Report(report);
  return report;
}

void ServiceSession::SendReply(uint64_t call_id,
                               const google::protobuf::Message& response) {
  if (sink_ == nullptr) {
    return;
  }
  const std::string bytes = response.SerializeAsString();
  const absl::Status fits = CheckSize("the response", bytes.size());
  if (fits.ok()) {
    sink_->OnReply(call_id, bytes);
  } else {
    sink_->OnFailure(call_id, fits);
  }
}

void ServiceSession::SendError(uint64_t call_id, const absl::Status& status) {
  if (sink_ != nullptr) {
    sink_->OnFailure(call_id, status);
  }
}

absl::Status ServiceSession::SendMessage(
    serving::OutgoingStream& stream,
    const transport::StreamMessage& message) {
  if (sink_ == nullptr) {
    return absl::UnavailableError("the client has left");
  }
  absl::Status fits = CheckSize("a message", message.payload().size());
  if (!fits.ok()) {
    return fits;
  }
  const absl::Status taken = sink_->OnMessage(stream.id, message);
  return taken.ok() ? taken
                    : client_.NoteLimit(&serving::LimitHits::max_outbox_bytes,
                                        std::string(taken.message()));
}

void ServiceSession::SendEnd(uint64_t stream_id, const absl::Status& status) {
  if (sink_ != nullptr) {
    sink_->OnEnd(stream_id, status);
  }
}

absl::Status ServiceSession::CheckSize(const char* what, size_t bytes) {
  const size_t most = backend_.limits_.max_frame_bytes;
  return bytes <= most
             ? absl::OkStatus()
             : client_.NoteLimit(
                   &serving::LimitHits::max_frame_bytes,
                   absl::StrCat(what, " takes ", bytes,
                                " bytes, more than max_frame_bytes, ", most));
}

}  // namespace rpc::grpc
