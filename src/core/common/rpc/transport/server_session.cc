#include "core/common/rpc/transport/server_session.h"

#include <algorithm>
#include <system_error>
#include <utility>

#include "absl/strings/str_cat.h"
#include "core/common/rpc/transport/rpc_status.h"

namespace rpc::transport {

ServerSession::ServerSession(const Context& context,
                             uint64_t id,
                             asio::local::stream_protocol::socket socket,
                             const UnixPeer& peer,
                             ClosedCallback on_closed)
    : context_(context),
      id_(id),
      on_closed_(std::move(on_closed)),
      connection_(std::make_shared<Connection>(Connection::Side::kServer,
                                               std::move(socket),
                                               context.limits,
                                               context.counters)),
      client_(peer, *context.counters),
      streams_(std::make_shared<ServerStreams>(connection_,
                                               context.methods,
                                               context.limits,
                                               client_,
                                               *context.counters)),
      hello_timer_(context.loop) {}

ServerSession::~ServerSession() = default;

void ServerSession::Start() {
  connection_->Start(shared_from_this());
  hello_timer_.expires_after(context_.limits.handshake_timeout);
  hello_timer_.async_wait(
      [weak_self = weak_from_this()](const std::error_code& error) {
        const auto self = weak_self.lock();
        if (!error && self && !self->serving_) {
          ++self->context_.counters->limit_hits.handshake_timeout;
          self->connection_->Fail(absl::DeadlineExceededError(absl::StrCat(
              "no hello within handshake_timeout, ",
              self->context_.limits.handshake_timeout.count(), " ms")));
        }
      });
}

void ServerSession::Stop(const absl::Status& why) {
  connection_->Fail(why);
}

ConnectionReport ServerSession::Report() const {
  ConnectionReport report;
  report.id = id_;
  report.pid = client_.process().pid;
  report.user = client_.process().user;
  report.name = client_.name();
  report.age = std::chrono::steady_clock::now() - start_;
  report.calls = calls_.size() + *abandoned_calls_;
  report.queued_bytes = connection_->outbox_bytes();
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
  streams_->Reap();
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
  if (!status.ok()) {
    return status;
  }
  if (hello.protocol_version() != kProtocolVersion) {
    return absl::FailedPreconditionError(absl::StrCat(
        "the client speaks protocol version ", hello.protocol_version(),
        ", this server version ", kProtocolVersion));
  }
  if (hello.max_frame_bytes() < kMinFrameBytes) {
    return absl::InvalidArgumentError(absl::StrCat(
        "the client's max_frame_bytes, ", hello.max_frame_bytes(),
        ", is less than the least that is allowed, ", kMinFrameBytes));
  }
  client_.set_name(hello.client_name());
  connection_->set_peer_max_frame_bytes(hello.max_frame_bytes());

  WelcomeFrame welcome;
  welcome.set_protocol_version(kProtocolVersion);
  welcome.set_max_frame_bytes(
      static_cast<uint32_t>(context_.limits.max_frame_bytes));
  *welcome.mutable_services() = context_.methods.offer();
  if (!connection_->Suits(FrameSize(welcome))) {
    return absl::InvalidArgumentError(absl::StrCat(
        "the client's max_frame_bytes, ", hello.max_frame_bytes(),
        ", is too small for a welcome of ", FrameSize(welcome), " bytes"));
  }
  serving_ = true;
  hello_timer_.cancel();
  connection_->Append(Frame::kWelcome, welcome);
  return absl::OkStatus();
}

absl::Status ServerSession::OnCall(std::string_view body) {
  absl::Status status = ParseBody(body, &call_frame_);
  if (!status.ok()) {
    return status;
  }
  const uint64_t id = call_frame_.call_id();
  if (calls_.contains(id)) {
    return absl::InvalidArgumentError(
        absl::StrCat("call id ", id, " is in use"));
  }
  const ServedMethod* method = context_.methods.Find(call_frame_.method_id());
  absl::Status refusal = CallRefusal(method);
  if (!refusal.ok()) {
    RefuseCall(id, refusal);
    return absl::OkStatus();
  }
  ServerCall* call = context_.calls.Take();
  refusal = call->Prepare(*method, call_frame_, client_.peer());
  if (!refusal.ok()) {
    context_.calls.Return(call);
    RefuseCall(id, refusal);
    return absl::OkStatus();
  }
  StartCall(call);
  return absl::OkStatus();
}

absl::Status ServerSession::CallRefusal(const ServedMethod* method) {
  if (method == nullptr) {
    return absl::UnimplementedError(
        absl::StrCat("no method has the id ", call_frame_.method_id()));
  }
  if (method->streaming()) {
    return absl::UnimplementedError(
        absl::StrCat(method->descriptor->full_name(), " is a stream"));
  }
  if (calls_.size() + *abandoned_calls_ >= context_.limits.max_calls) {
    return client_.Refuse(&LimitHits::max_calls,
                          absl::StrCat("max_calls, ", context_.limits.max_calls,
                                       ", are in flight"));
  }
  return absl::OkStatus();
}

void ServerSession::RefuseCall(uint64_t id, const absl::Status& why) {
  ++context_.counters->calls_refused;
  ReplyError(id, why);
}

void ServerSession::StartCall(ServerCall* call) {
  ++context_.counters->calls_started;
  if (call->Invoke(this)) {
    ++context_.counters->calls_now;
    calls_.emplace(call->id(), call);
    return;
  }
  Reply(*call);
  context_.calls.Return(call);
}

void ServerSession::OnCallDone(const ServerCall& call) {
  calls_.erase(call.id());
  --context_.counters->calls_now;
  Reply(call);
}

void ServerSession::OnCallExpired(ServerCall& call) {
  ++context_.counters->calls_expired;
  GiveUp(call, absl::DeadlineExceededError("the deadline has passed"));
}

absl::Status ServerSession::OnCancel(std::string_view body) {
  CancelFrame cancel;
  absl::Status status = ParseBody(body, &cancel);
  // Nobody there: the reply is on its way already.
  const auto call = calls_.find(cancel.call_id());
  if (status.ok() && call != calls_.end()) {
    ++context_.counters->calls_cancelled;
    GiveUp(*call->second, absl::CancelledError("the client has cancelled it"));
  }
  return status;
}

void ServerSession::GiveUp(ServerCall& call, const absl::Status& why) {
  calls_.erase(call.id());
  --context_.counters->calls_now;
  ReplyError(call.id(), why);
  call.Abandon(abandoned_calls_);
}

absl::Status ServerSession::OnStreamOpen(std::string_view body) {
  StreamOpenFrame open;
  absl::Status status = ParseBody(body, &open);
  return status.ok() ? streams_->OnOpen(open) : status;
}

absl::Status ServerSession::OnStreamData(std::string_view body) {
  absl::Status status = ParseBody(body, &data_frame_);
  return status.ok() ? streams_->OnData(data_frame_) : status;
}

absl::Status ServerSession::OnStreamError(std::string_view body) {
  StreamErrorFrame error;
  absl::Status status = ParseBody(body, &error);
  if (status.ok()) {
    streams_->OnError(error);
  }
  return status;
}

absl::Status ServerSession::OnStreamEnd(std::string_view body) {
  StreamEndFrame end;
  absl::Status status = ParseBody(body, &end);
  if (status.ok()) {
    streams_->OnEnd(end);
  }
  return status;
}

void ServerSession::Reply(const ServerCall& call) {
  if (!call.status().ok()) {
    ReplyError(call.id(), call.status());
    return;
  }
  reply_frame_.Clear();
  reply_frame_.set_call_id(call.id());
  call.response().SerializeToString(reply_frame_.mutable_response());
  const size_t size = FrameSize(reply_frame_);
  if (!connection_->Suits(size)) {
    FreeIfLarge(reply_frame_, size);
    ReplyError(
        call.id(),
        client_.Refuse(
            &LimitHits::max_frame_bytes,
            absl::StrCat("the response takes a frame of ", size,
                         " bytes, more than the client's ", "max_frame_bytes, ",
                         connection_->peer_max_frame_bytes())));
    return;
  }
  AppendReply();
}

void ServerSession::ReplyError(uint64_t call_id, const absl::Status& status) {
  reply_frame_.Clear();
  reply_frame_.set_call_id(call_id);
  ToWire(status, reply_frame_.mutable_status());
  AppendReply();
}

void ServerSession::AppendReply() {
  streams_->AppendHeld();
  connection_->Append(Frame::kReply, reply_frame_);
  FreeIfLarge(reply_frame_, reply_frame_.response().capacity());
}

void ServerSession::BeforeWrite() {
  streams_->AppendHeld();
}

void ServerSession::OnClosed(const absl::Status& why) {
  hello_timer_.cancel();
  client_.OnClosed(why);
  if (!serving_ && !absl::IsUnavailable(why)) {
    ++context_.counters->handshakes_failed;
  }
  // One by one: what hears of its end may complete another.
  while (!calls_.empty()) {
    ServerCall* call = calls_.begin()->second;
    calls_.erase(calls_.begin());
    --context_.counters->calls_now;
    call->Abandon(abandoned_calls_);
  }
  streams_->CloseAll();
  on_closed_(this);
}

}  // namespace rpc::transport
