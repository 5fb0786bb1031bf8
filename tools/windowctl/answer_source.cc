#include "tools/windowctl/answer_source.h"

#include <deque>
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
  LineAnswers(asio::io_context& loop,
              int descriptor,
              std::function<void()> on_exhausted)
      : loop_(loop),
        on_exhausted_(std::move(on_exhausted)),
        reader_(loop, descriptor, [this](std::optional<std::string> line) {
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
      asio::post(loop_, std::exchange(on_exhausted_, nullptr));
  }

  asio::io_context& loop_;
  // Empty once called.
  std::function<void()> on_exhausted_;
  // At most one of these two holds something.
  std::deque<Take> questions_;
  std::deque<std::string> lines_;
  bool ended_ = false;
  cli::LineReader reader_;
};

class CommandAnswers final : public AnswerSource {
 public:
  CommandAnswers(asio::io_context& loop, std::string command)
      : loop_(loop), command_(std::move(command)) {}

  void Answer(const std::string& question, Take take) override {
    RunShellCommand(loop_, command_, question + "\n", take);
  }

 private:
  asio::io_context& loop_;
  const std::string command_;
};

}  // namespace

std::unique_ptr<AnswerSource> MakeFixedAnswers(std::string answer) {
  return std::make_unique<FixedAnswers>(std::move(answer));
}

std::unique_ptr<AnswerSource> MakeLineAnswers(
    asio::io_context& loop,
    int descriptor,
    std::function<void()> on_exhausted) {
  return std::make_unique<LineAnswers>(loop, descriptor,
                                       std::move(on_exhausted));
}

std::unique_ptr<AnswerSource> MakeCommandAnswers(asio::io_context& loop,
                                                 std::string command) {
  return std::make_unique<CommandAnswers>(loop, std::move(command));
}

}  // namespace windowctl
