#include "core/common/rpc/transport/client/client_core.h"

#include <algorithm>
#include <cstdint>
#include <limits>
#include <system_error>
#include <utility>
#include <vector>

#include "absl/log/absl_check.h"
#include "absl/status/statusor.h"
#include "absl/strings/str_cat.h"
#include "core/common/rpc/transport/client/method_check.h"
#include "core/common/rpc/transport/wire/frame_codec.h"
#include "core/common/rpc/transport/wire/rpc_status.h"

namespace rpc::transport {
namespace {

using google::protobuf::Closure;
using google::protobuf::Message;
using google::protobuf::MethodDescriptor;

// Given to a blocking call as its closure: tells when the call is over.
class Waiter final : public Closure {
 public:
  void Run() override { done_ = true; }
  bool done() const { return done_; }

 private:
  bool done_ = false;
};

absl::Status LoopStopped() {
  return absl::CancelledError("the loop was stopped while this waited on it");
}

// On the wire 0 means no timeout. None that is set is 0 here.
//
// The first servers of this version read 32 bits of it. They would take the
// lower half of a longer one for all of it, so the client keeps that alone: it
// cancels the call when the time is up.
uint64_t OnWire(std::optional<std::chrono::milliseconds> timeout) {
  constexpr int64_t kLongest = std::numeric_limits<uint32_t>::max();
  return timeout && timeout->count() <= kLongest
             ? static_cast<uint64_t>(timeout->count())
             : 0;
}

}  // namespace

ClientCore::ClientCore(loop::Loop& loop,
                       asio::local::stream_protocol::socket socket,
                       ClientOptions options)
    : loop_(loop),
      options_(std::move(options)),
      connection_(std::make_shared<Connection>(Connection::Side::kClient,
                                               std::move(socket),
                                               options_.limits,
                                               counters_)),
      streams_(
          std::make_shared<ClientStreamTable>(loop, connection_, methods_)) {}

ClientCore::~ClientCore() = default;

void ClientCore::StartHandshake(StatusCallback on_over) {
  on_handshake_over_ = std::move(on_over);
  connection_->Start(shared_from_this());
  HelloFrame hello;
  hello.set_protocol_version(kProtocolVersion);
  hello.set_max_frame_bytes(options_.limits.max_frame_bytes);
  hello.set_client_name(options_.name);
  connection_->Append(Frame::kHello, hello);
  connection_->Write();
  handshake_timer_ = loop_.RunAfter(options_.limits.handshake_timeout,
                                    [this] { OnHandshakeTimeout(); });
}

absl::Status ClientCore::RunHandshake() {
  StartHandshake(nullptr);
  if (!loop_.RunUntil([this] { return IsHandshakeOver(); })) {
    return LoopStopped();
  }
  return HandshakeOutcome();
}

absl::Status ClientCore::HandshakeOutcome() const {
  // INVALID_ARGUMENT is what malformed frames close the connection with. A
  // reason that the server has given in its goodbye is passed on as it is.
  if (absl::IsInvalidArgument(status_) && handshake_ != Handshake::kGoodbye) {
    return absl::FailedPreconditionError(absl::StrCat(
        "the other side does not speak this protocol: ", status_.message()));
  }
  return status_;
}

void ClientCore::OnHandshakeOver() {
  handshake_timer_.reset();
  if (on_handshake_over_ == nullptr) {
    return;
  }
  loop_.Post([self = shared_from_this()] {
    if (const auto on_over = std::exchange(self->on_handshake_over_, nullptr)) {
      on_over(self->HandshakeOutcome());
    }
  });
}

bool ClientCore::IsHandshakeOver() const {
  return handshake_ != Handshake::kAwaitingWelcome || !status_.ok();
}

void ClientCore::OnHandshakeTimeout() {
  if (!IsHandshakeOver()) {
    ++counters_->limit_hits.handshake_timeout;
    connection_->Close(absl::DeadlineExceededError(absl::StrCat(
        "the server has not answered the hello within handshake_timeout, ",
        options_.limits.handshake_timeout.count(), " ms")));
  }
}

absl::Status ClientCore::OnFrame(const FrameView& frame) {
  const bool welcomed = handshake_ != Handshake::kAwaitingWelcome;
  if (welcomed == (frame.kind == Frame::kWelcome) &&
      frame.kind != Frame::kGoodbye) {
    return absl::InvalidArgumentError(
        welcomed ? "a second welcome" : "the first frame is not a welcome");
  }
  absl::Status status = HandleFrame(frame);
  FreeIfLarge(reply_frame_, frame.body.size());
  FreeIfLarge(data_frame_, frame.body.size());
  return status;
}

absl::Status ClientCore::HandleFrame(const FrameView& frame) {
  switch (frame.kind) {
    case Frame::kWelcome:
      return OnWelcome(frame.body);
    case Frame::kGoodbye:
      return OnGoodbye(frame.body);
    case Frame::kReply:
      return OnReply(frame.body);
    case Frame::kStreamData:
      return OnStreamData(frame.body);
    case Frame::kStreamEnd:
      return OnStreamEnd(frame.body);
    default:
      return absl::InvalidArgumentError(absl::StrCat(
          "a server sends no frame of kind ", static_cast<int>(frame.kind)));
  }
}

absl::Status ClientCore::OnWelcome(std::string_view body) {
  WelcomeFrame welcome;
  absl::Status status = ParseBody(body, &welcome);
  if (!status.ok()) {
    return status;
  }
  if (welcome.protocol_version() != kProtocolVersion) {
    return absl::FailedPreconditionError(absl::StrCat(
        "the server speaks protocol version ", welcome.protocol_version(),
        ", this client version ", kProtocolVersion));
  }
  if (welcome.max_frame_bytes() < serving::kMinFrameBytes) {
    return absl::InvalidArgumentError(absl::StrCat(
        "the server's max_frame_bytes, ", welcome.max_frame_bytes(),
        ", is less than the least that is allowed, ", serving::kMinFrameBytes));
  }
  connection_->set_peer_max_frame_bytes(welcome.max_frame_bytes());
  methods_.Set(std::move(*welcome.mutable_services()));
  handshake_ = Handshake::kWelcomed;
  OnHandshakeOver();
  return absl::OkStatus();
}

absl::Status ClientCore::OnGoodbye(std::string_view body) {
  GoodbyeFrame goodbye;
  absl::Status status = ParseBody(body, &goodbye);
  if (status.ok()) {
    handshake_ = Handshake::kGoodbye;
    status = FromWire(goodbye.status());
  }
  if (status.ok()) {
    status = absl::UnavailableError("the server said goodbye");
  }
  connection_->Close(status);
  return absl::OkStatus();
}

void ClientCore::Call(const MethodDescriptor* method,
                      ClientController* controller,
                      const Message* request,
                      Message* response,
                      Closure* done) {
  // Its status is that of the call under way, so it could not carry a refusal.
  ABSL_CHECK(controller->core_ == nullptr)
      << "the controller for " << NameOf(method)
      << " is that of another call, which is under way";
  if (done == nullptr) {
    CallAndWait(method, controller, request, response);
  } else {
    StartCall(method, controller, request, response, done);
  }
}

void ClientCore::RunSoon(Closure* done) {
  if (done != nullptr) {
    loop_.Post([done] { done->Run(); });
  }
}

void ClientCore::CallAndWait(const MethodDescriptor* method,
                             ClientController* controller,
                             const Message* request,
                             Message* response) {
  if (connection_->is_handling_frame()) {
    controller->status_ = absl::FailedPreconditionError(
        absl::StrCat("a blocking call of ", NameOf(method),
                     " from within a callback of the same client"));
    return;
  }
  Waiter waiter;
  connection_->HoldWrites();
  const uint64_t id = StartCall(method, controller, request, response, &waiter);
  connection_->Write();
  if (!loop_.RunUntil([&waiter] { return waiter.done(); })) {
    if (IsAwaitingReply(id)) {
      AppendCancel(id);
    }
    FinishCall(id, LoopStopped());
  }
}

uint64_t ClientCore::StartCall(const MethodDescriptor* method,
                               ClientController* controller,
                               const Message* request,
                               Message* response,
                               Closure* done) {
  const absl::StatusOr<uint64_t> method_id = IdOf(method, request, response);
  if (method_id.ok()) {
    request->SerializeToString(call_frame_.mutable_request());
  }
  return StartCall(method_id, {controller, response, nullptr, done, nullptr});
}

void ClientCore::CallById(uint64_t method_id,
                          ClientController* controller,
                          const std::string& request,
                          std::string* response,
                          Closure* done) {
  call_frame_.set_request(request);
  StartCall(method_id, {controller, nullptr, response, done, nullptr});
}

absl::StatusOr<uint64_t> ClientCore::IdOf(const MethodDescriptor* method,
                                          const Message* request,
                                          const Message* response) {
  if (last_call_.IsLike(method, request, response)) {
    return last_call_.method_id();
  }
  absl::Status valid = CheckCall(method, request, response);
  if (!valid.ok()) {
    return valid;
  }
  if (!status_.ok()) {
    return status_;
  }
  absl::StatusOr<uint64_t> id = methods_.Find(method);
  if (id.ok() && HasClassOfItsOwn(*request) && HasClassOfItsOwn(*response)) {
    last_call_.Remember(method, *request, *response, *id);
  }
  return id;
}

uint64_t ClientCore::StartCall(const absl::StatusOr<uint64_t>& method_id,
                               PendingCall call) {
  const uint64_t id = ++last_call_id_;
  ClientController* const controller = call.controller;
  calls_.emplace(id, std::move(call));
  controller->core_ = this;
  controller->call_id_ = id;
  controller->status_ = absl::OkStatus();
  const std::optional<Milliseconds> timeout =
      controller->timeout_ ? controller->timeout_ : options_.call_timeout;
  const absl::Status status = AppendCall(id, method_id, timeout);
  FreeIfLarge(call_frame_, call_frame_.request().capacity());
  if (!status.ok()) {
    FinishCallSoon(id, status);
  } else if (timeout) {
    StartTimer(id, *timeout);
  }
  return id;
}

absl::Status ClientCore::AppendCall(uint64_t id,
                                    const absl::StatusOr<uint64_t>& method_id,
                                    std::optional<Milliseconds> timeout) {
  if (!method_id.ok()) {
    return method_id.status();
  }
  if (!status_.ok()) {
    return status_;
  }
  if (timeout && timeout->count() <= 0) {
    return absl::DeadlineExceededError("no time was left for the call");
  }
  call_frame_.set_call_id(id);
  call_frame_.set_method_id(*method_id);
  call_frame_.set_timeout_ms(OnWire(timeout));
  const size_t size = FrameSize(call_frame_);
  if (!connection_->FitsPeer(size)) {
    ++counters_->limit_hits.max_client_frame_bytes;
    return absl::ResourceExhaustedError(absl::StrCat(
        "the request takes a frame of ", size, " bytes, more than the ",
        "server's max_client_frame_bytes, ",
        connection_->peer_max_frame_bytes()));
  }
  absl::Status room = connection_->CheckRoomFor(size);
  if (!room.ok()) {
    return room;
  }
  if (!connection_->Append(Frame::kCall, call_frame_, size)) {
    return absl::UnavailableError("the connection is being closed");
  }
  return absl::OkStatus();
}

void ClientCore::StartTimer(uint64_t id, Milliseconds timeout) {
  calls_.at(id).timer = loop_.RunAfter(timeout, [this, id] {
    AppendCancel(id);
    FinishCall(
        id, absl::DeadlineExceededError("the call was not answered in time"));
  });
}

void ClientCore::CancelCall(uint64_t id) {
  if (IsAwaitingReply(id)) {
    AppendCancel(id);
    FinishCallSoon(id, absl::CancelledError("the caller has cancelled it"));
  }
}

bool ClientCore::IsAwaitingReply(uint64_t id) const {
  const auto call = calls_.find(id);
  return call != calls_.end() && !call->second.finish_posted;
}

void ClientCore::AppendCancel(uint64_t id) {
  CancelFrame cancel;
  cancel.set_call_id(id);
  connection_->Append(Frame::kCancel, cancel);
}

absl::Status ClientCore::OnReply(std::string_view body) {
  absl::Status status = ParseBody(body, &reply_frame_);
  if (!status.ok()) {
    return status;
  }
  const auto call = calls_.find(reply_frame_.call_id());
  if (call != calls_.end() && !call->second.finish_posted) {
    FinishCall(call, ReadReply(call->second));
  }
  return absl::OkStatus();
}

absl::Status ClientCore::ReadReply(const PendingCall& call) {
  if (reply_frame_.has_status()) {
    return FromWire(reply_frame_.status());
  }
  if (call.unparsed_response != nullptr) {
    call.unparsed_response->swap(*reply_frame_.mutable_response());
    return absl::OkStatus();
  }
  if (!call.response->ParseFromString(reply_frame_.response())) {
    return absl::InternalError(absl::StrCat("the response does not parse as a ",
                                            call.response->GetTypeName()));
  }
  return absl::OkStatus();
}

void ClientCore::FinishCall(uint64_t id, const absl::Status& status) {
  const auto call = calls_.find(id);
  if (call != calls_.end()) {
    FinishCall(call, status);
  }
}

void ClientCore::FinishCall(PendingCalls::iterator entry,
                            const absl::Status& status) {
  const PendingCall call = std::move(entry->second);
  calls_.erase(entry);
  call.controller->core_ = nullptr;
  call.controller->status_ = status;
  call.done->Run();
}

void ClientCore::FinishCallSoon(uint64_t id, const absl::Status& status) {
  PendingCall& call = calls_.at(id);
  call.finish_posted = true;
  call.timer.reset();
  loop_.Post([self = shared_from_this(), id, status] {
    self->FinishCall(id, status);
  });
}

void ClientCore::FinishAllCalls(const absl::Status& status) {
  std::vector<uint64_t> ids;
  for (const auto& [id, call] : calls_) {
    ids.push_back(id);
  }
  std::sort(ids.begin(), ids.end());
  for (const uint64_t id : ids) {
    FinishCall(id, status);
  }
}

absl::Status ClientCore::OnStreamData(std::string_view body) {
  absl::Status status = ParseBody(body, &data_frame_);
  if (status.ok()) {
    streams_->OnDataFrame(data_frame_);
  }
  return status;
}

absl::Status ClientCore::OnStreamEnd(std::string_view body) {
  StreamEndFrame end;
  absl::Status status = ParseBody(body, &end);
  if (status.ok()) {
    streams_->OnEndFrame(end);
  }
  return status;
}

void ClientCore::OnClosed(const absl::Status& why) {
  status_ = why;
  OnHandshakeOver();
  FinishAllCalls(why);
  streams_->FinishAll(why);
  if (const StatusCallback on_closed = std::exchange(on_closed_, nullptr)) {
    on_closed(why);
  }
}

void ClientCore::Close() {
  on_handshake_over_ = nullptr;
  on_closed_ = nullptr;
  const absl::Status why = absl::CancelledError("the client was destroyed");
  FinishAllCalls(why);
  streams_->FinishAll(why);
  connection_->Close(why);
}

}  // namespace rpc::transport
