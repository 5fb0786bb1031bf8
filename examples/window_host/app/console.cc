#include "examples/window_host/app/console.h"

#include <utility>

#include "absl/strings/numbers.h"
#include "absl/strings/str_cat.h"
#include "absl/strings/str_join.h"
#include "absl/strings/str_split.h"
#include "tools/cli/printable.h"

namespace window_host {
namespace {

constexpr char kHelp[] =
    "list             the open windows, the frontmost first\n"
    "close ID         the user closes a window\n"
    "command ID NAME  the user wants a command, such as reload\n"
    "menu ID X Y      the user opens the context menu there in a window\n"
    "help             prints this";

std::string Describe(const WindowView& view) {
  static constexpr const char* kStates[] = {"normal", "maximized",
                                            "full screen", "minimized"};
  std::vector<std::string> words;
  if (!view.visible && view.state != WindowState::kMinimized)
    words.emplace_back("hidden");
  if (view.active)
    words.emplace_back("active");
  words.emplace_back(kStates[static_cast<size_t>(view.state)]);
  words.push_back(absl::StrCat(view.bounds.width, "x", view.bounds.height,
                               " at ", view.bounds.x, ",", view.bounds.y));
  if (view.page_has_keyboard)
    words.emplace_back("its page has the keyboard");
  // Shortened, so that what stands behind it is seen.
  constexpr size_t kMaxTitleBytes = 200;
  return absl::StrCat("Window ", view.id, ", \"",
                      cli::Shorten(view.title, kMaxTitleBytes),
                      "\": ", absl::StrJoin(words, ", "));
}

// The end of a printed sentence: why something was done or not.
std::string Because(bool allowed, QuestionOutcome outcome) {
  switch (outcome) {
    case QuestionOutcome::kAnswered:
      return allowed ? ": its client allows that."
                     : ": its client does not allow that.";
    case QuestionOutcome::kNobodyAnswers:
      return ": nobody answers for it.";
    case QuestionOutcome::kClientFailed:
      return ": its client could not answer.";
    case QuestionOutcome::kClientLeft:
      return ": its client has left.";
    case QuestionOutcome::kTooLate:
      return ": its client did not answer in time.";
  }
  return ".";
}

}  // namespace

Console::Console(WindowSystem& windows, Browser& browser, Print print)
    : windows_(windows), browser_(browser), print_(std::move(print)) {}

void Console::Obey(std::string_view line) {
  const Words words =
      absl::StrSplit(line, absl::ByAnyChar(" \t\r"), absl::SkipEmpty());
  if (words.empty())
    return;
  if (words == Words{"list"})
    return List();
  if (words == Words{"help"})
    return print_(kHelp);
  if (!ObeyAboutWindow(words))
    Say(absl::StrCat("Not understood: ", line, ". Try help."));
}

bool Console::ObeyAboutWindow(const Words& words) {
  int64_t id;
  if (words.size() < 2 || !absl::SimpleAtoi(words[1], &id))
    return false;
  if (words[0] == "close" && words.size() == 2) {
    Close(id);
    return true;
  }
  if (words[0] == "command" && words.size() == 3) {
    Execute(id, words[2]);
    return true;
  }
  int x;
  int y;
  if (words[0] == "menu" && words.size() == 4 &&
      absl::SimpleAtoi(words[2], &x) && absl::SimpleAtoi(words[3], &y)) {
    OpenMenu(id, x, y);
    return true;
  }
  return false;
}

void Console::Say(std::string_view text) const {
  print_(cli::Printable(text));
}

void Console::List() {
  if (windows_.stacking().empty())
    return Say("No window is open.");
  for (int64_t id : windows_.stacking())
    Say(Describe(*windows_.Inspect(id)));
}

void Console::Close(int64_t id) {
  const absl::StatusOr<WindowView> window = windows_.Inspect(id);
  if (window.ok() && !window->style.closable()) {
    return Say(
        absl::StrCat("Window ", id, " stays open: its style is not closable."));
  }
  browser_.CloseWindow(
      id, rpc::WINDOW_CLOSE_REASON_USER,
      [=, this](const absl::StatusOr<Decision>& closed) {
        if (!closed.ok())
          return Say(closed.status().message());
        Say(absl::StrCat("Window ", id,
                         closed->allowed ? " is closed" : " stays open",
                         Because(closed->allowed, closed->outcome)));
      });
}

void Console::Execute(int64_t id, const std::string& command) {
  browser_.ExecuteCommand(
      id, command, [=, this](const absl::StatusOr<Decision>& executed) {
        if (!executed.ok())
          return Say(executed.status().message());
        Say(absl::StrCat(
            "Window ", id, executed->allowed ? " executes " : " ignores ",
            command, Because(executed->allowed, executed->outcome)));
      });
}

void Console::OpenMenu(int64_t id, int x, int y) {
  browser_.OpenContextMenu(
      id, x, y, [=, this](const absl::StatusOr<Menu>& menu) {
        if (!menu.ok())
          return Say(menu.status().message());
        if (menu->is_clients) {
          return Say(
              absl::StrCat("Window ", id, " shows a menu of its client's."));
        }
        Say(absl::StrCat("Window ", id, " shows the menu [",
                         absl::StrJoin(menu->commands, ", "), "]",
                         Because(true, menu->outcome)));
      });
}

}  // namespace window_host
