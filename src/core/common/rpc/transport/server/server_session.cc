#include "core/common/rpc/transport/server/server_session.h"

#include <algorithm>
#include <string>
#include <utility>

#include "absl/strings/str_cat.h"
#include "core/common/rpc/transport/wire/rpc_status.h"
#include "core/common/rpc/transport/wire/shared_message.h"

namespace rpc::transport {
namespace {

OfferedMethod::StreamKind StreamKindOf(const serving::ServedMethod& method) {
  if (method.kind == torvane::MethodKind::kEventStream) {
    return OfferedMethod::STREAM_KIND_EVENTS;
  }
  return method.asks_questions() ? OfferedMethod::STREAM_KIND_QUESTIONS
                                 : OfferedMethod::STREAM_KIND_UNSPECIFIED;
}

// What the server offers. Methods of one service stand together.
void FillOffer(const serving::ServedMethods& methods, WelcomeFrame* welcome) {
  const google::protobuf::ServiceDescriptor* service = nullptr;
  for (const serving::ServedMethod& method : methods.all()) {
    if (method.descriptor->service() != service) {
      service = method.descriptor->service();
      welcome->add_services()->set_full_name(service->full_name());
    }
    OfferedMethod* offered =
        welcome->mutable_services()->rbegin()->add_methods();
    offered->set_name(method.descriptor->name());
    offered->set_id(method.id);
    offered->set_streaming(method.streaming());
    offered->set_stream_kind(StreamKindOf(method));
  }
}

// 0 stands for no deadline.
std::chrono::milliseconds TimeoutOf(uint64_t timeout_ms) {
  constexpr auto kLongest = std::chrono::milliseconds::max();
  return std::chrono::milliseconds(
      std::min<uint64_t>(timeout_ms, static_cast<uint64_t>(kLongest.count())));
}

}  // namespace

ServerSession::ServerSession(const Shared& shared,
                             uint64_t id,
                             asio::local::stream_protocol::socket socket,
                             const serving::ClientProcess& process,
                             EndedCallback on_ended)
    : shared_(shared),
      id_(id),
      on_ended_(std::move(on_ended)),
      connection_(std::make_shared<Connection>(Connection::Side::kServer,
                                               std::move(socket),
                                               shared.limits,
                                               shared.counters)),
      client_(process, *shared.counters, {shared.trace, id}),
      calls_(*this, shared.methods, shared.limits, shared.call_pool, client_),
      streams_(std::make_shared<serving::Streams>(shared.endings,
                                                  *this,
                                                  shared.methods,
                                                  shared.limits,
                                                  client_,
                                                  *shared.counters,
                                                  shared.unclear_messages)) {}

ServerSession::~ServerSession() = default;

void ServerSession::Start() {
  connection_->Start(shared_from_this());
  hello_timer_ = shared_.loop.RunAfter(shared_.limits.handshake_timeout,
                                       [this] { OnHelloTimeout(); });
}

void ServerSession::OnHelloTimeout() {
  ++shared_.counters->limit_hits.handshake_timeout;
  connection_->Fail(absl::DeadlineExceededError(
      absl::StrCat("no hello within handshake_timeout, ",
                   shared_.limits.handshake_timeout.count(), " ms")));
}

void ServerSession::Stop(const absl::Status& why) {
  connection_->Fail(why);
}

serving::ConnectionReport ServerSession::Report() const {
  serving::ConnectionReport report;
  report.id = id_;
  report.age = std::chrono::steady_clock::now() - start_;
  report.calls = calls_.size();
  report.queued_bytes = connection_->outbox_bytes();
  client_.Report(report);
  streams_->Report(report);
  return report;
}

absl::Status ServerSession::OnFrame(const FrameView& frame) {
  if (serving_ == (frame.kind == Frame::kHello)) {
    return absl::FailedPreconditionError(
        serving_ ? "a second hello" : "the first frame is not a hello");
  }
  absl::Status status = Handle(frame);
  FreeIfLarge(call_frame_, frame.body.size());
  FreeIfLarge(data_frame_, frame.body.size());
  return status;
}

absl::Status ServerSession::Handle(const FrameView& frame) {
  switch (frame.kind) {
    case Frame::kHello:
      return OnHello(frame.body);
    case Frame::kCall:
      return OnCall(frame.body);
    case Frame::kCancel:
      return OnCancel(frame.body);
    case Frame::kStreamOpen:
      return OnStreamOpen(frame.body);
    case Frame::kStreamData:
      return OnStreamData(frame.body);
    case Frame::kStreamError:
      return OnStreamError(frame.body);
    case Frame::kStreamEnd:
      return OnStreamEnd(frame.body);
    case Frame::kGoodbye:
      connection_->Close(absl::UnavailableError("the client said goodbye"));
      return absl::OkStatus();
    default:
      return absl::InvalidArgumentError(absl::StrCat(
          "a client sends no frame of kind ", static_cast<int>(frame.kind)));
  }
}

absl::Status ServerSession::OnHello(std::string_view body) {
  HelloFrame hello;
  absl::Status status = ParseBody(body, &hello);
  if (status.ok()) {
    status = CheckHello(hello);
  }
  if (!status.ok()) {
    return status;
  }
  client_.set_name(hello.client_name());
  connection_->set_peer_max_frame_bytes(hello.max_frame_bytes());

  WelcomeFrame welcome;
  welcome.set_protocol_version(kProtocolVersion);
  welcome.set_max_frame_bytes(shared_.limits.max_client_frame_bytes);
  FillOffer(shared_.methods, &welcome);
  const size_t size = FrameSize(welcome);
  if (!connection_->FitsPeer(size)) {
    return absl::InvalidArgumentError(absl::StrCat(
        LongestFrame(), ", is too small for a welcome of ", size, " bytes"));
  }
  serving_ = true;
  client_.trace().BeginConnection(client_.peer());
  hello_timer_.reset();
  connection_->Append(Frame::kWelcome, welcome, size);
  return absl::OkStatus();
}

absl::Status ServerSession::CheckHello(const HelloFrame& hello) const {
  if (hello.protocol_version() != kProtocolVersion) {
    return absl::FailedPreconditionError(absl::StrCat(
        "the client speaks protocol version ", hello.protocol_version(),
        ", this server version ", kProtocolVersion));
  }
  if (hello.max_frame_bytes() < serving::kMinFrameBytes) {
    return absl::InvalidArgumentError(absl::StrCat(
        "the client's max_frame_bytes, ", hello.max_frame_bytes(),
        ", is less than the least that is allowed, ", serving::kMinFrameBytes));
  }
  return absl::OkStatus();
}

absl::Status ServerSession::OnCall(std::string_view body) {
  absl::Status status = ParseBody(body, &call_frame_);
  if (!status.ok()) {
    return status;
  }
  return calls_.Start(call_frame_.call_id(), call_frame_.method_id(),
                      TimeoutOf(call_frame_.timeout_ms()),
                      call_frame_.request());
}

absl::Status ServerSession::OnCancel(std::string_view body) {
  CancelFrame cancel;
  absl::Status status = ParseBody(body, &cancel);
  if (status.ok()) {
    calls_.Cancel(cancel.call_id());
  }
  return status;
}

absl::Status ServerSession::OnStreamOpen(std::string_view body) {
  StreamOpenFrame open;
  absl::Status status = ParseBody(body, &open);
  return status.ok()
             ? streams_->OnClientOpen(open.stream_id(), open.method_id())
             : status;
}

absl::Status ServerSession::OnStreamData(std::string_view body) {
  absl::Status status = ParseBody(body, &data_frame_);
  if (!status.ok()) {
    return status;
  }
  // Each stream would parse the message anew, and those of events keep it.
  if (data_frame_.stream_ids_size() != 1) {
    return absl::InvalidArgumentError(
        absl::StrCat("stream_data of a client names one stream, not ",
                     data_frame_.stream_ids_size()));
  }
  streams_->OnClientData(data_frame_.stream_ids(0),
                         data_frame_.mutable_message());
  return absl::OkStatus();
}

absl::Status ServerSession::OnStreamError(std::string_view body) {
  StreamErrorFrame error;
  absl::Status status = ParseBody(body, &error);
  if (status.ok()) {
    streams_->OnClientError(error.stream_id(), error.mutable_message());
  }
  return status;
}

absl::Status ServerSession::OnStreamEnd(std::string_view body) {
  StreamEndFrame end;
  absl::Status status = ParseBody(body, &end);
  if (status.ok()) {
    streams_->OnClientEnd(end.stream_id());
  }
  return status;
}

void ServerSession::SendReply(uint64_t call_id,
                              const google::protobuf::Message& response) {
  reply_frame_.Clear();
  reply_frame_.set_call_id(call_id);
  response.SerializeToString(reply_frame_.mutable_response());
  const size_t size = FrameSize(reply_frame_);
  if (connection_->FitsPeer(size)) {
    connection_->Append(Frame::kReply, reply_frame_, size);
    FreeIfLarge(reply_frame_, size);
  } else {
    FreeIfLarge(reply_frame_, size);
    SendError(call_id, FrameTooLong("the response", size));
  }
}

void ServerSession::SendError(uint64_t call_id, const absl::Status& status) {
  reply_frame_.Clear();
  reply_frame_.set_call_id(call_id);
  ToWire(status, reply_frame_.mutable_status());
  connection_->Append(Frame::kReply, reply_frame_);
}

absl::Status ServerSession::SendMessage(serving::OutgoingStream& stream,
                                        const StreamMessage& message) {
  if (connection_->JoinMessage(stream, message)) {
    return absl::OkStatus();
  }
  const size_t message_bytes = message.ByteSizeLong();
  const size_t size =
      StreamDataFrameSize(StreamIdBytes(stream.id), message_bytes);
  if (!connection_->FitsPeer(size)) {
    return FrameTooLong("a message", size,
                        ": it is lost, and so is what comes until the client "
                        "opens the stream anew and subscribes again");
  }
  return connection_->AppendMessage(stream, message, message_bytes, size)
             ? absl::OkStatus()
             : absl::UnavailableError("the connection is being closed");
}

void ServerSession::SendEnd(uint64_t stream_id, const absl::Status& status) {
  StreamEndFrame end;
  end.set_stream_id(stream_id);
  if (!status.ok()) {
    ToWire(status, end.mutable_status());
  }
  connection_->Append(Frame::kStreamEnd, end);
}

absl::Status ServerSession::FrameTooLong(const char* what,
                                         size_t frame_bytes,
                                         const char* consequence) {
  return client_.NoteLimit(
      &serving::LimitHits::max_frame_bytes,
      absl::StrCat(what, " takes a frame of ", frame_bytes,
                   " bytes, more than ", LongestFrame(), consequence));
}

// Whose limit it is that frames to the client keep, and its value.
std::string ServerSession::LongestFrame() const {
  const size_t bytes = connection_->peer_max_frame_bytes();
  const bool is_ours = bytes == shared_.limits.max_frame_bytes;
  return absl::StrCat(is_ours ? "" : "the client's ", "max_frame_bytes, ",
                      bytes);
}

void ServerSession::OnClosed(const absl::Status& why) {
  hello_timer_.reset();
  client_.OnClosed(why);
  if (!serving_ && !absl::IsUnavailable(why)) {
    ++shared_.counters->handshakes_failed;
  }
  calls_.AbandonAll();
  if (serving_) {
    client_.trace().EndConnection(client_.peer(), why);
  }
  streams_->Close([self = shared_from_this()] { self->on_ended_(self.get()); });
}

}  // namespace rpc::transport
