// One call of a gRPC client, of whatever kind, between gRPC's threads and the
// front's sequence. To gRPC every call is the same: messages come, messages go,
// and at the end there is a status.
//
//                     Read()             Write(), End(), WriteAndEnd()
//   sequence ---------------------.   .---------------------
//                                 v   v
//                               [Exchange]  mutex
//                                 ^   ^
//   gRPC's threads  --------------'   '---------------------
//              message, half-close        written, cancelled
//
// gRPC ends the process when a call is finished twice, and never lets go of one
// that is not finished. So that is in two places, FinishIfWritten() and
// WriteAndEnd(), after which nothing of the call is touched. A call that is
// cancelled finishes on gRPC's side at once, without waiting for the sequence:
// the server can shut down while nobody runs it.
//
// Ownership: shared by gRPC, until the call is done; by the sequence, which
// keeps it for as long as somebody there has to do with the call; and by the
// tasks that it posts.
//
// Sequence: as the drawing says; each operation says where it is used.
//
// Failure: what is written after the end, ours or the client's, is dropped.

#ifndef CORE_COMMON_RPC_GRPC_FRONT_EXCHANGE_H_
#define CORE_COMMON_RPC_GRPC_FRONT_EXCHANGE_H_

#include <grpcpp/generic/async_generic_service.h>
#include <grpcpp/support/byte_buffer.h>

#include <atomic>
#include <chrono>
#include <cstddef>
#include <deque>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>

#include "absl/functional/any_invocable.h"
#include "absl/status/status.h"
#include "core/common/rpc/loop/sequence.h"

namespace rpc::grpc {

class Exchange final : public std::enable_shared_from_this<Exchange> {
 public:
  // Who hears on the sequence what comes of the client.
  class Observer {
   public:
    virtual ~Observer() = default;

    // Each only after a Read(), of which the first is made by itself.
    virtual void OnMessage(std::string message) = 0;
    // The client sends nothing more.
    virtual void OnHalfClose() = 0;

    // The client has cancelled the call, is late or gone.
    virtual void OnCancelled() = 0;
  };

  // What a call begins with.
  struct Beginning {
    // "/rpc.BrowserWindow/GetTitle"
    std::string path;
    // "ipv4:127.0.0.1:40312"
    std::string peer;
    // When the client stops waiting; nothing if it never does.
    std::optional<std::chrono::steady_clock::time_point> deadline;
  };

  // Takes the call on the sequence, and may let an observer have it.
  using Begin = absl::AnyInvocable<void(const std::shared_ptr<Exchange>&)>;

  // When that is: at once, or when the client has said something.
  enum class BeginsWith { kHeaders, kFirstMessage };

  // Bytes that wait to be written, of all calls of one peer.
  using Backlog = std::shared_ptr<std::atomic<size_t>>;

  Exchange(loop::Sequence& sequence, Beginning beginning, Begin begin);
  Exchange(const Exchange&) = delete;
  Exchange& operator=(const Exchange&) = delete;
  ~Exchange();

  const Beginning& beginning() const { return beginning_; }

  // For gRPC, once: the other half, which begins to read.
  ::grpc::ServerGenericBidiReactor* MakeReactor(BeginsWith begins_with);

  // On the sequence. Observe() when it begins, before anything is written.
  // Nothing is told once `observer` is gone.
  void Observe(std::weak_ptr<Observer> observer, Backlog backlog);
  // Lets `held` go, on one of gRPC's threads, when gRPC is done with the call.
  void HoldUntilDone(std::shared_ptr<void> held);
  // Asks for the next message.
  void Read();
  // Tells the client that the call is taken, ahead of any message.
  void Accept();
  void Write(std::string_view message);
  // Ends the call when everything is written. Only the first end counts.
  void End(const absl::Status& status);
  // Writes the one message of a call and ends it with success. Nothing may have
  // been written before.
  void WriteAndEnd(std::string_view message);

 private:
  class Reactor;
  // What the client does, for the observer. On the sequence.
  using Event = void (Exchange::*)(Observer&);

  // On gRPC's threads.
  void OnReadDone(bool ok);
  void OnWriteDone(bool ok);
  void OnCancel();

  void BeginIfNew();
  void Tell(Event event);
  void TellMessage(Observer& observer);
  void TellHalfClose(Observer& observer);
  void TellCancelled(Observer& observer);

  // With the mutex held.
  void WriteNext();
  void FinishIfWritten();
  void DropUnwritten();
  void NoteWritten();

  loop::Sequence& sequence_;
  const Beginning beginning_;

  // Of the sequence. `begin_` is null when the call has begun.
  Begin begin_;
  std::weak_ptr<Observer> observer_;

  std::mutex mutex_;
  // Null once finished: gRPC then deletes it when it likes.
  Reactor* reactor_ = nullptr;
  // gRPC fills it from Read() to OnReadDone(); then it is the sequence's.
  ::grpc::ByteBuffer incoming_;
  // What gRPC is writing, and its size; what waits behind it.
  ::grpc::ByteBuffer outgoing_;
  bool writing_ = false;
  std::deque<::grpc::ByteBuffer> unwritten_;
  // The end, once there is one.
  std::optional<absl::Status> end_;
  Backlog backlog_ = std::make_shared<std::atomic<size_t>>(0);
};

}  // namespace rpc::grpc

#endif  // CORE_COMMON_RPC_GRPC_FRONT_EXCHANGE_H_
