#include "core/common/rpc/transport/wire/connection.h"

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <cstring>
#include <optional>
#include <string_view>
#include <utility>

#include "absl/strings/str_cat.h"
#include "core/common/rpc/transport/wire/rpc_status.h"
#include "core/common/rpc/transport/wire/turns.h"

namespace rpc::transport {
namespace {

// Bytes that are worth a system call of their own: above this, waiting for more
// saves nothing.
constexpr size_t kWriteBytes = 256 << 10;

// A frame of more than this may take a good part of a slice.
constexpr size_t kLongFrameBytes = 2 << 10;

// Protobuf takes no longer ones.
constexpr size_t kLongestFrameBytes = INT32_MAX;

absl::Status LostBy(const std::error_code& error) {
  if (error == asio::error::eof) {
    return absl::UnavailableError("the other side closed the connection");
  }
  return absl::UnavailableError(
      absl::StrCat("the connection was lost: ", error.message()));
}

// Tells when frames have been handled for long enough. Asked after each frame
// behind which more bytes wait, so a frame that comes alone needs no clock. To
// look at the clock takes a twentieth of a short call: while frames are quick,
// it is done after some of them only.
class Slice {
 public:
  bool IsOver() {
    if (--frames_until_look_ > 0) {
      return false;
    }
    const Clock::time_point now = Clock::now();
    if (!end_) {
      end_ = now + Connection::kSlice;
    }
    const bool is_quick = now - last_look_ < Connection::kSlice / 16;
    frames_until_look_ = is_quick ? 8 : 1;
    last_look_ = now;
    return now >= *end_;
  }

 private:
  using Clock = std::chrono::steady_clock;

  int frames_until_look_ = 1;
  Clock::time_point last_look_;
  std::optional<Clock::time_point> end_;
};

}  // namespace

Connection::Connection(Side side,
                       asio::local::stream_protocol::socket socket,
                       const serving::Limits& limits,
                       std::shared_ptr<serving::Counters> counters)
    : side_(side),
      socket_(std::move(socket)),
      limits_(limits),
      counters_(std::move(counters)),
      input_(side == Side::kServer ? FrameBuffer(limits.max_client_frame_bytes,
                                                 "max_client_frame_bytes")
                                   : FrameBuffer(limits.max_frame_bytes)),
      peer_max_frame_bytes_(limits.max_frame_bytes) {}

Connection::~Connection() = default;

void Connection::Start(std::shared_ptr<Delegate> delegate) {
  delegate_ = std::move(delegate);
  phase_ = Phase::kOpen;
  std::error_code error;
  socket_.non_blocking(true, error);
  if (error) {
    StartClosing(LostBy(error), Goodbye::kNone);
    FinishClosingSoon();
    return;
  }
  AwaitReadable();
}

void Connection::AwaitReadable() {
  reading_ = Reading::kWaiting;
  input_.Trim();
  if (input_.empty()) {
    AwaitFirstBytes();
    return;
  }
  socket_.async_wait(
      asio::socket_base::wait_read,
      [self = shared_from_this()](const std::error_code&) { self->Read(); });
}

void Connection::AwaitFirstBytes() {
  socket_.async_read_some(
      asio::buffer(first_bytes_),
      [self = shared_from_this()](const std::error_code& error, size_t size) {
        self->OnFirstBytes(error, size);
      });
}

// More may have come than there was room for: the rest is read behind it.
// Should the connection have ended there, the next read finds that out, when
// what came before has been handled.
void Connection::OnFirstBytes(const std::error_code& error, size_t size) {
  if (phase_ != Phase::kOpen) {
    return;
  }
  if (error) {
    Close(LostBy(error));
    return;
  }
  std::memcpy(input_.Space().data(), first_bytes_.data(), size);
  Take(size);
  if (size == first_bytes_.size()) {
    std::error_code found_again;
    ReadSome(found_again);
  }
  HandleInput();
}

void Connection::Read() {
  if (phase_ != Phase::kOpen) {
    return;
  }
  std::error_code error;
  ReadSome(error);
  if (error && error != asio::error::would_block) {
    Close(LostBy(error));
    return;
  }
  HandleInput();
}

void Connection::ReadSome(std::error_code& error) {
  const auto space = input_.Space();
  Take(socket_.read_some(asio::buffer(space.data(), space.size()), error));
}

void Connection::Take(size_t size) {
  counters_->bytes_read += size;
  input_.Commit(size);
}

void Connection::HandleInput() {
  reading_ = Reading::kHandling;
  const absl::Status status = HandleFrames();
  if (is_handling_frame()) {
    reading_ = Reading::kWaiting;
  }
  if (phase_ == Phase::kClosing) {
    FinishClosing();
    return;
  }
  if (!status.ok()) {
    ++counters_->protocol_violations;
    Fail(status);
    return;
  }
  Write();
  if (phase_ != Phase::kOpen) {
    return;
  }
  if (reading_ == Reading::kWaiting) {
    AwaitReadable();
  } else if (reading_ == Reading::kYielded) {
    HandleInputSoon();
  }
}

// If the connection is closed before that turn comes, nothing is handled in it.
void Connection::HandleInputSoon() {
  asio::execution_context& context =
      asio::query(socket_.get_executor(), asio::execution::context);
  asio::use_service<Turns>(static_cast<asio::io_context&>(context))
      .Add([self = shared_from_this()] { self->HandleInput(); });
}

absl::Status Connection::HandleFrames() {
  Slice slice;
  FrameView frame;
  absl::Status status;
  while (phase_ == Phase::kOpen) {
    if (ShouldPause()) {
      frame_timer_.reset();
      reading_ = Reading::kPaused;
      return absl::OkStatus();
    }
    switch (input_.Next(&frame, &status)) {
      case FrameBuffer::kIncomplete:
        AwaitRestOfFrame();
        return absl::OkStatus();
      case FrameBuffer::kBroken:
        if (absl::IsResourceExhausted(status)) {
          CountTooLong(side_ == Side::kServer ? Side::kClient : Side::kServer);
        }
        return status;
      case FrameBuffer::kFrame:
        ++counters_->frames_read;
        frame_timer_.reset();
        status = delegate_->OnFrame(frame);
        if (!status.ok()) {
          return status;
        }
    }
    if (side_ == Side::kClient) {
      continue;
    }
    // A client may fill a frame with what takes long to parse. So it has to
    // wait for its turn before it is read any further.
    if (frame.body.size() > kLongFrameBytes) {
      reading_ = Reading::kYielded;
      input_.Trim();
      return absl::OkStatus();
    }
    if (!input_.empty() && slice.IsOver()) {
      reading_ = Reading::kYielded;
      return absl::OkStatus();
    }
  }
  return absl::OkStatus();
}

// Goes on for as long as the rest of the same frame is awaited, however its
// bytes come.
void Connection::AwaitRestOfFrame() {
  if (side_ == Side::kClient || input_.empty() || frame_timer_) {
    return;
  }
  frame_timer_.emplace(socket_.get_executor(), limits_.frame_timeout);
  frame_timer_->async_wait(
      [self = shared_from_this()](const std::error_code& error) {
        if (!error) {
          self->OnFrameTimeout();
        }
      });
}

// Asio may have taken the wait for over when the timer was destroyed. Then
// there is none now, or one for a later frame.
void Connection::OnFrameTimeout() {
  if (phase_ != Phase::kOpen || !frame_timer_ ||
      frame_timer_->expiry() > std::chrono::steady_clock::now()) {
    return;
  }
  ++counters_->limit_hits.frame_timeout;
  Fail(absl::DeadlineExceededError(
      absl::StrCat("a frame did not arrive whole within frame_timeout, ",
                   limits_.frame_timeout.count(), " ms")));
}

// A client never pauses: if both sides did, each could wait for the other. The
// server reads the rest of a frame that has begun, whose time counts until it
// is whole, and pauses before it handles it.
bool Connection::ShouldPause() {
  if (side_ == Side::kClient ||
      outbox_.reply_bytes() <= limits_.busy_outbox_bytes ||
      !input_.HasFrame()) {
    return false;
  }
  Write();
  const bool busy = outbox_.reply_bytes() > limits_.busy_outbox_bytes;
  counters_->limit_hits.busy_outbox_bytes += busy ? 1 : 0;
  return busy;
}

void Connection::set_peer_max_frame_bytes(uint64_t bytes) {
  const size_t most =
      side_ == Side::kServer ? limits_.max_frame_bytes : kLongestFrameBytes;
  peer_max_frame_bytes_ = std::min<uint64_t>(bytes, most);
}

bool Connection::HasRoomFor(size_t frame_size) const {
  return outbox_.bytes() + SizeWithLength(frame_size) <=
         limits_.max_outbox_bytes;
}

void Connection::CountTooLong(Side sender) {
  serving::LimitHits& hits = counters_->limit_hits;
  ++(sender == Side::kClient ? hits.max_client_frame_bytes
                             : hits.max_frame_bytes);
}

absl::Status Connection::TooFull() const {
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
  return TooFull();
}

void Connection::FailAsFull() {
  if (phase_ == Phase::kOpen) {
    ++counters_->limit_hits.max_outbox_bytes;
    StartClosing(TooFull(), Goodbye::kSend);
    FinishClosingSoon();
  }
}

bool Connection::Append(FrameKind kind,
                        const google::protobuf::MessageLite& body,
                        size_t size) {
  if (!can_send()) {
    return false;
  }
  if (!FitsPeer(size)) {
    CountTooLong(side_);
    return false;
  }
  if (side_ == Side::kServer && !HasRoomFor(size)) {
    FailAsFull();
    return false;
  }
  outbox_.Append(kind, body, size);
  ++counters_->frames_written;
  AfterAppend();
  return true;
}

bool Connection::JoinMessage(serving::OutgoingStream& stream,
                             const StreamMessage& message) {
  if (!can_send() ||
      !outbox_.JoinMessage(stream, message, peer_max_frame_bytes_,
                           limits_.max_outbox_bytes)) {
    return false;
  }
  AfterAppend();
  return true;
}

bool Connection::AppendMessage(serving::OutgoingStream& stream,
                               const StreamMessage& message,
                               size_t message_bytes,
                               size_t frame_size) {
  if (!can_send()) {
    return false;
  }
  if (!HasRoomFor(frame_size)) {
    FailAsFull();
    return false;
  }
  outbox_.AppendMessage(stream, message, message_bytes);
  ++counters_->frames_written;
  AfterAppend();
  return true;
}

void Connection::AfterAppend() {
  if (outbox_.bytes() >= kWriteBytes) {
    Write();
  } else if (writing_ == Writing::kIdle && !is_handling_frame()) {
    writing_ = Writing::kScheduled;
    asio::post(socket_.get_executor(), [self = shared_from_this()] {
      if (self->writing_ == Writing::kScheduled) {
        self->writing_ = Writing::kIdle;
        self->Write();
      }
    });
  }
}

void Connection::HoldWrites() {
  if (writing_ == Writing::kIdle || writing_ == Writing::kScheduled) {
    writing_ = Writing::kHeld;
  }
}

void Connection::Write() {
  if (phase_ == Phase::kOpen && writing_ != Writing::kBlocked &&
      writing_ != Writing::kBroken) {
    writing_ = Writing::kIdle;
    while (WriteSome()) {
    }
  }
}

// False when nothing waits, or the socket takes no more.
bool Connection::WriteSome() {
  const std::string_view front = outbox_.Front();
  if (front.empty()) {
    return false;
  }
  std::error_code error;
  const size_t size =
      socket_.write_some(asio::buffer(front.data(), front.size()), error);
  if (error == asio::error::would_block) {
    AwaitWritable();
    return false;
  }
  if (error) {
    OnWriteError(error);
    return false;
  }
  outbox_.Written(size);
  ++counters_->writes;
  counters_->bytes_written += size;
  return true;
}

// Nothing leaves any more. A server closes: nobody would take the results of
// what it does for this client. A client lives on until the end of the server
// is read: frames that the server sent before, perhaps a goodbye with the
// reason, can still come.
void Connection::OnWriteError(const std::error_code& error) {
  writing_ = Writing::kBroken;
  outbox_.Clear();
  if (side_ == Side::kServer && phase_ == Phase::kOpen) {
    StartClosing(LostBy(error), Goodbye::kNone);
    FinishClosingSoon();
  }
}

void Connection::AwaitWritable() {
  if (std::exchange(writing_, Writing::kBlocked) == Writing::kBlocked) {
    return;
  }
  socket_.async_wait(asio::socket_base::wait_write,
                     [self = shared_from_this()](const std::error_code&) {
                       self->OnWritable();
                     });
}

void Connection::OnWritable() {
  if (phase_ != Phase::kOpen) {
    return;
  }
  writing_ = Writing::kIdle;
  Write();
  if (phase_ == Phase::kOpen && reading_ == Reading::kPaused &&
      outbox_.reply_bytes() <= limits_.busy_outbox_bytes / 2) {
    HandleInput();
  }
}

void Connection::Close(const absl::Status& why) {
  StartClosing(why, Goodbye::kNone);
  FinishClosing();
}

void Connection::Fail(const absl::Status& why) {
  StartClosing(why, Goodbye::kSend);
  FinishClosing();
}

void Connection::StartClosing(const absl::Status& why, Goodbye goodbye) {
  if (phase_ == Phase::kOpen) {
    phase_ = Phase::kClosing;
    why_ = why;
    goodbye_ = goodbye;
  }
}

void Connection::FinishClosingSoon() {
  asio::post(socket_.get_executor(),
             [self = shared_from_this()] { self->FinishClosing(); });
}

// Within a frame nothing happens yet: HandleInput() calls this again.
void Connection::FinishClosing() {
  if (phase_ != Phase::kClosing || is_handling_frame()) {
    return;
  }
  phase_ = Phase::kClosed;
  frame_timer_.reset();
  if (writing_ != Writing::kBroken) {
    while (WriteSome()) {
    }
    if (goodbye_ == Goodbye::kSend) {
      WriteGoodbye();
    }
  }
  outbox_.Clear();
  std::error_code ignored;
  socket_.close(ignored);
  std::exchange(delegate_, nullptr)->OnClosed(why_);
}

// What is left has not begun to leave, but for the rest of one frame.
void Connection::WriteGoodbye() {
  outbox_.DropUnbegun();
  GoodbyeFrame frame;
  ToWire(why_, frame.mutable_status());
  outbox_.Append(Frame::kGoodbye, frame, FrameSize(frame));
  ++counters_->frames_written;
  while (WriteSome()) {
  }
}

}  // namespace rpc::transport
