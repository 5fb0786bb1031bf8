// One client of a server: its handshake, and what of its frames goes to its
// calls and its streams, and of theirs to it.
//
//                hello                       goodbye, end of the client,
//   [expecting] -------> [serving] ----------- limit, violation, stop -----,
//        |                                                                 v
//        '-- anything else, too late ---------------------> [closed] --> (none)
//                                                            (its streams end)
//
// Ownership: owned by the server until it is closed and the last of its streams
// has ended, some turns later.
//
// Sequence: the loop's.
//
// Failure: what breaks the protocol closes the connection with a goodbye; what
// is merely refused is answered to the call or stream.

#ifndef CORE_COMMON_RPC_TRANSPORT_SERVER_SERVER_SESSION_H_
#define CORE_COMMON_RPC_TRANSPORT_SERVER_SERVER_SESSION_H_

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <string_view>

#include "absl/status/status.h"
#include "core/common/rpc/loop/loop.h"
#include "core/common/rpc/serving/call_pool.h"
#include "core/common/rpc/serving/calls.h"
#include "core/common/rpc/serving/client_record.h"
#include "core/common/rpc/serving/counters.h"
#include "core/common/rpc/serving/ending_queue.h"
#include "core/common/rpc/serving/limits.h"
#include "core/common/rpc/serving/served_methods.h"
#include "core/common/rpc/serving/server_report.h"
#include "core/common/rpc/serving/streams.h"
#include "core/common/rpc/transport/wire/connection.h"
#include "rpc/transport/frame.pb.h"

namespace rpc::transport {

class ServerSession final : public std::enable_shared_from_this<ServerSession>,
                            public Connection::Delegate,
                            public serving::ReplySink,
                            public serving::StreamSink {
 public:
  // What sessions of one server share. It outlives them.
  struct Shared {
    loop::Loop& loop;
    const serving::Limits& limits;
    serving::UnclearMessages unclear_messages;
    const serving::ServedMethods& methods;
    serving::CallPool& call_pool;
    serving::EndingQueue& endings;
    const std::shared_ptr<serving::Counters>& counters;
    // Null where nobody traces.
    serving::Trace* trace;
  };

  using EndedCallback = std::function<void(ServerSession*)>;

  // `id` tells the connection apart from all others of the server.
  ServerSession(const Shared& shared,
                uint64_t id,
                asio::local::stream_protocol::socket socket,
                const serving::ClientProcess& process,
                EndedCallback on_ended);
  ~ServerSession();

  void Start();

  // Says goodbye and closes.
  void Stop(const absl::Status& why);

  serving::ConnectionReport Report() const;

  // Connection::Delegate:
  absl::Status OnFrame(const FrameView& frame) override;
  void OnClosed(const absl::Status& why) override;

  // serving::ReplySink:
  void SendReply(uint64_t call_id,
                 const google::protobuf::Message& response) override;
  void SendError(uint64_t call_id, const absl::Status& status) override;

  // serving::StreamSink:
  absl::Status SendMessage(serving::OutgoingStream& stream,
                           const StreamMessage& message) override;
  void SendEnd(uint64_t stream_id, const absl::Status& status) override;

 private:
  absl::Status Handle(const FrameView& frame);
  absl::Status OnHello(std::string_view body);
  absl::Status CheckHello(const HelloFrame& hello) const;
  absl::Status OnCall(std::string_view body);
  absl::Status OnCancel(std::string_view body);
  absl::Status OnStreamOpen(std::string_view body);
  absl::Status OnStreamData(std::string_view body);
  absl::Status OnStreamError(std::string_view body);
  absl::Status OnStreamEnd(std::string_view body);
  void OnHelloTimeout();
  absl::Status FrameTooLong(const char* what,
                            size_t frame_bytes,
                            const char* consequence = "");
  std::string LongestFrame() const;

  const Shared shared_;
  const uint64_t id_;
  const std::chrono::steady_clock::time_point start_ =
      std::chrono::steady_clock::now();
  const EndedCallback on_ended_;
  const std::shared_ptr<Connection> connection_;
  serving::ClientRecord client_;
  serving::Calls calls_;
  const std::shared_ptr<serving::Streams> streams_;
  bool serving_ = false;
  std::unique_ptr<loop::Timer> hello_timer_;

  // Used again and again, for the memory that they hold.
  CallFrame call_frame_;
  ReplyFrame reply_frame_;
  StreamDataFrame data_frame_;
};

}  // namespace rpc::transport

#endif  // CORE_COMMON_RPC_TRANSPORT_SERVER_SERVER_SESSION_H_
