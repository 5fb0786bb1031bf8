// A desktop in memory that a test controls: it holds changes and new windows
// back until the test confirms or refuses them, and it can lose a window.
//
//   FakeWindows windows(sequence);
//   windows.Open();
//   windows.Hold();
//   windows.Change(1, WindowAction::kMaximize, ...);
//   windows.Refuse(absl::FailedPreconditionError("..."));
//   sequence.Run();       // the change completes

#ifndef EXAMPLES_WINDOW_HOST_WINDOWS_FAKE_WINDOWS_TEST_SUPPORT_H_
#define EXAMPLES_WINDOW_HOST_WINDOWS_FAKE_WINDOWS_TEST_SUPPORT_H_

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <string>
#include <utility>
#include <variant>
#include <vector>

#include "absl/strings/str_cat.h"
#include "absl/strings/str_join.h"
#include "examples/window_host/windows/memory_desktop.h"

namespace window_host {

class FakeWindows final : public MemoryDesktop {
 public:
  explicit FakeWindows(rpc::loop::Sequence& sequence)
      : MemoryDesktop(sequence, Display{}), sequence_(sequence) {}

  // Holds back all changes and new windows from now on. Before, they are made
  // at once.
  void Hold() { holds_ = true; }

  size_t window_count() const override {
    const auto held = std::count_if(
        held_.begin(), held_.end(), [](const AnyRequest& request) {
          return std::holds_alternative<NewRequest>(request);
        });
    return MemoryDesktop::window_count() + static_cast<size_t>(held);
  }

  using MemoryDesktop::Open;
  void Open(NewWindow window, Opened done) override {
    if (holds_)
      held_.push_back(NewRequest{std::move(window), std::move(done)});
    else
      MemoryDesktop::Open(std::move(window), std::move(done));
  }

  void Change(int64_t id, WindowChange change, Completion done) override {
    if (holds_)
      held_.push_back(Request{id, std::move(change), std::move(done)});
    else
      MemoryDesktop::Change(id, std::move(change), std::move(done));
  }

  void Execute(int64_t id, const std::string& command) override {
    done_for_user_.push_back(absl::StrCat(id, " ", command));
  }
  void OpenMenu(int64_t id,
                int x,
                int y,
                const std::vector<std::string>& commands) override {
    done_for_user_.push_back(absl::StrCat(id, " menu at ", x, ",", y, ": ",
                                          absl::StrJoin(commands, " ")));
  }

  // The commands that were executed, as "1 reload", and the menus that were
  // opened, as "1 menu at 40,60: back forward".
  const std::vector<std::string>& done_for_user() const {
    return done_for_user_;
  }

  size_t held() const { return held_.size(); }

  // Makes or refuses the oldest that is held back.
  void Confirm() {
    AnyRequest oldest = TakeOldest();
    if (auto* change = std::get_if<Request>(&oldest)) {
      MemoryDesktop::Change(change->id, std::move(change->change),
                            std::move(change->done));
    } else {
      auto& window = std::get<NewRequest>(oldest);
      MemoryDesktop::Open(std::move(window.window), std::move(window.done));
    }
  }
  void Refuse(const absl::Status& status) { Complete(TakeOldest(), status); }

  // Closes the window. Changes of it that are held back end with NOT_FOUND.
  void Lose(int64_t id) {
    MemoryDesktop::Change(id, Close{}, [](const absl::Status&) {});
    for (std::deque<AnyRequest> held = std::exchange(held_, {}); !held.empty();
         held.pop_front()) {
      const auto* change = std::get_if<Request>(&held.front());
      if (change != nullptr && change->id == id)
        Complete(std::move(held.front()), NoWindow(id));
      else
        held_.push_back(std::move(held.front()));
    }
  }

  // Tells the observer that the user wants to close the window, and so on.
  void WishToClose(int64_t id) {
    sequence_.Post([this, id] { observer()->OnCloseWish(id); });
  }
  void WishCommand(int64_t id, const std::string& command) {
    sequence_.Post(
        [this, id, command] { observer()->OnCommandWish(id, command); });
  }
  void WishMenu(int64_t id, int x, int y) {
    sequence_.Post([this, id, x, y] { observer()->OnMenuWish(id, x, y); });
  }

 private:
  struct Request {
    int64_t id;
    WindowChange change;
    Completion done;
  };

  struct NewRequest {
    NewWindow window;
    Opened done;
  };
  using AnyRequest = std::variant<Request, NewRequest>;

  AnyRequest TakeOldest() {
    AnyRequest oldest = std::move(held_.front());
    held_.pop_front();
    return oldest;
  }

  void Complete(AnyRequest request, const absl::Status& status) {
    std::visit(
        [&](auto& kind) {
          sequence_.Post([done = std::move(kind.done), status]() mutable {
            done(status);
          });
        },
        request);
  }

  rpc::loop::Sequence& sequence_;
  bool holds_ = false;
  std::deque<AnyRequest> held_;
  std::vector<std::string> done_for_user_;
};

}  // namespace window_host

#endif  // EXAMPLES_WINDOW_HOST_WINDOWS_FAKE_WINDOWS_TEST_SUPPORT_H_
