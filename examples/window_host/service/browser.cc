#include "examples/window_host/service/browser.h"

#include <algorithm>
#include <memory>
#include <utility>

#include "absl/strings/str_cat.h"
#include "core/common/rpc/stream/event_stream.h"
#include "examples/window_host/service/directory_service.h"
#include "rpc/directory/window_directory.pb.h"
#include "tools/cli/nearest_name.h"

namespace window_host {
namespace {

// A command's id is its position here, counted from 1.
constexpr const char* kCommands[] = {
    "back", "forward", "reload",   "copy",       "paste",      "print",
    "find", "zoom_in", "zoom_out", "zoom_reset", "new_window", "close_window"};

// The context menu has the first of these commands, this many.
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

// A message that names the window; the caller fills in the question.
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

// Without an answer everything is allowed.
bool IsAllowed(QuestionOutcome outcome, bool answer) {
  return outcome != QuestionOutcome::kAnswered || answer;
}

}  // namespace

Browser::Browser(rpc::loop::Sequence& sequence,
                 WindowSystem& windows,
                 std::chrono::milliseconds patience)
    : sequence_(sequence), windows_(windows), patience_(patience) {
  windows_.set_observer(this);
}

Browser::~Browser() {
  windows_.set_observer(nullptr);
}

void Browser::CloseWindow(int64_t id,
                          rpc::WindowCloseReason reason,
                          const Then<Decision>& then) {
  if (absl::Status found = windows_.Inspect(id).status(); !found.ok())
    return then(found);
  auto question = About<rpc::CloseWindow>(id);
  question.mutable_question()->set_reason(reason);
  rpc::serving::AskWithin<rpc::CloseWindow>(
      sequence_, patience_, question,
      [=, this](QuestionOutcome outcome, const rpc::CloseWindow& answer) {
        if (!IsAllowed(outcome, answer.response().allowed()))
          return then(Decision{false, outcome});
        windows_.Change(id, Close{reason}, [=](const absl::Status& closed) {
          if (!closed.ok())
            return then(closed);
          then(Decision{true, outcome});
        });
      });
}

void Browser::ExecuteCommand(int64_t id,
                             const std::string& name,
                             const Then<Decision>& then) {
  if (absl::Status found = windows_.Inspect(id).status(); !found.ok())
    return then(found);
  const absl::StatusOr<rpc::WindowCommand> command = FindCommand(name);
  if (!command.ok())
    return then(command.status());
  auto question = About<rpc::CanExecuteCommand>(id);
  *question.mutable_question()->mutable_command() = *command;
  rpc::serving::AskWithin<rpc::CanExecuteCommand>(
      sequence_, patience_, question,
      [=, this](QuestionOutcome outcome, const rpc::CanExecuteCommand& answer) {
        if (absl::Status found = windows_.Inspect(id).status(); !found.ok())
          return then(found);
        const bool allowed = IsAllowed(outcome, answer.response().allowed());
        if (allowed)
          windows_.Execute(id, name);
        then(Decision{allowed, outcome});
      });
}

void Browser::OpenContextMenu(int64_t id,
                              int x,
                              int y,
                              const Then<Menu>& then) {
  if (absl::Status found = windows_.Inspect(id).status(); !found.ok())
    return then(found);
  auto question = About<rpc::ShowContextMenu>(id);
  question.mutable_question()->set_x(x);
  question.mutable_question()->set_y(y);
  for (int command = 1; command <= kMenuLength; ++command)
    *question.mutable_question()->add_commands() = MakeCommand(command);
  rpc::serving::AskWithin<rpc::ShowContextMenu>(
      sequence_, patience_, question,
      [=, this](QuestionOutcome outcome, const rpc::ShowContextMenu& answer) {
        if (absl::Status found = windows_.Inspect(id).status(); !found.ok())
          return then(found);
        if (answer.response().handled())
          return then(Menu{true, {}, outcome});
        const Menu menu = {false, Remaining(question, answer), outcome};
        windows_.OpenMenu(id, x, y, menu.commands);
        then(menu);
      });
}

void Browser::Shutdown(const std::function<void()>& then) {
  const std::vector<int64_t> ids = windows_.stacking();
  if (ids.empty())
    return then();
  const auto left = std::make_shared<size_t>(ids.size());
  for (int64_t id : ids) {
    windows_.Change(id, Close{rpc::WINDOW_CLOSE_REASON_SHUTDOWN},
                    [left, then](const absl::Status&) {
                      if (--*left == 0)
                        then();
                    });
  }
}

void Browser::OnWindowOpened(const WindowView& first) {
  rpc::directory::WindowOpened event;
  *event.mutable_window() = ToInfo(first);
  torvane::EventStream<rpc::directory::WindowOpened>::Publish(
      BrowserId::default_instance(), event);
}

void Browser::OnCloseWish(int64_t id) {
  CloseWindow(id, rpc::WINDOW_CLOSE_REASON_USER,
              [](const absl::StatusOr<Decision>&) {});
}

void Browser::OnCommandWish(int64_t id, const std::string& name) {
  ExecuteCommand(id, name, [](const absl::StatusOr<Decision>&) {});
}

void Browser::OnMenuWish(int64_t id, int x, int y) {
  OpenContextMenu(id, x, y, [](const absl::StatusOr<Menu>&) {});
}

void Browser::OnWindowGone(const WindowView& last,
                           rpc::WindowCloseReason reason) {
  rpc::BrowserWindowClosed event;
  event.mutable_browser_id()->set_value(last.id);
  event.set_reason(reason);
  event.set_title(last.title);
  using Events = torvane::EventStream<rpc::BrowserWindowClosed>;
  Events::Publish(event.browser_id(), event);
  Events::Publish(BrowserId::default_instance(), event);
}

}  // namespace window_host
