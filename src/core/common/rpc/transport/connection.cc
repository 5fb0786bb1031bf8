#include "core/common/rpc/transport/connection.h"

#include <utility>

#include "absl/strings/str_cat.h"
#include "core/common/rpc/transport/rpc_status.h"

namespace rpc::transport {
namespace {

// Bytes that are worth a system call of their own: above this, waiting for more
// saves nothing.
constexpr size_t kWriteBytes = 256 << 10;

// Memory that an empty outbox keeps for the next frames.
constexpr size_t kIdleOutboxBytes = 64 << 10;

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
                       Counters& counters)
    : side_(side),
      socket_(std::move(socket)),
      limits_(limits),
      counters_(counters),
      input_(limits.max_frame_bytes),
      peer_max_frame_bytes_(limits.max_frame_bytes) {}

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
  counters_.bytes_read += size;
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
    ++counters_.protocol_violations;
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
        counters_.limit_hits.max_frame_bytes +=
            absl::IsResourceExhausted(status) ? 1 : 0;
        return status;
      case FrameBuffer::kFrame:
        ++counters_.frames_read;
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
  if (side_ == Side::kClient || outbox_bytes() <= limits_.busy_outbox_bytes) {
    return false;
  }
  Write();
  paused_ = outbox_bytes() > limits_.busy_outbox_bytes;
  counters_.limit_hits.busy_outbox_bytes += paused_ ? 1 : 0;
  return paused_;
}

void Connection::OnOutboxFull() {
  broken_ = true;
  ++counters_.limit_hits.max_outbox_bytes;
  CloseSoon(absl::ResourceExhaustedError(
      absl::StrCat("the client reads too slowly: more than max_outbox_bytes, ",
                   limits_.max_outbox_bytes, ", would wait for it")));
}

bool Connection::Append(FrameKind kind,
                        const google::protobuf::MessageLite& body) {
  const size_t size = FrameSize(body);
  if (!CanTake(size)) {
    counters_.limit_hits.max_frame_bytes += Suits(size) ? 0 : 1;
    return false;
  }
  if (side_ == Side::kServer && !HasRoomFor(size)) {
    OnOutboxFull();
    return false;
  }
  AppendFrame(kind, body, size, &outbox_);
  ++counters_.frames_written;
  if (outbox_bytes() >= kWriteBytes) {
    WriteOut();
  } else {
    WriteSoon();
  }
  return true;
}

void Connection::WriteSoon() {
  if (handling_ || write_scheduled_ || awaiting_writable_) {
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
  delegate_->BeforeWrite();
  WriteOut();
}

void Connection::WriteOut() {
  while (outbox_bytes() > 0 && !awaiting_writable_) {
    std::error_code error;
    const size_t size = socket_.write_some(
        asio::buffer(outbox_.data() + written_, outbox_bytes()), error);
    if (error == asio::error::would_block) {
      AwaitWritable();
    } else if (error) {
      broken_ = true;
      written_ = outbox_.size();
    } else {
      written_ += size;
      ++counters_.writes;
      counters_.bytes_written += size;
    }
  }
  TrimOutbox();
}

// Frees what has left: all of it as a rule, else when it is the larger part, so
// that no byte is moved more than once for each that is written.
void Connection::TrimOutbox() {
  if (written_ <= outbox_bytes()) {
    return;
  }
  outbox_.erase(0, written_);
  written_ = 0;
  if (outbox_.empty() && outbox_.capacity() > kIdleOutboxBytes) {
    outbox_.shrink_to_fit();
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
  Write();
  if (is_open() && paused_ && outbox_bytes() <= limits_.busy_outbox_bytes / 2) {
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
  std::error_code ignored;
  socket_.close(ignored);
  const std::shared_ptr<Delegate> delegate = std::move(delegate_);
  delegate->OnClosed(why);
}

// A full outbox does not keep the goodbye out: it is the last frame.
void Connection::Fail(const absl::Status& why) {
  if (!is_open() || close_reason_) {
    return;
  }
  if (!broken_) {
    delegate_->BeforeWrite();
    GoodbyeFrame goodbye;
    ToWire(why, goodbye.mutable_status());
    AppendFrame(Frame::kGoodbye, goodbye, FrameSize(goodbye), &outbox_);
    ++counters_.frames_written;
  }
  Close(why);
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
