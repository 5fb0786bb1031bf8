// Where the answers to the host's questions come from.
//
// Ownership: the caller's. What it is given to call may be kept, and is dropped
// with the source.
//
// Sequence: the loop's thread.
//
// Failure: a question for which no answer can be had gets a status instead.

#ifndef TOOLS_WINDOWCTL_ANSWER_SOURCE_H_
#define TOOLS_WINDOWCTL_ANSWER_SOURCE_H_

#include <functional>
#include <memory>
#include <string>

#include "absl/status/statusor.h"
#include "core/common/rpc/transport/asio.h"

namespace windowctl {

class AnswerSource {
 public:
  // Takes the answer in JSON.
  using Take = std::function<void(const absl::StatusOr<std::string>& answer)>;

  virtual ~AnswerSource() = default;

  // Calls `take` now or later with the answer to `question`.
  virtual void Answer(const std::string& question, Take take) = 0;
};

// The same answer to every question.
std::unique_ptr<AnswerSource> MakeFixedAnswers(std::string answer);

// The lines read from the descriptor, each for one question, in order. Lines
// may come before their questions. Calls `on_exhausted`, on a later turn of the
// loop, when the input has ended and every line is used up.
std::unique_ptr<AnswerSource> MakeLineAnswers(
    asio::io_context& loop,
    int descriptor,
    std::function<void()> on_exhausted);

// What `command` prints, run by the shell for each question with the question
// as its input. Several may run at once.
std::unique_ptr<AnswerSource> MakeCommandAnswers(asio::io_context& loop,
                                                 std::string command);

}  // namespace windowctl

#endif  // TOOLS_WINDOWCTL_ANSWER_SOURCE_H_
