#include "tools/rpcctl/answer_source.h"

#include <signal.h>
#include <termios.h>

#include <deque>
#include <iterator>
#include <list>
#include <optional>
#include <utility>

#include "tools/cli/line_reader.h"
#include "tools/rpcctl/commands.h"
#include "tools/rpcctl/shell_command.h"
#include "tools/rpcctl/typed_answers.h"

namespace rpcctl {
namespace {

class FixedAnswers final : public AnswerSource {
 public:
  explicit FixedAnswers(std::string answer) : answer_(std::move(answer)) {}

  void Answer(const Question&, Take take) override { take(answer_); }

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

  void Answer(const Question&, Take take) override {
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
      const absl::Status length = CheckLength(line);
      if (length.ok())
        take(line);
      else
        take(length);
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

// Forgets what has been typed into the terminal and not been read, such as half
// a line. In a background job it would stop the process if that did not block
// the signal for it.
void DropInput(int terminal) {
  sigset_t background;
  sigset_t before;
  sigemptyset(&background);
  sigaddset(&background, SIGTTOU);
  pthread_sigmask(SIG_BLOCK, &background, &before);
  tcflush(terminal, TCIFLUSH);
  pthread_sigmask(SIG_SETMASK, &before, nullptr);
}

class TerminalAnswers final : public AnswerSource {
 public:
  TerminalAnswers(rpc::loop::Sequence& sequence,
                  int descriptor,
                  std::function<void()> on_exhausted)
      : typed_(
            sequence,
            [](const std::string& line) { Say(line); },
            [descriptor] { DropInput(descriptor); },
            std::move(on_exhausted)),
        reader_(sequence, descriptor, [this](std::optional<std::string> line) {
          typed_.OnLine(std::move(line));
        }) {}

  void Answer(const Question& question, Take take) override {
    typed_.Answer(question, std::move(take));
  }

 private:
  TypedAnswers typed_;
  cli::LineReader reader_;
};

class CommandAnswers final : public AnswerSource {
 public:
  CommandAnswers(rpc::loop::Loop& loop, std::string command)
      : loop_(loop), command_(std::move(command)) {}

  void Answer(const Question& question, Take take) override {
    auto& running = running_.emplace_back();
    const auto place = std::prev(running_.end());
    running.emplace(loop_, command_, question.json + "\n",
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

absl::Status CheckLength(const std::string& line) {
  if (!cli::LineReader::IsTooLong(line))
    return absl::OkStatus();
  return absl::InvalidArgumentError(absl::StrCat("a line of more than ",
                                                 cli::LineReader::kMaxLineBytes,
                                                 " bytes is not read"));
}

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

std::unique_ptr<AnswerSource> MakeTypedAnswers(
    rpc::loop::Sequence& sequence,
    int descriptor,
    std::function<void()> on_exhausted) {
  return std::make_unique<TerminalAnswers>(sequence, descriptor,
                                           std::move(on_exhausted));
}

std::unique_ptr<AnswerSource> MakeCommandAnswers(rpc::loop::Loop& loop,
                                                 std::string command) {
  return std::make_unique<CommandAnswers>(loop, std::move(command));
}

}  // namespace rpcctl
