#include "core/common/rpc/grpc/front/exchange.h"

#include <grpcpp/support/slice.h>
#include <grpcpp/support/status.h>

#include <utility>
#include <vector>

#include "absl/strings/str_cat.h"

namespace rpc::grpc {
namespace {

// gRPC's clients take no more than 8 KB with the end of a call, and make
// RESOURCE_EXHAUSTED of what is longer. A byte of text takes up to three there.
constexpr size_t kMaxTextBytes = 2'048;

// The beginning of a text that is too long, up to a whole character.
std::string Shortened(std::string_view text) {
  if (text.size() <= kMaxTextBytes) {
    return std::string(text);
  }
  size_t end = kMaxTextBytes;
  while (end > 0 && (text[end] & 0xC0) == 0x80) {
    --end;
  }
  return absl::StrCat(text.substr(0, end), "...");
}

// The codes are the same numbers.
::grpc::Status ToGrpc(const absl::Status& status) {
  return status.ok() ? ::grpc::Status::OK
                     : ::grpc::Status(
                           static_cast<::grpc::StatusCode>(status.raw_code()),
                           Shortened(status.message()));
}

::grpc::ByteBuffer ToBuffer(std::string_view bytes) {
  const ::grpc::Slice slice(bytes.data(), bytes.size());
  return ::grpc::ByteBuffer(&slice, 1);
}

std::string ToString(const ::grpc::ByteBuffer& buffer) {
  std::vector<::grpc::Slice> slices;
  std::string bytes;
  if (buffer.Dump(&slices).ok()) {
    bytes.reserve(buffer.Length());
    for (const ::grpc::Slice& slice : slices) {
      bytes.append(reinterpret_cast<const char*>(slice.begin()), slice.size());
    }
  }
  return bytes;
}

}  // namespace

// gRPC's handle on the call; deletes itself when gRPC is done with it.
class Exchange::Reactor final : public ::grpc::ServerGenericBidiReactor {
 public:
  explicit Reactor(std::shared_ptr<Exchange> exchange)
      : exchange_(std::move(exchange)) {}

  void Hold(std::shared_ptr<void> held) { held_ = std::move(held); }

  void OnReadDone(bool ok) override { exchange_->OnReadDone(ok); }
  void OnWriteDone(bool ok) override { exchange_->OnWriteDone(ok); }
  void OnCancel() override { exchange_->OnCancel(); }
  void OnDone() override { delete this; }

 private:
  const std::shared_ptr<Exchange> exchange_;
  std::shared_ptr<void> held_;
};

Exchange::Exchange(loop::Sequence& sequence, Beginning beginning, Begin begin)
    : sequence_(sequence),
      beginning_(std::move(beginning)),
      begin_(std::move(begin)) {}

Exchange::~Exchange() {
  DropUnwritten();
  NoteWritten();
}

::grpc::ServerGenericBidiReactor* Exchange::MakeReactor(
    BeginsWith begins_with) {
  const std::lock_guard lock(mutex_);
  reactor_ = new Reactor(shared_from_this());
  reactor_->StartRead(&incoming_);
  // Ahead of all that is told: gRPC uses the reactor when this has returned.
  if (begins_with == BeginsWith::kHeaders) {
    sequence_.Post([self = shared_from_this()] { self->BeginIfNew(); });
  }
  return reactor_;
}

void Exchange::Observe(std::weak_ptr<Observer> observer, Backlog backlog) {
  observer_ = std::move(observer);
  const std::lock_guard lock(mutex_);
  backlog_ = std::move(backlog);
}

void Exchange::HoldUntilDone(std::shared_ptr<void> held) {
  const std::lock_guard lock(mutex_);
  if (reactor_ != nullptr) {
    reactor_->Hold(std::move(held));
  }
}

void Exchange::Read() {
  const std::lock_guard lock(mutex_);
  if (reactor_ != nullptr) {
    reactor_->StartRead(&incoming_);
  }
}

void Exchange::Accept() {
  const std::lock_guard lock(mutex_);
  if (reactor_ != nullptr) {
    reactor_->StartSendInitialMetadata();
  }
}

void Exchange::Write(std::string_view message) {
  const std::lock_guard lock(mutex_);
  if (reactor_ == nullptr || end_) {
    return;
  }
  *backlog_ += message.size();
  unwritten_.push_back(ToBuffer(message));
  if (!writing_) {
    WriteNext();
  }
}

void Exchange::WriteAndEnd(std::string_view message) {
  const std::lock_guard lock(mutex_);
  if (reactor_ == nullptr || end_ || writing_) {
    return;
  }
  end_ = absl::OkStatus();
  *backlog_ += message.size();
  outgoing_ = ToBuffer(message);
  // gRPC says nothing more when it is written.
  std::exchange(reactor_, nullptr)
      ->StartWriteAndFinish(&outgoing_, {}, ::grpc::Status::OK);
}

void Exchange::End(const absl::Status& status) {
  const std::lock_guard lock(mutex_);
  if (reactor_ == nullptr || end_) {
    return;
  }
  end_ = status;
  FinishIfWritten();
}

void Exchange::OnReadDone(bool ok) {
  Tell(ok ? &Exchange::TellMessage : &Exchange::TellHalfClose);
}

void Exchange::OnWriteDone(bool ok) {
  const std::lock_guard lock(mutex_);
  NoteWritten();
  writing_ = false;
  if (!ok) {
    DropUnwritten();
  }
  if (!unwritten_.empty()) {
    WriteNext();
  } else {
    FinishIfWritten();
  }
}

void Exchange::OnCancel() {
  const std::lock_guard lock(mutex_);
  DropUnwritten();
  if (!end_) {
    end_ = absl::CancelledError("the client has cancelled it");
    Tell(&Exchange::TellCancelled);
  }
  FinishIfWritten();
}

void Exchange::BeginIfNew() {
  if (begin_ != nullptr) {
    std::exchange(begin_, nullptr)(shared_from_this());
  }
}

void Exchange::Tell(Event event) {
  sequence_.Post([self = shared_from_this(), event] {
    self->BeginIfNew();
    if (const auto observer = self->observer_.lock()) {
      (self.get()->*event)(*observer);
    }
  });
}

void Exchange::TellMessage(Observer& observer) {
  std::string message = ToString(incoming_);
  incoming_.Clear();
  observer.OnMessage(std::move(message));
}

void Exchange::TellHalfClose(Observer& observer) {
  observer.OnHalfClose();
}

void Exchange::TellCancelled(Observer& observer) {
  observer.OnCancelled();
}

void Exchange::WriteNext() {
  outgoing_ = unwritten_.front();
  unwritten_.pop_front();
  writing_ = true;
  reactor_->StartWrite(&outgoing_);
}

void Exchange::FinishIfWritten() {
  if (reactor_ != nullptr && end_ && !writing_ && unwritten_.empty()) {
    std::exchange(reactor_, nullptr)->Finish(ToGrpc(*end_));
  }
}

void Exchange::DropUnwritten() {
  for (const ::grpc::ByteBuffer& message : unwritten_) {
    *backlog_ -= message.Length();
  }
  unwritten_.clear();
}

void Exchange::NoteWritten() {
  *backlog_ -= outgoing_.Length();
  outgoing_.Clear();
}

}  // namespace rpc::grpc
