// The open streams of one client, and the guard between the client and them:
// the stream framework trusts its caller, so what a client sends is counted,
// bounded and checked here, once, for all transports.
//
// Both sides end a stream, each with one end frame, and the server forgets it
// with its own:
//
//                    OnClientEnd()
//          open     ,--------------------> OnCompleted --------,
//   (none) ----> [stream]                                      |-> (none)
//                   '-- Complete(), -> [ended] -> OnCompleted -'
//                       or a limit             on a later turn
//
// What still comes in for a stream that is forgotten was sent before the client
// knew, and is ignored. When the client leaves, its streams get their
// OnCompleted one after the other, on later turns (ending_queue.h); from then
// on they send nothing.
//
// Ownership: the transport's, until Close() has told it that all streams have
// ended. Owns the streams, and through them their channels.
//
// Sequence: the server's. A stream is never destroyed within one of its own
// calls.
//
// Failure: a status that is not OK is the client's violation of the protocol.

#ifndef CORE_COMMON_RPC_SERVING_STREAMS_H_
#define CORE_COMMON_RPC_SERVING_STREAMS_H_

#include <cstddef>
#include <cstdint>
#include <deque>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>

#include "absl/status/status.h"
#include "core/common/rpc/serving/client_record.h"
#include "core/common/rpc/serving/counters.h"
#include "core/common/rpc/serving/ending_queue.h"
#include "core/common/rpc/serving/limits.h"
#include "core/common/rpc/serving/outgoing_stream.h"
#include "core/common/rpc/serving/pending_questions.h"
#include "core/common/rpc/serving/served_methods.h"
#include "core/common/rpc/serving/server_report.h"
#include "core/common/rpc/serving/subscriptions.h"
#include "core/common/rpc/serving/unclear_messages.h"
#include "core/common/rpc/stream/abstract_stream.h"
#include "rpc/transport/stream_message.pb.h"

namespace rpc::serving {

// Takes what streams send to the client.
class StreamSink {
 public:
  // Not OK when the message is dropped: RESOURCE_EXHAUSTED, with what the
  // client is told, when it can't take a message of this size and the stream
  // has to end; UNAVAILABLE when the connection takes nothing more. Calls
  // nobody back.
  virtual absl::Status SendMessage(OutgoingStream& stream,
                                   const transport::StreamMessage& message) = 0;

  // The stream is over for the server.
  virtual void SendEnd(uint64_t stream_id, const absl::Status& status) = 0;

 protected:
  ~StreamSink() = default;
};

class Streams final : public std::enable_shared_from_this<Streams> {
 public:
  // All of these outlive it.
  Streams(EndingQueue& endings,
          StreamSink& sink,
          const ServedMethods& methods,
          const Limits& limits,
          ClientRecord& client,
          Counters& counters,
          UnclearMessages unclear = UnclearMessages::kRefuse);
  Streams(const Streams&) = delete;
  Streams& operator=(const Streams&) = delete;

  // All streams have ended: Close() has said so, or there were none.
  ~Streams();

  // What the client does. OnClientOpen() returns INVALID_ARGUMENT when the id
  // is in use.
  absl::Status OnClientOpen(uint64_t id, uint64_t method_id);
  void OnClientData(uint64_t id, transport::StreamMessage* message);
  void OnClientError(uint64_t id, transport::StreamMessage* message);
  void OnClientEnd(uint64_t id);

  // The client is gone: nothing is sent from here on, and all streams are
  // completed and destroyed on later turns. Then `on_ended` runs, which may
  // destroy this object; at once where there are no streams. Called once.
  void Close(std::function<void()> on_ended);

  // For the queue: does a little of what `stage` asks for. Ends one stream, or
  // one subscription.
  EndingQueue::Progress EndSome(EndingStage stage);

  // Fills in what `report` says of streams and questions.
  void Report(ConnectionReport& report) const;

 private:
  class Endpoint;
  class ClientFrame;

  struct Entry {
    OutgoingStream outgoing;
    std::unique_ptr<torvane::AbstractStream> stream;
    const ServedMethod* method = nullptr;
    std::optional<Subscriptions> subscriptions;
    // Nothing for a stream that asks none.
    std::optional<PendingQuestions> questions;
    // OnCompleted has been called.
    bool completing = false;
    // The end frame is sent: nothing follows.
    bool ended = false;
  };
  // A map whose entries stay in place: endpoints point to them.
  using Entries = std::map<uint64_t, Entry>;

  bool Send(Entry& entry, const transport::StreamMessage& message);
  void End(Entry& entry, const absl::Status& status);

  absl::Status CheckOpen(const ServedMethod* method, uint64_t method_id);
  Entry* FindOpen(uint64_t id);
  absl::Status HandOnSubscription(Entry& entry,
                                  transport::StreamMessage* message);
  absl::Status HandOnMessage(Entry& entry, transport::StreamMessage* message);
  absl::Status CheckMessage(Entry& entry,
                            const WindowMessage& said,
                            size_t bytes);
  absl::Status CheckSubscriptionBytes(size_t bytes);
  absl::Status RefuseUnknownFields();
  absl::Status CheckSubscriptions(Subscriptions::Change change);
  bool MayAsk();
  void Finish(Entries::iterator entry);
  static void Unsubscribe(Entry& entry, const std::string& window);
  bool FinishNextEnded();
  template <typename Condition>
  Entries::iterator NextToEnd(const Condition& condition);
  bool FinishNextWithQuestions();
  bool UnsubscribeNext();
  EndingQueue::Progress FinishNext();

  EndingQueue& endings_;
  StreamSink& sink_;
  const ServedMethods& methods_;
  const Limits& limits_;
  ClientRecord& client_;
  Counters& counters_;
  const UnclearMessages unclear_;
  // Of all streams: what they are subscribed to, and questions that are
  // pending.
  size_t subscriptions_ = 0;
  QuestionsOfClient questions_;
  Entries entries_;
  // Ids of streams whose end was sent and that FinishNextEnded() must complete
  // and destroy, one after the other.
  std::deque<uint64_t> ended_;
  // Frames of the client that are being handled, one inside the other where a
  // method runs the loop. A stream may be on the stack while there are any.
  int frames_being_handled_ = 0;

  // The client is gone. Then also: whom to tell when all streams have ended,
  // and where among them the present stage has come to.
  bool closed_ = false;
  std::function<void()> on_ended_;
  uint64_t next_to_end_ = 0;
};

}  // namespace rpc::serving

#endif  // CORE_COMMON_RPC_SERVING_STREAMS_H_
