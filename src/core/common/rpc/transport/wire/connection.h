// A socket that speaks in frames: what server and client have in common.
//
//   auto connection = std::make_shared<Connection>(...);
//   connection->Start(delegate);          // from here on frames arrive there
//   connection->Append(kind, body);       // frames leave, many in one write
//
//   phase:     created -- Start() --> open -- Close(), Fail(), --> closing
//                                       |     too full                |
//                                       |     (within a frame, or      |
//                                       |      within Append())       v
//                                       '-------- at once --------> closed
//
//   reading:   waiting --> handling --> waiting
//                             |-------> yielded --> handling, on a later turn
//                             |         on a server, its slice of time is over
//                             '-------> paused --> handling
//                              the client has to take its replies first
//
//   writing:   idle --> scheduled, for the next turn --> idle
//                 '---> held, the caller writes ------/
//                 '---> blocked, until the socket takes more --> idle
//                 '---> broken, for good; a server closes
//
// Nothing is read from the socket but while waiting. The memory for what is
// read is there only as long as something is in it: an idle connection has
// a little for the first bytes that come.
//
// Frames that are appended while a frame of the peer is being handled leave in
// one write when all that has been read is handled, or the slice is over;
// others on the next turn of the loop, or when a write's worth has gathered.
//
// A goodbye is the last frame. It takes the place of frames that have not begun
// to leave, and is written if the socket takes it at once: nobody waits for a
// peer that does not read.
//
// Ownership: shared between its delegate and the socket operations under way;
// in turn it keeps the delegate until it is closed, which therefore has to
// happen.
//
// Sequence: the loop's thread. Append() calls nobody back: what it finds out
// about the connection is acted upon on a later turn. OnClosed() never comes
// from within OnFrame() of the same connection.
//
// Failure: OnClosed() says why, exactly once.

#ifndef CORE_COMMON_RPC_TRANSPORT_WIRE_CONNECTION_H_
#define CORE_COMMON_RPC_TRANSPORT_WIRE_CONNECTION_H_

#include <array>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <system_error>

#include "absl/status/status.h"
#include "core/common/rpc/loop/asio.h"
#include "core/common/rpc/serving/counters.h"
#include "core/common/rpc/serving/limits.h"
#include "core/common/rpc/serving/outgoing_stream.h"
#include "core/common/rpc/transport/wire/frame_codec.h"
#include "core/common/rpc/transport/wire/outbox.h"

namespace rpc::transport {

class Connection final : public std::enable_shared_from_this<Connection> {
 public:
  class Delegate {
   public:
    // Handles one frame. A status that is not OK is sent to the peer as a
    // goodbye and closes the connection.
    virtual absl::Status OnFrame(const FrameView& frame) = 0;

    // The connection is closed: the last call.
    virtual void OnClosed(const absl::Status& why) = 0;

   protected:
    ~Delegate() = default;
  };

  enum class Side { kServer, kClient };

  // For how long a server handles the frames of one connection before the loop
  // turns to others. What is left waits for its turn (turns.h). So a caller may
  // have to wait for two slices, one until the loop sees its frame and one
  // until it comes to it, however many clients are busy; and for the first
  // slice of each that begins at that moment. A slice has room for a hundred
  // calls, so what it costs to go on later does not show.
  static constexpr std::chrono::microseconds kSlice{100};

  Connection(Side side,
             asio::local::stream_protocol::socket socket,
             const serving::Limits& limits,
             std::shared_ptr<serving::Counters> counters);
  Connection(const Connection&) = delete;
  Connection& operator=(const Connection&) = delete;
  ~Connection();

  void Start(std::shared_ptr<Delegate> delegate);

  // Takes a frame for writing, whose FrameSize() is `size`. False when it is
  // dropped: frames can't leave any more, the peer takes none of this size, or,
  // on the server's side, too much waits already and the connection closes.
  bool Append(FrameKind kind,
              const google::protobuf::MessageLite& body,
              size_t size);
  bool Append(FrameKind kind, const google::protobuf::MessageLite& body) {
    return Append(kind, body, FrameSize(body));
  }

  // Lets a message on a stream leave in one frame with the one before it. False
  // when it can't, since that is another one, or for any limit.
  bool JoinMessage(serving::OutgoingStream& stream,
                   const StreamMessage& message);

  // As Append(), for a message on a stream that JoinMessage() has not taken.
  bool AppendMessage(serving::OutgoingStream& stream,
                     const StreamMessage& message,
                     size_t message_bytes,
                     size_t frame_size);

  // Whether frames can still leave.
  bool can_send() const {
    return phase_ == Phase::kOpen && writing_ != Writing::kBroken;
  }

  // Whether the peer takes a frame of this size.
  bool FitsPeer(size_t frame_size) const {
    return frame_size <= peer_max_frame_bytes_;
  }

  // Whether the outbox has room for a frame of this size. On a server a full
  // outbox closes the connection in Append(). A client checks first and fails
  // only that operation.
  bool HasRoomFor(size_t frame_size) const;

  // The same, but counts the refusal and says why.
  absl::Status CheckRoomFor(size_t frame_size);

  // Too much waits for what can't be left out: fails on the next turn.
  void FailAsFull();

  // Leaves what is appended from here on to the next Write(), which the caller
  // is about to do: saves a turn of the loop.
  void HoldWrites();

  // Writes now as much as the socket takes.
  void Write();

  // Close() closes after writing what the socket takes; Fail() also sends a
  // goodbye with `why`. Called within OnFrame(), both take effect when that
  // returns.
  void Close(const absl::Status& why);
  void Fail(const absl::Status& why);

  // What the peer has announced as the longest frame that it takes. A server
  // sends nothing beyond its own max_frame_bytes, whatever that is.
  void set_peer_max_frame_bytes(uint64_t bytes);
  size_t peer_max_frame_bytes() const { return peer_max_frame_bytes_; }

  size_t outbox_bytes() const { return outbox_.bytes(); }

  // Whether a frame of the peer is being handled right now.
  bool is_handling_frame() const { return reading_ == Reading::kHandling; }

 private:
  enum class Phase { kCreated, kOpen, kClosing, kClosed };
  enum class Reading { kWaiting, kHandling, kYielded, kPaused };
  enum class Writing { kIdle, kScheduled, kHeld, kBlocked, kBroken };
  enum class Goodbye { kNone, kSend };

  void AwaitReadable();
  void AwaitFirstBytes();
  void OnFirstBytes(const std::error_code& error, size_t size);
  void Read();
  void ReadSome(std::error_code& error);
  void Take(size_t size);
  void HandleInput();
  void HandleInputSoon();
  void AwaitRestOfFrame();
  void OnFrameTimeout();
  absl::Status HandleFrames();
  bool ShouldPause();

  void CountTooLong(Side sender);
  absl::Status TooFull() const;
  void AfterAppend();
  bool WriteSome();
  void OnWriteError(const std::error_code& error);
  void AwaitWritable();
  void OnWritable();

  void StartClosing(const absl::Status& why, Goodbye goodbye);
  void FinishClosing();
  void FinishClosingSoon();
  void WriteGoodbye();

  const Side side_;
  asio::local::stream_protocol::socket socket_;
  const serving::Limits limits_;
  const std::shared_ptr<serving::Counters> counters_;
  // From Start() until it is closed.
  std::shared_ptr<Delegate> delegate_;

  Phase phase_ = Phase::kCreated;
  Reading reading_ = Reading::kWaiting;
  Writing writing_ = Writing::kIdle;

  // While closing: why, and whether the peer is told.
  absl::Status why_;
  Goodbye goodbye_ = Goodbye::kNone;

  // Where the first bytes go that come while nothing waits to be handled. To
  // read a little at once is quicker than to wait for what can be read: the
  // kernel need not be told anew to watch the socket.
  std::array<char, 2 << 10> first_bytes_;
  FrameBuffer input_;
  // While the rest of a client's frame is awaited.
  std::optional<asio::steady_timer> frame_timer_;
  Outbox outbox_;
  size_t peer_max_frame_bytes_;
};

}  // namespace rpc::transport

#endif  // CORE_COMMON_RPC_TRANSPORT_WIRE_CONNECTION_H_
