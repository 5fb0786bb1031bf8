#include "tools/windowctl/answer_source.h"

#include <deque>
#include <iterator>
#include <list>
#include <optional>
#include <utility>

#include "tools/cli/line_reader.h"
#include "tools/windowctl/shell_command.h"

namespace windowctl {
namespace {

class FixedAnswers final : public AnswerSource {
 public:
  explicit FixedAnswers(std::string answer) : answer_(std::move(answer)) {}

  void Answer(const std::string&, Take take) override { take(answer_); }

 private:
  const std::string answer_;
};

class LineAnswers final : public AnswerSource {
 public:
  LineAnswers(rpc::loop::Sequence& sequence,
              int descriptor,
              std::function<void()> on_exhausted)
      : sequence_(sequence),
        on_exhausted_(std::move(on_exhausted)),
        reader_(sequence, descriptor, [this](std::optional<std::string> line) {
          OnLine(std::move(line));
        }) {}

  void Answer(const std::string&, Take take) override {
    questions_.push_back(std::move(take));
    Match();
  }

 private:
  void OnLine(std::optional<std::string> line) {
    if (line)
      lines_.push_back(*std::move(line));
    else
      ended_ = true;
    Match();
  }

  void Match() {
    while (!questions_.empty() && !lines_.empty()) {
      const Take take = std::move(questions_.front());
      questions_.pop_front();
      const std::string line = std::move(lines_.front());
      lines_.pop_front();
      take(line);
    }
    if (ended_ && lines_.empty() && on_exhausted_)
      sequence_.Post(std::exchange(on_exhausted_, nullptr));
  }

  rpc::loop::Sequence& sequence_;
  // Empty once it has been posted.
  std::function<void()> on_exhausted_;
  // Questions that wait for lines, and lines that wait for questions. At least
  // one of the two is empty.
  std::deque<Take> questions_;
  std::deque<std::string> lines_;
  bool ended_ = false;
  cli::LineReader reader_;
};

class CommandAnswers final : public AnswerSource {
 public:
  CommandAnswers(rpc::loop::Loop& loop, std::string command)
      : loop_(loop), command_(std::move(command)) {}

  void Answer(const std::string& question, Take take) override {
    auto& running = running_.emplace_back();
    const auto place = std::prev(running_.end());
    running.emplace(loop_, command_, question + "\n",
                    [this, place, take = std::move(take)](
                        const absl::StatusOr<std::string>& output) {
                      take(output);
                      running_.erase(place);
                    });
  }

 private:
  rpc::loop::Loop& loop_;
  const std::string command_;
  // A list, since each command keeps an iterator by which it removes itself
  // when it has ended.
  std::list<std::optional<ShellCommand>> running_;
};

}  // namespace

std::unique_ptr<AnswerSource> MakeFixedAnswers(std::string answer) {
  return std::make_unique<FixedAnswers>(std::move(answer));
}

std::unique_ptr<AnswerSource> MakeLineAnswers(
    rpc::loop::Sequence& sequence,
    int descriptor,
    std::function<void()> on_exhausted) {
  return std::make_unique<LineAnswers>(sequence, descriptor,
                                       std::move(on_exhausted));
}

std::unique_ptr<AnswerSource> MakeCommandAnswers(rpc::loop::Loop& loop,
                                                 std::string command) {
  return std::make_unique<CommandAnswers>(loop, std::move(command));
}

}  // namespace windowctl
