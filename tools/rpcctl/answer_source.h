// Where the answers to a server's questions come from.
//
// Ownership: the caller's. A source keeps the functions that it is given until
// it has called them; those that are left when it is destroyed are not called.
//
// Sequence: that of the loop. A function must not destroy the source that calls
// it.
//
// Failure: a question for which there is no answer gets a status instead.

#ifndef TOOLS_RPCCTL_ANSWER_SOURCE_H_
#define TOOLS_RPCCTL_ANSWER_SOURCE_H_

#include <functional>
#include <memory>
#include <optional>
#include <string>

#include "absl/status/status.h"
#include "absl/status/statusor.h"
#include "core/common/rpc/loop/loop.h"

namespace rpcctl {

// A question of the server's.
struct Question {
  // The message, a line of JSON.
  std::string json;

  // What it is about, for a person: "OnCloseWindow about window 1".
  std::string title;

  // When the server waits no longer. Nothing when it does not say.
  std::optional<rpc::loop::Clock::time_point> deadline;

  // Says what is wrong with a text as its answer.
  std::function<absl::Status(const std::string& text)> check;
};

class AnswerSource {
 public:
  // Gets the answer in JSON.
  using Take = std::function<void(const absl::StatusOr<std::string>& answer)>;

  virtual ~AnswerSource() = default;

  // Calls `take` now or later with the answer to `question`.
  virtual void Answer(const Question& question, Take take) = 0;
};

// INVALID_ARGUMENT for a line of which cli::LineReader has passed on only the
// beginning: that is no answer, whatever it says.
absl::Status CheckLength(const std::string& line);

// The same answer to every question.
std::unique_ptr<AnswerSource> MakeFixedAnswers(std::string answer);

// The lines read from the descriptor, each for one question, in order. Lines
// may come before their questions. One that is too long is no answer to its
// question. Calls `on_exhausted` once, on a later turn,
// when the input has ended and every line is used up.
std::unique_ptr<AnswerSource> MakeLineAnswers(
    rpc::loop::Sequence& sequence,
    int descriptor,
    std::function<void()> on_exhausted);

// What a person types at the terminal `descriptor`, as typed_answers.h says.
// Calls `on_exhausted` once, on a later turn, when the input has ended.
std::unique_ptr<AnswerSource> MakeTypedAnswers(
    rpc::loop::Sequence& sequence,
    int descriptor,
    std::function<void()> on_exhausted);

// The output of `command`, which the shell runs for each question with the
// question as its input. Several commands may run at the same time.
std::unique_ptr<AnswerSource> MakeCommandAnswers(rpc::loop::Loop& loop,
                                                 std::string command);

}  // namespace rpcctl

#endif  // TOOLS_RPCCTL_ANSWER_SOURCE_H_
