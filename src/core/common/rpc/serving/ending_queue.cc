#include "core/common/rpc/serving/ending_queue.h"

#include <iterator>
#include <utility>

#include "core/common/rpc/serving/streams.h"

namespace rpc::serving {

EndingQueue::EndingQueue(loop::Sequence& sequence, loop::Clock::duration slice)
    : sequence_(sequence), slice_(slice) {}

EndingQueue::~EndingQueue() = default;

void EndingQueue::AddClosed(std::weak_ptr<Streams> streams) {
  WaitingIn(EndingStage::kQuestions).push_back(std::move(streams));
  Wake();
}

void EndingQueue::AddEnded(std::weak_ptr<Streams> streams) {
  WaitingIn(EndingStage::kEnded).push_back(std::move(streams));
  Wake();
}

void EndingQueue::Wake() {
  if (state_ == State::kIdle) {
    Schedule();
  }
}

void EndingQueue::EndSubscriptionsFirst() {
  subscriptions_first_ = true;
  Waiting& rest = WaitingIn(EndingStage::kRest);
  Waiting& subscriptions = WaitingIn(EndingStage::kSubscriptions);
  subscriptions.insert(subscriptions.end(), rest.begin(), rest.end());
  rest.clear();
}

void EndingQueue::FinishAll() {
  state_ = State::kRunning;
  while (DoNext()) {
  }
  state_ = State::kIdle;
}

void EndingQueue::Schedule() {
  state_ = State::kScheduled;
  sequence_.Post([weak_self = weak_from_this()] {
    if (const auto self = weak_self.lock()) {
      self->RunSlice();
    }
  });
}

// While it runs, no other slice does: a stream that runs the loop within its
// end comes back to this one.
void EndingQueue::RunSlice() {
  state_ = State::kRunning;
  const loop::Clock::time_point start = sequence_.Now();
  bool did_something = true;
  do {
    did_something = DoNext();
  } while (did_something && sequence_.Now() - start < slice_);
  state_ = State::kIdle;
  if (did_something) {
    Schedule();
  }
}

bool EndingQueue::DoNext() {
  return DoNextIn(EndingStage::kQuestions) || DoNextIn(EndingStage::kEnded) ||
         DoNextIn(EndingStage::kSubscriptions) || DoNextIn(EndingStage::kRest);
}

// Clients that have nothing left to do here pass on to the next stage. What is
// done may add others to the end.
bool EndingQueue::DoNextIn(EndingStage stage) {
  Waiting& waiting = WaitingIn(stage);
  for (size_t i = 0; i < waiting.size();) {
    const std::shared_ptr<Streams> streams = waiting[i].lock();
    const Progress progress =
        streams ? streams->EndSome(stage) : Progress::kDone;
    if (progress == Progress::kMore) {
      return true;
    }
    if (progress == Progress::kBlocked) {
      ++i;
      continue;
    }
    waiting.erase(std::next(waiting.begin(), static_cast<ptrdiff_t>(i)));
    if (streams && StageAfter(stage) != stage) {
      WaitingIn(StageAfter(stage)).push_back(streams);
    }
  }
  return false;
}

// The same stage when it is the last for a client.
EndingStage EndingQueue::StageAfter(EndingStage stage) const {
  switch (stage) {
    case EndingStage::kQuestions:
      return subscriptions_first_ ? EndingStage::kSubscriptions
                                  : EndingStage::kRest;
    case EndingStage::kSubscriptions:
      return EndingStage::kRest;
    case EndingStage::kEnded:
    case EndingStage::kRest:
      return stage;
  }
  return stage;
}

}  // namespace rpc::serving
