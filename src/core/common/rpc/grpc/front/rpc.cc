#include "core/common/rpc/grpc/front/rpc.h"

#include <utility>

#include "absl/strings/str_cat.h"
#include "core/common/rpc/grpc/front/peer.h"

namespace rpc::grpc {
namespace {

constexpr std::string_view kReflectionPaths[] = {
    "/grpc.reflection.v1.ServerReflection/ServerReflectionInfo",
    "/grpc.reflection.v1alpha.ServerReflection/ServerReflectionInfo",
};

bool IsReflection(std::string_view path) {
  return path == kReflectionPaths[0] || path == kReflectionPaths[1];
}

}  // namespace

Rpc::Rpc(Peer& peer, uint64_t id, std::shared_ptr<Exchange> exchange)
    : peer_(&peer), id_(id), exchange_(std::move(exchange)) {}

Rpc::~Rpc() = default;

void Rpc::Begin() {
  const std::string& path = exchange_->beginning().path;
  if (IsReflection(path)) {
    is_stream_ = true;
    handler_ = MakeReflectionHandler(*this, peer_->shared().reflection);
    handler_->Begin();
    return;
  }
  const size_t slash = path.rfind('/');
  if (path.empty() || path.front() != '/' || slash == 0) {
    Fail(
        absl::UnimplementedError(absl::StrCat("'", path, "' names no method")));
    return;
  }
  backend().Find(std::string_view(path).substr(1, slash - 1),
                 std::string_view(path).substr(slash + 1),
                 [weak_self = weak_from_this()](const auto& method) {
                   const auto self = weak_self.lock();
                   if (self && self->peer_ != nullptr) {
                     self->OnFound(method);
                   }
                 });
}

void Rpc::OnFound(const absl::StatusOr<BackendMethod>& method) {
  if (!method.ok()) {
    Fail(method.status());
    return;
  }
  is_stream_ = method->kind != BackendMethod::Kind::kUnary;
  peer_->shared().unary_paths.Note(exchange_->beginning().path, !is_stream_);
  handler_ = MakeHandler(*method);
  handler_->Begin();
  if (peer_ != nullptr && early_) {
    Handle(*std::exchange(early_, std::nullopt));
  }
}

std::unique_ptr<Handler> Rpc::MakeHandler(const BackendMethod& method) {
  switch (method.kind) {
    case BackendMethod::Kind::kUnary:
      return MakeUnaryHandler(*this, method);
    case BackendMethod::Kind::kEvents:
      return MakeEventHandler(*this, method,
                              peer_->shared().options.max_event_messages);
    case BackendMethod::Kind::kQuestions:
      return MakeQuestionHandler(*this, method);
    case BackendMethod::Kind::kOtherStream:
      break;
  }
  return MakeOtherStreamHandler(*this, method);
}

BackendClient& Rpc::backend() {
  return peer_->backend();
}

absl::StatusOr<std::chrono::milliseconds> Rpc::TimeLeft() const {
  const auto& deadline = exchange_->beginning().deadline;
  if (!deadline) {
    return std::chrono::milliseconds(0);
  }
  const auto left = std::chrono::ceil<std::chrono::milliseconds>(
      *deadline - std::chrono::steady_clock::now());
  if (left.count() <= 0) {
    return absl::DeadlineExceededError("no time was left for the call");
  }
  return left;
}

void Rpc::ReadNext() {
  if (peer_ != nullptr) {
    exchange_->Read();
  }
}

absl::Status Rpc::CheckRoomFor(size_t bytes) const {
  return peer_->CheckRoomFor(bytes);
}

void Rpc::OnMessage(std::string message) {
  Handle(std::move(message));
}

void Rpc::OnHalfClose() {
  EndInTurn(&Rpc::HandleHalfClose);
}

void Rpc::Handle(Said said) {
  if (peer_ == nullptr) {
    return;
  }
  if (handler_ == nullptr) {
    early_ = std::move(said);
  } else if (said) {
    handler_->OnMessage(*std::move(said));
  } else {
    handler_->OnHalfClose();
  }
}

void Rpc::OnCancelled() {
  EndInTurn(&Rpc::HandleCancel);
}

void Rpc::HandleCancel() {
  Fail(absl::CancelledError("the client has cancelled it"));
}

void Rpc::EndInTurn(void (Rpc::*end)()) {
  if (!is_stream_ || peer_ == nullptr) {
    (this->*end)();
    return;
  }
  peer_->shared().stream_ends.Add([weak_self = weak_from_this(), end] {
    if (const auto self = weak_self.lock()) {
      (self.get()->*end)();
    }
  });
}

void Rpc::Fail(const absl::Status& status) {
  if (peer_ == nullptr) {
    return;
  }
  exchange_->End(status);
  if (handler_ != nullptr) {
    handler_->GiveUp();
  }
  Leave();
}

void Rpc::OnReply(std::string_view response) {
  exchange_->WriteAndEnd(response);
  Leave();
}

void Rpc::OnEnd(const absl::Status& status) {
  exchange_->End(status);
  Leave();
}

void Rpc::Leave() {
  if (Peer* const peer = std::exchange(peer_, nullptr)) {
    peer->Forget(id_);
  }
}

}  // namespace rpc::grpc
