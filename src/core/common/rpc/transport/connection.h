// A socket that speaks in frames: what server and client have in common.
//
//   auto connection = std::make_shared<Connection>(...);
//   connection->Start(delegate);          // from here on frames arrive there
//   connection->Append(kind, body);       // frames leave, many in one write
//
// Frames that are appended while a frame of the peer is being handled leave in
// one write when all that has been read is handled; others on the next turn of
// the loop, or when a write's worth has gathered.
//
//             Start()               Close(), CloseSoon(), end of the peer
//   created ----------> open ----------------------------------------------,
//                        |  Fail(), OnFrame() not OK, CloseAsFull():        |
//                        |  with a goodbye                                  |
//                        '-----------------------------------> closed <-----'
//
// A goodbye takes precedence over frames that the socket does not take. When it
// does not leave at once either, the connection is closed all the same, but its
// socket only when the goodbye has left, goodbye_timeout is over, or somebody
// else needs the place.
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

#ifndef CORE_COMMON_RPC_TRANSPORT_CONNECTION_H_
#define CORE_COMMON_RPC_TRANSPORT_CONNECTION_H_

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <system_error>

#include "absl/status/status.h"
#include "core/common/rpc/transport/asio.h"
#include "core/common/rpc/transport/counters.h"
#include "core/common/rpc/transport/frame_codec.h"
#include "core/common/rpc/transport/limits.h"
#include "core/common/rpc/transport/outbox.h"

namespace rpc::transport {

class Connection final : public std::enable_shared_from_this<Connection> {
 public:
  class Delegate {
   public:
    // Handles one frame. A status that is not OK is sent to the peer as a
    // goodbye and closes the connection.
    virtual absl::Status OnFrame(const FrameView& frame) = 0;

    // Frames are about to be written: the last occasion to append what has been
    // held back. It calls nobody back: it may come from within Fail() or
    // Close().
    virtual void BeforeWrite() {}

    // The connection is closed: the last call.
    virtual void OnClosed(const absl::Status& why) = 0;

   protected:
    ~Delegate() = default;
  };

  enum class Side { kServer, kClient };

  Connection(Side side,
             asio::local::stream_protocol::socket socket,
             const Limits& limits,
             std::shared_ptr<Counters> counters);
  Connection(const Connection&) = delete;
  Connection& operator=(const Connection&) = delete;
  ~Connection();

  void Start(std::shared_ptr<Delegate> delegate);

  // Takes a frame for writing. False when it is dropped: CanTake() says no, or,
  // on the server's side, HasRoomFor() does, in which case the connection
  // closes as full.
  bool Append(FrameKind kind, const google::protobuf::MessageLite& body);

  // Whether a frame of this size can still be sent, and the peer takes it.
  bool CanTake(size_t frame_size) const {
    return is_open() && !close_reason_ && !goodbye_ && !broken_ &&
           Suits(frame_size);
  }
  bool Suits(size_t frame_size) const {
    return frame_size <= peer_max_frame_bytes_;
  }

  // Whether the outbox has room for a frame of this size. A server need not
  // ask: its clients have to read. A client asks before it sends what it can do
  // without; it takes the blame itself if the server is slow.
  bool HasRoomFor(size_t frame_size) const {
    return outbox_bytes() + frame_size <= limits_.max_outbox_bytes;
  }

  // The peer reads too slowly for what can't be left out: closes, with a
  // goodbye that says so, on the next turn.
  void CloseAsFull();

  // For what can be refused instead: OK when HasRoomFor(), else counts the
  // refusal and returns what its caller is told.
  absl::Status CheckRoomFor(size_t frame_size);

  // Has BeforeWrite() called, and what waits written, on the next turn.
  void WriteSoon();

  // Leaves what is appended from here on to the next Write(), which the caller
  // is about to do: saves a turn of the loop.
  void HoldWrites() { holding_ = true; }

  // Writes now as much as the socket takes.
  void Write();

  // Closes; with a goodbye that says why; on the next turn.
  void Close(const absl::Status& why);
  void Fail(const absl::Status& why);
  void CloseSoon(const absl::Status& why);

  // Closed, but the goodbye has yet to leave, and the socket is kept for it.
  bool awaits_goodbye() const { return goodbye_timer_.has_value(); }

  // Closes the socket of a connection that awaits its goodbye.
  void GiveUpGoodbye();

  // Runs `task` on a later turn of the loop.
  template <typename Task>
  void Post(Task task) {
    asio::post(socket_.get_executor(), std::move(task));
  }

  void set_peer_max_frame_bytes(size_t bytes) { peer_max_frame_bytes_ = bytes; }
  size_t peer_max_frame_bytes() const { return peer_max_frame_bytes_; }

  size_t outbox_bytes() const { return outbox_.bytes(); }
  bool is_open() const { return delegate_ != nullptr; }

  // Whether a frame of the peer is being handled right now.
  bool handling() const { return handling_; }

 private:
  void Read();
  void OnRead(const std::error_code& error, size_t size);
  void HandleInput();
  absl::Status HandleFrames();
  void WriteOut();
  void AwaitWritable();
  void OnWritable();
  bool MustPause();
  absl::Status FullStatus() const;
  void AppendGoodbye(const absl::Status& why);
  void AwaitGoodbye();
  void CloseSocket();

  const Side side_;
  asio::local::stream_protocol::socket socket_;
  const Limits limits_;
  const std::shared_ptr<Counters> counters_;
  // While open.
  std::shared_ptr<Delegate> delegate_;

  FrameBuffer input_;
  bool reading_ = false;
  bool handling_ = false;
  // The client has to take its replies before the server reads more calls.
  bool paused_ = false;
  // Set while it is closed from within a frame: closes when that is handled.
  std::optional<absl::Status> close_reason_;

  Outbox outbox_;
  size_t peer_max_frame_bytes_;
  bool write_scheduled_ = false;
  bool holding_ = false;
  bool awaiting_writable_ = false;
  // The last frame in the outbox is a goodbye; how long it may take to leave.
  bool goodbye_ = false;
  std::optional<asio::steady_timer> goodbye_timer_;
  // A write has failed, so nothing more is appended. The connection lives on
  // until the end of the peer is read, for what it has said before, maybe why,
  // is still to come.
  bool broken_ = false;
};

}  // namespace rpc::transport

#endif  // CORE_COMMON_RPC_TRANSPORT_CONNECTION_H_
