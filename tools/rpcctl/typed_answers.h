// The answers of a person at a terminal.
//
// Shows one question at a time, the oldest, and takes the next line for its
// answer. A line that was typed while no question was shown is not taken: it
// was meant for another one, or for none. A line that is no valid answer is
// asked for again while there is time.
//
// It is handed the lines, and knows no terminal:
//
//   TypedAnswers answers(loop, PrintToPerson, DropWhatIsHalfTyped, End);
//   cli::LineReader reader(loop, STDIN_FILENO, [&](auto line) {
//     answers.OnLine(std::move(line));
//   });
//
// Ownership: the caller's. What the functions refer to must live as long.
//
// Sequence: the one it is given. A question is shown on a later turn, after the
// lines that were posted before.
//
// Failure: a question whose time is up gets DEADLINE_EXCEEDED.

#ifndef TOOLS_RPCCTL_TYPED_ANSWERS_H_
#define TOOLS_RPCCTL_TYPED_ANSWERS_H_

#include <functional>
#include <list>
#include <memory>
#include <optional>
#include <string>

#include "core/common/rpc/loop/sequence.h"
#include "tools/rpcctl/answer_source.h"

namespace rpcctl {

class TypedAnswers final : public AnswerSource {
 public:
  // `say` tells the person a line. `drop_input` is called before a question is
  // shown, to forget what has been typed but not handed over. `on_exhausted` is
  // called once, on a later turn, when the input has ended.
  TypedAnswers(rpc::loop::Sequence& sequence,
               std::function<void(const std::string&)> say,
               std::function<void()> drop_input,
               std::function<void()> on_exhausted);
  TypedAnswers(const TypedAnswers&) = delete;
  TypedAnswers& operator=(const TypedAnswers&) = delete;
  ~TypedAnswers() override;

  void Answer(const Question& question, Take take) override;

  // The next line; nullopt at the end of the input.
  void OnLine(std::optional<std::string> line);

 private:
  struct Open {
    Question question;
    Take take;
    // Null when the server does not say how long it waits.
    std::unique_ptr<rpc::loop::Timer> too_late;
  };
  using Questions = std::list<Open>;

  // Whether the oldest question has been shown, or will be on a later turn.
  enum class Prompt { kNone, kPosted, kShown };

  void ShowSoon();
  void Show();
  bool IsLate(const Question& question) const;
  void Ask();
  // Removes the question and gives it `answer`.
  void Finish(Questions::iterator question,
              const absl::StatusOr<std::string>& answer);

  rpc::loop::Sequence& sequence_;
  const std::function<void(const std::string&)> say_;
  const std::function<void()> drop_input_;
  std::function<void()> on_exhausted_;
  Questions questions_;
  Prompt prompt_ = Prompt::kNone;
  // Expires with this, for tasks that are posted.
  const std::shared_ptr<TypedAnswers*> self_;
};

}  // namespace rpcctl

#endif  // TOOLS_RPCCTL_TYPED_ANSWERS_H_
