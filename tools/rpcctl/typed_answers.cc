#include "tools/rpcctl/typed_answers.h"

#include <iterator>
#include <utility>

#include "absl/strings/str_cat.h"
#include "absl/strings/str_format.h"

namespace rpcctl {

TypedAnswers::TypedAnswers(rpc::loop::Sequence& sequence,
                           std::function<void(const std::string&)> say,
                           std::function<void()> drop_input,
                           std::function<void()> on_exhausted)
    : sequence_(sequence),
      say_(std::move(say)),
      drop_input_(std::move(drop_input)),
      on_exhausted_(std::move(on_exhausted)),
      self_(std::make_shared<TypedAnswers*>(this)) {}

TypedAnswers::~TypedAnswers() = default;

void TypedAnswers::Answer(const Question& question, Take take) {
  questions_.push_back(Open{question, std::move(take), nullptr});
  if (question.deadline) {
    const auto place = std::prev(questions_.end());
    place->too_late = sequence_.RunAt(*question.deadline, [this, place] {
      Finish(place, absl::DeadlineExceededError("there was no answer in time"));
    });
  }
  ShowSoon();
}

void TypedAnswers::OnLine(std::optional<std::string> line) {
  if (!line) {
    sequence_.Post(std::exchange(on_exhausted_, nullptr));
    return;
  }
  if (prompt_ != Prompt::kShown) {
    say_("No question is open: that line answers nothing.");
    return;
  }
  const auto shown = questions_.begin();
  absl::Status valid = CheckLength(*line);
  if (valid.ok())
    valid = shown->question.check(*line);
  if (!valid.ok()) {
    say_(absl::StrCat("That is no answer: ", valid.message()));
    return Ask();
  }
  Finish(shown, *std::move(line));
}

void TypedAnswers::Finish(Questions::iterator question,
                          const absl::StatusOr<std::string>& answer) {
  if (question == questions_.begin() && prompt_ == Prompt::kShown) {
    prompt_ = Prompt::kNone;
  }
  const Open finished = std::move(*question);
  questions_.erase(question);
  finished.take(answer);
  ShowSoon();
}

void TypedAnswers::ShowSoon() {
  if (questions_.empty() || prompt_ != Prompt::kNone) {
    return;
  }
  prompt_ = Prompt::kPosted;
  sequence_.Post([weak_self = std::weak_ptr<TypedAnswers*>(self_)] {
    if (const auto self = weak_self.lock()) {
      (*self)->Show();
    }
  });
}

void TypedAnswers::Show() {
  // A question may have ended since this was posted, or be about to.
  if (questions_.empty() || IsLate(questions_.front().question)) {
    prompt_ = Prompt::kNone;
    return;
  }
  prompt_ = Prompt::kShown;
  drop_input_();
  Ask();
}

bool TypedAnswers::IsLate(const Question& question) const {
  return question.deadline && sequence_.Now() >= *question.deadline;
}

void TypedAnswers::Ask() {
  const Question& question = questions_.front().question;
  std::string time;
  if (question.deadline) {
    const std::chrono::duration<double> left =
        *question.deadline - sequence_.Now();
    time = absl::StrFormat(" You have %.1f s.", left.count());
  }
  say_(absl::StrCat("What is the answer to ", question.title, "?", time));
}

}  // namespace rpcctl
