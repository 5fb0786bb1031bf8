// A question to a client that settles in any case, and in time.
//
// A callback stream has no timer: a question waits for as long as its client
// says nothing. A browser must go on at some point:
//
//   rpc::CloseWindow question;
//   question.mutable_browser_id()->set_value(7);
//   question.mutable_question();
//   rpc::serving::AskWithin<rpc::CloseWindow>(
//       sequence, std::chrono::seconds(5), question,
//       [](QuestionOutcome outcome, const rpc::CloseWindow& answer) {
//         const bool may_close = outcome != QuestionOutcome::kAnswered ||
//                                answer.response().allowed();
//       });
//
// The client is told how long it has: where the question has a field
// answer_within_ms, as those of rpc/browser/browser_window.proto do, that is
// set to the time that this waits.
//
// Ownership: question, answer and function are copied. What the function refers
// to must live until it has run; the sequence, until the streams are gone.
//
// Sequence: the one that the streams live on. The function runs on a later
// turn, outside of any stream, so that it may ask again, and may end the window
// or the stream that it is about.
//
// Failure: the function runs exactly once, with the outcome that came first. A
// client that fails or leaves when its time is up was too late, also where this
// hears of it before its timer has run.

#ifndef CORE_COMMON_RPC_SERVING_ASK_WITHIN_H_
#define CORE_COMMON_RPC_SERVING_ASK_WITHIN_H_

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <functional>
#include <limits>
#include <memory>
#include <utility>

#include "core/common/rpc/loop/sequence.h"
#include "core/common/rpc/stream/callback_stream.h"

namespace rpc::serving {

enum class QuestionOutcome {
  kAnswered,
  // No client answers for the window.
  kNobodyAnswers,
  // The client said that it will not answer.
  kClientFailed,
  // The client stopped answering for the window, or went away.
  kClientLeft,
  kTooLate,
};

// The answer is empty unless the outcome is kAnswered.
template <typename T>
using SettleQuestion =
    std::function<void(QuestionOutcome outcome, const T& answer)>;

// The two ends of one question that must not both be reached: its timer and its
// stream. The stream's callbacks keep it alive.
template <typename T>
class TimedQuestion final
    : public std::enable_shared_from_this<TimedQuestion<T>> {
 public:
  TimedQuestion(loop::Sequence& sequence, SettleQuestion<T> settle)
      : sequence_(sequence), settle_(std::move(settle)) {}

  void Ask(std::chrono::milliseconds patience, const T& question) {
    const auto self = this->shared_from_this();
    deadline_ = sequence_.TimeAfter(patience);
    const bool asked = torvane::CallbackStream<T>::Ask(
        question, {.response_callback =
                       [self](T& answer) {
                         self->Settle(QuestionOutcome::kAnswered, answer);
                       },
                   .error_callback =
                       [self](torvane::StreamCallError error) {
                         self->Settle(self->OutcomeOf(error));
                       }});
    if (!asked) {
      Settle(QuestionOutcome::kNobodyAnswers);
      return;
    }
    // An answer may have come while the question was being sent.
    if (!settle_) {
      return;
    }
    timer_ = sequence_.RunAt(deadline_, [weak_self = this->weak_from_this()] {
      if (const auto late = weak_self.lock()) {
        late->Settle(QuestionOutcome::kTooLate);
      }
    });
  }

 private:
  // A client that declines because its time is up does so at the moment when
  // the timer is due.
  QuestionOutcome OutcomeOf(torvane::StreamCallError error) const {
    if (sequence_.Now() >= deadline_) {
      return QuestionOutcome::kTooLate;
    }
    return error == torvane::StreamCallError::kRemoteError
               ? QuestionOutcome::kClientFailed
               : QuestionOutcome::kClientLeft;
  }

  void Settle(QuestionOutcome outcome, const T& answer = T()) {
    if (!settle_) {
      return;
    }
    timer_.reset();
    sequence_.Post([settle = std::exchange(settle_, nullptr), outcome, answer] {
      settle(outcome, answer);
    });
  }

  loop::Sequence& sequence_;
  loop::Clock::time_point deadline_;
  std::unique_ptr<loop::Timer> timer_;
  // Empty once settled.
  SettleQuestion<T> settle_;
};

// Tells whoever gets `question` how long it will be waited for, if it has a
// field for that. 0 stands for not saying it, so no time at all is
// said as 1 ms.
template <typename T>
void SetTimeToAnswer(std::chrono::milliseconds patience, T& question) {
  if constexpr (requires {
                  question.mutable_question()->set_answer_within_ms(uint32_t{});
                }) {
    if (question.has_question()) {
      question.mutable_question()->set_answer_within_ms(
          static_cast<uint32_t>(std::clamp<int64_t>(
              patience.count(), 1, std::numeric_limits<uint32_t>::max())));
    }
  }
}

// Asks whoever answers for the question's window and waits no longer than
// `patience`.
template <typename T>
void AskWithin(loop::Sequence& sequence,
               std::chrono::milliseconds patience,
               T question,
               SettleQuestion<T> settle) {
  SetTimeToAnswer(patience, question);
  std::make_shared<TimedQuestion<T>>(sequence, std::move(settle))
      ->Ask(patience, question);
}

}  // namespace rpc::serving

#endif  // CORE_COMMON_RPC_SERVING_ASK_WITHIN_H_
