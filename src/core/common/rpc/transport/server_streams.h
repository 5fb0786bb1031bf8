// The open streams of one connection, on the server's side.
//
// Both sides end a stream, each with one end frame, and the server forgets it
// with its own:
//
//                    end of the client
//          open     ,------------------> OnCompleted ---------------,
//   (none) ----> [stream]                                           |--> (none)
//                   '-- Complete() --> [reaped soon] -- OnCompleted '
//                       out of turn,
//                       or a limit
//
// What still comes in for a stream that is forgotten was sent before the client
// knew, and is ignored.
//
// One message that goes to many streams of the connection travels once: for as
// long as Send() is given the same message, only the list of streams grows. The
// message is held back until another one comes or frames are written.
//
// Ownership: shared between the session and turns of the loop to come; those
// touch nothing else once the session is gone. Owns the streams, and through
// them their channels.
//
// Sequence: the loop's. A stream is destroyed when its calls have returned:
// after the frame that ends it, or on a turn of the loop, or by CloseAll().
//
// Failure: a status that is not OK is the client's violation of the protocol.

#ifndef CORE_COMMON_RPC_TRANSPORT_SERVER_STREAMS_H_
#define CORE_COMMON_RPC_TRANSPORT_SERVER_STREAMS_H_

#include <cstddef>
#include <cstdint>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "absl/status/status.h"
#include "core/common/rpc/stream/abstract_stream.h"
#include "core/common/rpc/transport/asked_questions.h"
#include "core/common/rpc/transport/client_record.h"
#include "core/common/rpc/transport/connection.h"
#include "core/common/rpc/transport/counters.h"
#include "core/common/rpc/transport/limits.h"
#include "core/common/rpc/transport/served_methods.h"
#include "core/common/rpc/transport/server_report.h"
#include "core/common/rpc/transport/subscriptions.h"
#include "rpc/transport/frame.pb.h"

namespace rpc::transport {

class ServerStreams final : public std::enable_shared_from_this<ServerStreams> {
 public:
  ServerStreams(std::shared_ptr<Connection> connection,
                const ServedMethods& methods,
                const Limits& limits,
                ClientRecord& client,
                Counters& counters);
  ServerStreams(const ServerStreams&) = delete;
  ServerStreams& operator=(const ServerStreams&) = delete;

  // CloseAll() has been called.
  ~ServerStreams();

  // Frames of the client.
  absl::Status OnOpen(const StreamOpenFrame& frame);
  absl::Status OnData(StreamDataFrame& frame);
  void OnError(StreamErrorFrame& frame);
  void OnEnd(const StreamEndFrame& frame);

  // Appends the message that is held back, if any. Whatever else is appended to
  // the connection comes after this.
  void AppendHeld();

  // Completes and destroys the streams that have ended out of turn. Called when
  // a frame has been handled.
  void Reap();

  // The connection is closed: completes and destroys all streams.
  void CloseAll();

  // Fills in what `report` says of streams and questions.
  void Report(ConnectionReport& report) const;

 private:
  class Endpoint;

  struct Entry {
    uint64_t id;
    std::unique_ptr<torvane::AbstractStream> stream;
    const ServedMethod* method;
    Subscriptions::Keys subscriptions;
    // Null for a stream that asks none.
    std::unique_ptr<AskedQuestions> questions;
    // The last held message that goes to this stream as well.
    uint64_t last_held = 0;
    // OnCompleted has been called.
    bool completing = false;
    // The end frame is appended: nothing follows.
    bool ended = false;
  };
  // A map whose entries stay in place: endpoints point to them.
  using Entries = std::map<uint64_t, Entry>;

  // What an Endpoint forwards.
  bool Send(Entry& entry, const StreamMessage& message);
  void Complete(Entry& entry) { End(entry, absl::OkStatus()); }

  absl::Status Refusal(const StreamOpenFrame& frame);
  Entry* FindOpen(uint64_t id);
  void Deliver(Entry& entry, StreamMessage* message);
  void EndAtLimit(Entry& entry,
                  uint64_t LimitHits::*limit,
                  const std::string& text);
  void End(Entry& entry, const absl::Status& status);
  void Finish(Entries::iterator entry);
  void FinishAll(const std::vector<uint64_t>& ids);
  void ReapSoon();
  void AppendEnd(uint64_t id, const absl::Status& status);
  bool MayTake(Entry& entry, const StreamMessage& message, size_t frame_bytes);
  bool Joins(const Entry& entry, const StreamMessage& message) const;

  const std::shared_ptr<Connection> connection_;
  const ServedMethods& methods_;
  const Limits& limits_;
  ClientRecord& client_;
  Counters& counters_;
  Subscriptions subscriptions_;
  // That are pending on all streams.
  size_t questions_ = 0;
  Entries entries_;
  // Those that have ended out of turn.
  std::vector<uint64_t> ended_;

  // The message held back, and to which streams it goes; none when there is
  // none. Its number tells whether an entry is among them.
  StreamDataFrame held_;
  uint64_t held_number_ = 0;
  // An upper bound for the size of its frame.
  size_t held_bytes_ = 0;
  StreamEndFrame end_;
};

}  // namespace rpc::transport

#endif  // CORE_COMMON_RPC_TRANSPORT_SERVER_STREAMS_H_
