#include "examples/window_host/browser.h"

#include <algorithm>
#include <utility>

#include "absl/strings/str_cat.h"
#include "core/common/rpc/stream/event_stream.h"
#include "tools/cli/nearest_name.h"

namespace window_host {
namespace {

// A command's id is its place here, counted from 1.
constexpr const char* kCommands[] = {"back", "forward", "reload",
                                     "copy", "paste",   "print",
                                     "find", "zoom_in", "zoom_out"};

// The first of them make up the context menu.
constexpr int kMenuLength = 6;

rpc::WindowCommand MakeCommand(int id) {
  rpc::WindowCommand command;
  command.set_id(id);
  command.set_name(kCommands[id - 1]);
  return command;
}

absl::StatusOr<rpc::WindowCommand> FindCommand(const std::string& name) {
  const auto* const found =
      std::find(std::begin(kCommands), std::end(kCommands), name);
  if (found != std::end(kCommands))
    return MakeCommand(static_cast<int>(found - kCommands) + 1);
  return absl::InvalidArgumentError(absl::StrCat(
      "There is no command ", name, ".",
      cli::DidYouMean(name, {std::begin(kCommands), std::end(kCommands)})));
}

// A question about the window, yet without the question.
template <typename T>
T About(int64_t id) {
  T question;
  question.mutable_browser_id()->set_value(id);
  return question;
}

std::vector<std::string> Remaining(const rpc::ShowContextMenu& question,
                                   const rpc::ShowContextMenu& answer) {
  const auto& omitted = answer.response().omitted_command_ids();
  std::vector<std::string> names;
  for (const rpc::WindowCommand& command : question.question().commands()) {
    if (std::find(omitted.begin(), omitted.end(), command.id()) ==
        omitted.end()) {
      names.push_back(command.name());
    }
  }
  return names;
}

}  // namespace

Browser::Browser(asio::io_context& loop,
                 Desktop& desktop,
                 std::chrono::milliseconds patience)
    : loop_(loop), desktop_(desktop), patience_(patience) {}

void Browser::CloseWindow(int64_t id,
                          rpc::WindowCloseReason reason,
                          const Then<Decision>& then) {
  if (absl::Status found = desktop_.Inspect(id).status(); !found.ok())
    return then(found);
  auto question = About<rpc::CloseWindow>(id);
  question.mutable_question()->set_reason(reason);
  rpc::transport::AskWithin<rpc::CloseWindow>(
      loop_, patience_, question,
      [=, this](QuestionOutcome ground, const rpc::CloseWindow& answer) {
        const bool allowed =
            ground != QuestionOutcome::kAnswered || answer.response().allowed();
        if (!allowed)
          return then(Decision{false, ground});
        if (absl::Status closed = CloseNow(id, reason); !closed.ok())
          return then(closed);
        then(Decision{true, ground});
      });
}

void Browser::ExecuteCommand(int64_t id,
                             const std::string& name,
                             const Then<Decision>& then) {
  if (absl::Status found = desktop_.Inspect(id).status(); !found.ok())
    return then(found);
  const absl::StatusOr<rpc::WindowCommand> command = FindCommand(name);
  if (!command.ok())
    return then(command.status());
  auto question = About<rpc::CanExecuteCommand>(id);
  *question.mutable_question()->mutable_command() = *command;
  rpc::transport::AskWithin<rpc::CanExecuteCommand>(
      loop_, patience_, question,
      [=, this](QuestionOutcome ground, const rpc::CanExecuteCommand& answer) {
        if (absl::Status found = desktop_.Inspect(id).status(); !found.ok())
          return then(found);
        const bool allowed =
            ground != QuestionOutcome::kAnswered || answer.response().allowed();
        then(Decision{allowed, ground});
      });
}

void Browser::OpenContextMenu(int64_t id,
                              int x,
                              int y,
                              const Then<Menu>& then) {
  if (absl::Status found = desktop_.Inspect(id).status(); !found.ok())
    return then(found);
  auto question = About<rpc::ShowContextMenu>(id);
  question.mutable_question()->set_x(x);
  question.mutable_question()->set_y(y);
  for (int command = 1; command <= kMenuLength; ++command)
    *question.mutable_question()->add_commands() = MakeCommand(command);
  rpc::transport::AskWithin<rpc::ShowContextMenu>(
      loop_, patience_, question,
      [=, this](QuestionOutcome ground, const rpc::ShowContextMenu& answer) {
        if (absl::Status found = desktop_.Inspect(id).status(); !found.ok())
          return then(found);
        if (answer.response().handled())
          return then(Menu{true, {}, ground});
        then(Menu{false, Remaining(question, answer), ground});
      });
}

void Browser::Shutdown() {
  const std::vector<int64_t> ids = desktop_.stacking();
  for (int64_t id : ids)
    (void)CloseNow(id, rpc::WINDOW_CLOSE_REASON_SHUTDOWN);
}

absl::Status Browser::CloseNow(int64_t id, rpc::WindowCloseReason reason) {
  const absl::StatusOr<WindowLook*> look = desktop_.Look(id);
  if (!look.ok())
    return look.status();
  rpc::BrowserWindowClosed event;
  event.mutable_browser_id()->set_value(id);
  event.set_reason(reason);
  event.set_title((*look)->title);
  absl::Status closed = desktop_.Close(id);
  torvane::EventStream<rpc::BrowserWindowClosed>::Publish(event.browser_id(),
                                                          event);
  return closed;
}

}  // namespace window_host
