// Ends the streams of clients that have left, a slice of time on each turn of
// the sequence, so that everybody else is served in between.
//
// A stream that ends walks over all subscriptions of its type, those of all
// clients. A client may leave many streams behind, and many clients may leave
// at once; when the server stops, all do. So there is one queue, and one slice
// for all clients together. What a client passes through:
//
//   has left:    [questions] ---------------------> [rest] --> (none)
//                     '-----> [subscriptions] ------->
//                             when the server stops
//   stays, but
//   some streams
//   have ended:  [ended] --> (none)
//
// What stands in a stage is done before any client is served in the next one:
// streams with pending questions first, since somebody waits to hear that they
// are cancelled. Subscriptions are ended only when the server stops, and then
// those of all clients before the rest of the streams end: their walks find
// nearly nothing. With as many streams as the limits allow, that would take
// minutes otherwise. It is not done when one client leaves, but for windows
// that streams share (subscribers.h): an event stream never frees the message
// that unsubscribes it, and a stream of questions would release windows that
// other clients have taken over.
//
// Ownership: the server's. Refers to the streams of a client only weakly, and
// the tasks that it posts to this.
//
// Sequence: the server's.
//
// Failure: none. A client of which a stream is on the stack is left waiting
// until Wake().

#ifndef CORE_COMMON_RPC_SERVING_ENDING_QUEUE_H_
#define CORE_COMMON_RPC_SERVING_ENDING_QUEUE_H_

#include <array>
#include <chrono>
#include <cstddef>
#include <deque>
#include <memory>

#include "core/common/rpc/loop/sequence.h"

namespace rpc::serving {

class Streams;

// How long a slice lasts. Others wait for that much, and for the stream that
// was begun within it.
inline constexpr std::chrono::milliseconds kEndingSlice{1};

// In the order in which they are worked on.
enum class EndingStage { kQuestions, kEnded, kSubscriptions, kRest };
inline constexpr size_t kEndingStages = 4;

class EndingQueue final : public std::enable_shared_from_this<EndingQueue> {
 public:
  // What became of a piece of work of one client.
  enum class Progress {
    // It was done, and there may be more of it.
    kMore,
    // There is nothing left to do in this stage.
    kDone,
    // Something is left, but cannot be done before Wake().
    kBlocked,
  };

  explicit EndingQueue(loop::Sequence& sequence,
                       loop::Clock::duration slice = kEndingSlice);
  EndingQueue(const EndingQueue&) = delete;
  EndingQueue& operator=(const EndingQueue&) = delete;
  ~EndingQueue();

  // The client has left: all its streams are to end.
  void AddClosed(std::weak_ptr<Streams> streams);

  // Some streams of a client that stays have ended and are to be destroyed.
  void AddEnded(std::weak_ptr<Streams> streams);

  // A client that was blocked may be no longer.
  void Wake();

  // The whole server stops: subscriptions end before the streams do.
  void EndSubscriptionsFirst();

  // Does at once what is to be done, all of it.
  void FinishAll();

 private:
  enum class State { kIdle, kScheduled, kRunning };
  using Waiting = std::deque<std::weak_ptr<Streams>>;

  Waiting& WaitingIn(EndingStage stage) {
    return waiting_[static_cast<size_t>(stage)];
  }
  EndingStage StageAfter(EndingStage stage) const;
  void Schedule();
  void RunSlice();
  bool DoNext();
  bool DoNextIn(EndingStage stage);

  loop::Sequence& sequence_;
  const loop::Clock::duration slice_;
  State state_ = State::kIdle;
  bool subscriptions_first_ = false;
  // By stage. A client stands in one of those for clients that have left, and
  // perhaps among the ended.
  std::array<Waiting, kEndingStages> waiting_;
};

}  // namespace rpc::serving

#endif  // CORE_COMMON_RPC_SERVING_ENDING_QUEUE_H_
