#include "core/common/rpc/transport/connection.h"

#include <string_view>
#include <utility>

#include "absl/log/absl_check.h"
#include "absl/strings/str_cat.h"
#include "core/common/rpc/transport/rpc_status.h"

namespace rpc::transport {
namespace {

// Bytes that are worth a system call of their own: above this, waiting for more
// saves nothing.
constexpr size_t kWriteBytes = 256 << 10;

absl::Status ReadError(const std::error_code& error) {
  if (error == asio::error::eof) {
    return absl::UnavailableError("the other side closed the connection");
  }
  return absl::UnavailableError(
      absl::StrCat("the connection was lost: ", error.message()));
}

}  // namespace

Connection::Connection(Side side,
                       asio::local::stream_protocol::socket socket,
                       const Limits& limits,
                       std::shared_ptr<Counters> counters)
    : side_(side),
      socket_(std::move(socket)),
      limits_(limits),
      counters_(std::move(counters)),
      input_(limits.max_frame_bytes),
      peer_max_frame_bytes_(limits.max_frame_bytes) {
  ABSL_CHECK_GE(limits.max_frame_bytes, kMinFrameBytes);
}

Connection::~Connection() = default;

void Connection::Start(std::shared_ptr<Delegate> delegate) {
  delegate_ = std::move(delegate);
  std::error_code error;
  socket_.non_blocking(true, error);
  if (error) {
    CloseSoon(ReadError(error));
    return;
  }
  Read();
}

void Connection::Read() {
  if (reading_) {
    return;
  }
  reading_ = true;
  const auto space = input_.Space();
  socket_.async_read_some(
      asio::buffer(space.data(), space.size()),
      [self = shared_from_this()](const std::error_code& error, size_t size) {
        self->OnRead(error, size);
      });
}

void Connection::OnRead(const std::error_code& error, size_t size) {
  reading_ = false;
  if (!is_open()) {
    return;
  }
  if (error) {
    Close(ReadError(error));
    return;
  }
  counters_->bytes_read += size;
  input_.Commit(size);
  HandleInput();
}

void Connection::HandleInput() {
  handling_ = true;
  const absl::Status status = HandleFrames();
  handling_ = false;
  if (close_reason_) {
    Close(*std::exchange(close_reason_, std::nullopt));
  } else if (!status.ok()) {
    ++counters_->protocol_violations;
    Fail(status);
  } else {
    Write();
    if (!paused_) {
      Read();
    }
  }
}

absl::Status Connection::HandleFrames() {
  FrameView frame;
  absl::Status status;
  while (!close_reason_ && !MustPause()) {
    switch (input_.Next(&frame, &status)) {
      case FrameBuffer::kIncomplete:
        return absl::OkStatus();
      case FrameBuffer::kBroken:
        counters_->limit_hits.max_frame_bytes +=
            absl::IsResourceExhausted(status) ? 1 : 0;
        return status;
      case FrameBuffer::kFrame:
        ++counters_->frames_read;
        status = delegate_->OnFrame(frame);
        if (!status.ok()) {
          return status;
        }
    }
  }
  return absl::OkStatus();
}

// A client never pauses: if both sides did, each could wait for the other.
bool Connection::MustPause() {
  if (side_ == Side::kClient ||
      outbox_.reply_bytes() <= limits_.busy_outbox_bytes) {
    return false;
  }
  Write();
  paused_ = outbox_.reply_bytes() > limits_.busy_outbox_bytes;
  counters_->limit_hits.busy_outbox_bytes += paused_ ? 1 : 0;
  return paused_;
}

absl::Status Connection::FullStatus() const {
  return absl::ResourceExhaustedError(
      absl::StrCat("the ", side_ == Side::kServer ? "client" : "server",
                   " reads too slowly: more than max_outbox_bytes, ",
                   limits_.max_outbox_bytes, ", would wait for it"));
}

absl::Status Connection::CheckRoomFor(size_t frame_size) {
  if (HasRoomFor(frame_size)) {
    return absl::OkStatus();
  }
  ++counters_->limit_hits.max_outbox_bytes;
  return FullStatus();
}

void Connection::CloseAsFull() {
  ++counters_->limit_hits.max_outbox_bytes;
  const absl::Status why = FullStatus();
  AppendGoodbye(why);
  CloseSoon(why);
}

bool Connection::Append(FrameKind kind,
                        const google::protobuf::MessageLite& body) {
  const size_t size = FrameSize(body);
  if (!CanTake(size)) {
    counters_->limit_hits.max_frame_bytes += Suits(size) ? 0 : 1;
    return false;
  }
  if (side_ == Side::kServer && !HasRoomFor(size)) {
    CloseAsFull();
    return false;
  }
  outbox_.Append(kind, body, size);
  ++counters_->frames_written;
  if (outbox_bytes() >= kWriteBytes) {
    WriteOut();
  } else {
    WriteSoon();
  }
  return true;
}

void Connection::WriteSoon() {
  if (handling_ || holding_ || write_scheduled_ || awaiting_writable_) {
    return;
  }
  write_scheduled_ = true;
  asio::post(socket_.get_executor(), [self = shared_from_this()] {
    self->write_scheduled_ = false;
    self->Write();
  });
}

void Connection::Write() {
  if (!is_open()) {
    return;
  }
  holding_ = true;
  delegate_->BeforeWrite();
  holding_ = false;
  WriteOut();
}

void Connection::WriteOut() {
  while (outbox_bytes() > 0 && !awaiting_writable_) {
    const std::string_view front = outbox_.Front();
    std::error_code error;
    const size_t size =
        socket_.write_some(asio::buffer(front.data(), front.size()), error);
    if (error == asio::error::would_block) {
      AwaitWritable();
    } else if (error) {
      broken_ = true;
      outbox_.Clear();
    } else {
      outbox_.Written(size);
      ++counters_->writes;
      counters_->bytes_written += size;
    }
  }
}

void Connection::AwaitWritable() {
  awaiting_writable_ = true;
  socket_.async_wait(asio::socket_base::wait_write,
                     [self = shared_from_this()](const std::error_code&) {
                       self->awaiting_writable_ = false;
                       self->OnWritable();
                     });
}

void Connection::OnWritable() {
  if (awaits_goodbye()) {
    AwaitGoodbye();
    return;
  }
  Write();
  if (is_open() && paused_ &&
      outbox_.reply_bytes() <= limits_.busy_outbox_bytes / 2) {
    paused_ = false;
    HandleInput();
  }
}

void Connection::Close(const absl::Status& why) {
  if (!is_open()) {
    return;
  }
  if (handling_) {
    if (!close_reason_) {
      close_reason_ = why;
    }
    return;
  }
  Write();
  const std::shared_ptr<Delegate> delegate = std::move(delegate_);
  if (goodbye_ && outbox_bytes() > 0) {
    goodbye_timer_.emplace(socket_.get_executor(), limits_.goodbye_timeout);
    goodbye_timer_->async_wait(
        [self = shared_from_this()](const std::error_code& cancelled) {
          if (!cancelled && self->awaits_goodbye()) {
            self->GiveUpGoodbye();
          }
        });
  } else {
    CloseSocket();
  }
  delegate->OnClosed(why);
}

void Connection::AwaitGoodbye() {
  WriteOut();
  if (outbox_bytes() == 0) {
    CloseSocket();
  }
}

void Connection::GiveUpGoodbye() {
  ++counters_->limit_hits.goodbye_timeout;
  CloseSocket();
}

void Connection::CloseSocket() {
  goodbye_timer_.reset();
  outbox_.Clear();
  std::error_code ignored;
  socket_.close(ignored);
}

void Connection::Fail(const absl::Status& why) {
  if (!is_open() || close_reason_) {
    return;
  }
  delegate_->BeforeWrite();
  AppendGoodbye(why);
  Close(why);
}

// The last frame. A full outbox does not keep it out.
void Connection::AppendGoodbye(const absl::Status& why) {
  WriteOut();
  if (broken_ || std::exchange(goodbye_, true)) {
    return;
  }
  outbox_.DropUnbegun();
  GoodbyeFrame goodbye;
  ToWire(why, goodbye.mutable_status());
  outbox_.Append(Frame::kGoodbye, goodbye, FrameSize(goodbye));
  ++counters_->frames_written;
}

void Connection::CloseSoon(const absl::Status& why) {
  if (handling_) {
    Close(why);
    return;
  }
  asio::post(socket_.get_executor(),
             [self = shared_from_this(), why] { self->Close(why); });
}

}  // namespace rpc::transport
