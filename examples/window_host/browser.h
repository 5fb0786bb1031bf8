// What the browser around the windows does: what users and clients ask of it,
// and what it asks its clients before.
//
//   window_host::Browser browser(loop, desktop, std::chrono::seconds(5));
//   browser.CloseWindow(7, rpc::WINDOW_CLOSE_REASON_USER,
//                       [](absl::StatusOr<Decision> closed) {...});
//
// Closing a window, executing a command and opening a context menu are put to
// the client that answers for the window. Without an answer in time the browser
// goes on as if there had been none to ask: the window closes, the command is
// executed, the menu opens as it is.
//
// Ownership: loop and desktop are the caller's and must outlive the browser,
// which must outlive the loop's last turn.
//
// Sequence: the loop's thread. Functions run there, on a later turn of the loop
// except for faults that are known at once.
//
// Failure: NOT_FOUND for a window that is not open, also when it was closed
// while the question was under way; INVALID_ARGUMENT for an unknown command.

#ifndef EXAMPLES_WINDOW_HOST_BROWSER_H_
#define EXAMPLES_WINDOW_HOST_BROWSER_H_

#include <chrono>
#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "absl/status/statusor.h"
#include "core/common/rpc/transport/asio.h"
#include "core/common/rpc/transport/question.h"
#include "examples/window_host/desktop.h"
#include "rpc/browser/browser_window.pb.h"

namespace window_host {

using rpc::transport::QuestionOutcome;

// What was decided, and on what ground: an answer, or the lack of one.
struct Decision {
  bool allowed = false;
  QuestionOutcome ground = QuestionOutcome::kAnswered;
};

// A context menu as it opened: the browser's, or one that the client shows.
struct Menu {
  bool is_clients = false;
  std::vector<std::string> commands;
  QuestionOutcome ground = QuestionOutcome::kAnswered;
};

template <typename Result>
using Then = std::function<void(const absl::StatusOr<Result>&)>;

class Browser {
 public:
  // `patience` is how long a client may take for an answer.
  Browser(asio::io_context& loop,
          Desktop& desktop,
          std::chrono::milliseconds patience);

  // Closes the window if that is allowed, and tells the clients that want to
  // know.
  void CloseWindow(int64_t id,
                   rpc::WindowCloseReason reason,
                   const Then<Decision>& then);

  // Executes the command if that is allowed, as the user's wish.
  void ExecuteCommand(int64_t id,
                      const std::string& name,
                      const Then<Decision>& then);

  // Opens the menu at that place in the window, in device-independent pixels
  // from its top left corner.
  void OpenContextMenu(int64_t id, int x, int y, const Then<Menu>& then);

  // Closes all windows without asking, and tells the clients.
  void Shutdown();

 private:
  absl::Status CloseNow(int64_t id, rpc::WindowCloseReason reason);

  asio::io_context& loop_;
  Desktop& desktop_;
  const std::chrono::milliseconds patience_;
};

}  // namespace window_host

#endif  // EXAMPLES_WINDOW_HOST_BROWSER_H_
