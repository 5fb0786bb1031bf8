// A question to a client that settles in any case, and in time.
//
// A callback stream has no timer: a question waits for as long as its client
// says nothing. A browser must go on at some point:
//
//   rpc::CloseWindow question;
//   question.mutable_browser_id()->set_value(7);
//   question.mutable_question();
//   rpc::transport::AskWithin<rpc::CloseWindow>(
//       loop, std::chrono::seconds(5), question,
//       [](QuestionOutcome outcome, const rpc::CloseWindow& answer) {
//         const bool may_close = outcome != QuestionOutcome::kAnswered ||
//                                answer.response().allowed();
//       });
//
// Ownership: question, answer and function are copied. What the function refers
// to must live until it has run; the loop, until the streams are gone.
//
// Sequence: the loop's thread, which is that of the streams. The function runs
// on a later turn of the loop, outside of any stream, so that it may ask again,
// and may end the window or the stream that it is about.
//
// Failure: the function runs exactly once, with the outcome that came first.

#ifndef CORE_COMMON_RPC_TRANSPORT_QUESTION_H_
#define CORE_COMMON_RPC_TRANSPORT_QUESTION_H_

#include <chrono>
#include <functional>
#include <memory>
#include <system_error>
#include <utility>

#include "core/common/rpc/stream/callback_stream.h"
#include "core/common/rpc/transport/asio.h"

namespace rpc::transport {

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
// stream.
template <typename T>
class TimedQuestion final
    : public std::enable_shared_from_this<TimedQuestion<T>> {
 public:
  TimedQuestion(asio::io_context& loop, SettleQuestion<T> settle)
      : loop_(loop), timer_(loop), settle_(std::move(settle)) {}

  void Ask(std::chrono::milliseconds patience, const T& question) {
    const auto self = this->shared_from_this();
    const bool asked = torvane::CallbackStream<T>::Ask(
        question, {.response_callback =
                       [self](T& answer) {
                         self->Settle(QuestionOutcome::kAnswered, answer);
                       },
                   .error_callback =
                       [self](torvane::StreamCallError error) {
                         self->Settle(OutcomeOf(error));
                       }});
    if (!asked) {
      Settle(QuestionOutcome::kNobodyAnswers);
      return;
    }
    timer_.expires_after(patience);
    timer_.async_wait([self](const std::error_code& cancelled) {
      if (!cancelled) {
        self->Settle(QuestionOutcome::kTooLate);
      }
    });
  }

 private:
  static QuestionOutcome OutcomeOf(torvane::StreamCallError error) {
    return error == torvane::StreamCallError::kRemoteError
               ? QuestionOutcome::kClientFailed
               : QuestionOutcome::kClientLeft;
  }

  void Settle(QuestionOutcome outcome, const T& answer = T()) {
    if (!settle_) {
      return;
    }
    timer_.cancel();
    asio::post(loop_, [settle = std::exchange(settle_, nullptr), outcome,
                       answer] { settle(outcome, answer); });
  }

  asio::io_context& loop_;
  asio::steady_timer timer_;
  // Empty once settled.
  SettleQuestion<T> settle_;
};

// Asks whoever answers for the question's window and waits no longer than
// `patience`.
template <typename T>
void AskWithin(asio::io_context& loop,
               std::chrono::milliseconds patience,
               const T& question,
               SettleQuestion<T> settle) {
  std::make_shared<TimedQuestion<T>>(loop, std::move(settle))
      ->Ask(patience, question);
}

}  // namespace rpc::transport

#endif  // CORE_COMMON_RPC_TRANSPORT_QUESTION_H_
