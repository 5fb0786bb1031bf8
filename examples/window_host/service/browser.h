// The browser around the windows: it asks clients before it does what users or
// other clients request, and tells them which windows have opened and closed.
//
//   window_host::Browser browser(sequence, windows, std::chrono::seconds(5));
//   browser.CloseWindow(7, rpc::WINDOW_CLOSE_REASON_USER,
//                       [](const absl::StatusOr<Decision>& closed) {...});
//
// Closing a window, executing a command and opening a context menu are put to
// the client that answers for the window. Without an answer in time the browser
// does what it does without such a client: the window closes, the command is
// executed, the menu opens unchanged.
//
// Ownership: sequence and windows are the caller's and must outlive the
// browser, which must outlive the last task of the sequence. The browser is the
// observer of the windows.
//
// Sequence: that of the windows. The functions passed in run there: at once for
// errors that are known at once, otherwise on a later turn.
//
// Failure: NOT_FOUND for a window that is not open, also when it went away
// while the question was under way; INVALID_ARGUMENT for an unknown command;
// whatever the desktop says when it does not close a window.

#ifndef EXAMPLES_WINDOW_HOST_SERVICE_BROWSER_H_
#define EXAMPLES_WINDOW_HOST_SERVICE_BROWSER_H_

#include <chrono>
#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "absl/status/statusor.h"
#include "core/common/rpc/loop/sequence.h"
#include "core/common/rpc/serving/ask_within.h"
#include "examples/window_host/windows/window_system.h"
#include "rpc/browser/browser_window.pb.h"

namespace window_host {

using rpc::serving::QuestionOutcome;

// Whether it was allowed, and how the question to the client has ended.
struct Decision {
  bool allowed = false;
  QuestionOutcome outcome = QuestionOutcome::kAnswered;
};

// A context menu: how it has opened, or that the client shows one itself.
struct Menu {
  bool is_clients = false;
  std::vector<std::string> commands;
  QuestionOutcome outcome = QuestionOutcome::kAnswered;
};

template <typename Result>
using Then = std::function<void(const absl::StatusOr<Result>&)>;

class Browser final : private WindowObserver {
 public:
  // `patience` is how long a client may take for an answer.
  Browser(rpc::loop::Sequence& sequence,
          WindowSystem& windows,
          std::chrono::milliseconds patience);
  Browser(const Browser&) = delete;
  Browser& operator=(const Browser&) = delete;
  ~Browser() override;

  // Closes the window if that is allowed.
  void CloseWindow(int64_t id,
                   rpc::WindowCloseReason reason,
                   const Then<Decision>& then);

  // Executes the command for the user, if that is allowed.
  void ExecuteCommand(int64_t id,
                      const std::string& name,
                      const Then<Decision>& then);

  // Opens the menu at that place in the window, in device-independent pixels
  // from its top left corner.
  void OpenContextMenu(int64_t id, int x, int y, const Then<Menu>& then);

  // Closes all windows without asking. `then` runs when each of them has closed
  // or the desktop has refused to close it; at once where there is none.
  void Shutdown(const std::function<void()>& then);

 private:
  // WindowObserver:
  void OnWindowOpened(const WindowView& first) override;
  void OnCloseWish(int64_t id) override;
  void OnCommandWish(int64_t id, const std::string& name) override;
  void OnMenuWish(int64_t id, int x, int y) override;
  void OnWindowGone(const WindowView& last,
                    rpc::WindowCloseReason reason) override;

  rpc::loop::Sequence& sequence_;
  WindowSystem& windows_;
  const std::chrono::milliseconds patience_;
};

}  // namespace window_host

#endif  // EXAMPLES_WINDOW_HOST_SERVICE_BROWSER_H_
