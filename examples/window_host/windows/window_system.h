// The windows of a browser, on whatever desktop they are shown.
//
// On a real desktop the window manager makes a change later, or refuses it, and
// meanwhile the window may vanish. So Open() and Change() only request what
// they are named after and take a completion, and Inspect() returns what was
// confirmed last:
//
//   windows.Open({.url = "https://example.org/"},
//                [](const absl::StatusOr<int64_t>& id) {...});
//   windows.Change(7, WindowAction::kMaximize, [](const absl::Status& status) {
//     ...
//   });
//   windows.Change(7, Close{rpc::WINDOW_CLOSE_REASON_USER}, ...);
//   absl::StatusOr<WindowView> view = windows.Inspect(7);
//
// A completion runs exactly once, as a task of the sequence, never from within
// Open() or Change(). Its status is
//
//   OK                 the change is done, or the window is open, and Inspect()
//                      shows it;
//   NOT_FOUND          "No window 7.": there is no such window, or it went away
//                      before the change was done;
//   DEADLINE_EXCEEDED  the desktop did not confirm the change in time;
//   another error      the change was refused, and the window is as it was, or
//                      there is no new one; the text says why, and names the
//                      window manager if it was the one that refused.
//
// Ownership: the implementation owns the windows. It must outlive the last task
// of the sequence.
//
// Sequence: one, on which everything is used.
//
// Failure: the status of the completion or of Inspect(), as above.

#ifndef EXAMPLES_WINDOW_HOST_WINDOWS_WINDOW_SYSTEM_H_
#define EXAMPLES_WINDOW_HOST_WINDOWS_WINDOW_SYSTEM_H_

#include <cstddef>
#include <cstdint>
#include <optional>
#include <set>
#include <string>
#include <variant>
#include <vector>

#include "absl/functional/any_invocable.h"
#include "absl/status/status.h"
#include "absl/status/statusor.h"
#include "rpc/browser/browser_window.pb.h"

namespace window_host {

// The longest title of a window, in bytes of UTF-8. Titles are sent to clients
// that watch windows, in the events that tell of their opening and closing:
// with this one an event is shorter than the shortest frame that a client may
// choose to take, so no client loses its events by a title that others set.
inline constexpr size_t kMaxTitleBytes = 4096;

// All lengths here are in device-independent pixels.
struct Rect {
  int x = 0;
  int y = 0;
  int width = 0;
  int height = 0;

  bool operator==(const Rect&) const = default;
};

enum class WindowState { kNormal, kMaximized, kFullScreen, kMinimized };

// The state of a window.
struct WindowView {
  int64_t id = 0;
  WindowState state = WindowState::kNormal;
  bool visible = false;
  bool active = false;
  // The page, rather than the browser's own controls, has the keyboard.
  bool page_has_keyboard = false;
  Rect bounds;

  // Properties that a client may set in any state. Nothing else depends on
  // them, except that an independent window is not activated when another one
  // goes.

  // Valid UTF-8 of at most kMaxTitleBytes. Where others than clients set
  // titles, such as pages, the desktop sees to that.
  std::string title;
  bool title_visible = true;
  bool titlebar_visible = true;
  std::set<rpc::WindowButton::Kind> hidden_buttons;
  bool activation_independent = false;
  // The browser_id of these messages is not used.
  rpc::WindowStyleFlags style;
  rpc::BrowserWindowDisplayPolicy display_policy;
  rpc::WindowAnimationBehavior animation;
  rpc::BrowserVibrancy vibrancy;
};

// Changes without parameters. They do what the methods of the same names in
// rpc/browser/browser_window.proto do.
enum class WindowAction {
  kShow,
  kHide,
  kActivate,
  kDeactivate,
  kFocus,
  kMaximize,
  kMinimize,
  kRestore,
  kEnterFullScreen,
  kExitFullScreen,
  kCenter
};

// Members without a value stay as they are.
struct BoundsChange {
  std::optional<int> x = std::nullopt;
  std::optional<int> y = std::nullopt;
  std::optional<int> width = std::nullopt;
  std::optional<int> height = std::nullopt;
};

// Closes the window without asking its client.
struct Close {
  rpc::WindowCloseReason reason = rpc::WINDOW_CLOSE_REASON_UNSPECIFIED;
};

// A message stands for the change that the method with this request makes. Its
// browser_id is not used, since Change() gets the window's id.
using WindowChange = std::variant<WindowAction,
                                  BoundsChange,
                                  Close,
                                  rpc::WindowTitle,
                                  rpc::WindowTitleVisibility,
                                  rpc::WindowTitlebarVisibility,
                                  rpc::WindowButtonVisibility,
                                  rpc::WindowStyleFlags,
                                  rpc::BrowserWindowDisplayPolicy,
                                  rpc::WindowAnimationBehavior,
                                  rpc::ActivationIndependence,
                                  rpc::BrowserVibrancy>;

using Completion = absl::AnyInvocable<void(const absl::Status&)>;

// What a window is opened with.
struct NewWindow {
  // What it is to show. Empty: what the desktop shows in a window that nobody
  // has named a page for. A desktop without pages titles the window with it.
  std::string url = {};

  // Members without a value are the desktop's choice.
  BoundsChange bounds = {};
};

// Gets the id of a window that is open.
using Opened = absl::AnyInvocable<void(const absl::StatusOr<int64_t>&)>;

// Is told what happens to the windows, whoever has caused it. Called from tasks
// of the sequence, never within Open() or Change(). Of the effects of a change,
// and of a new window, it is told before the completion runs.
class WindowObserver {
 public:
  virtual ~WindowObserver() = default;

  // The window is open. `first` is its state by then. Nothing else is said
  // about a window before this.
  virtual void OnWindowOpened(const WindowView& first) = 0;

  // What Inspect() returns for the window may have changed.
  // For hosts with real windows; the example's browser ignores it.
  virtual void OnWindowChanged(int64_t) {}

  // The user or the window manager wants to close the window. It stays open
  // until a change closes it. For desktops of real windows: those of
  // MemoryDesktop have no users who could wish it.
  virtual void OnCloseWish(int64_t id) = 0;

  // The user wants a command executed in the window, or its context menu at
  // that place, in device-independent pixels from its top left corner. For
  // desktops of real windows, as above.
  virtual void OnCommandWish(int64_t, const std::string&) {}
  virtual void OnMenuWish(int64_t, int, int) {}

  // The window is closed. `last` is its state before.
  virtual void OnWindowGone(const WindowView& last,
                            rpc::WindowCloseReason reason) = 0;
};

class WindowSystem {
 public:
  virtual ~WindowSystem() = default;

  // The state of the window, as the desktop has last confirmed it. NOT_FOUND
  // for a window that is not open.
  virtual absl::StatusOr<WindowView> Inspect(int64_t id) const = 0;

  // The open windows, the frontmost first.
  virtual std::vector<int64_t> stacking() const = 0;

  // How many windows are open, or have been requested and may yet open.
  virtual size_t window_count() const = 0;

  // Opens a window, shows and activates it. Its id is greater than those of all
  // windows before.
  virtual void Open(NewWindow window, Opened done) = 0;

  virtual void Change(int64_t id, WindowChange change, Completion done) = 0;

  // Executes a command of the user's, one that Browser knows, in the window;
  // opens the context menu with these commands at that place. Nothing for a
  // window that is not open, nor on a desktop whose windows have no pages.
  virtual void Execute(int64_t, const std::string&) {}
  virtual void OpenMenu(int64_t, int, int, const std::vector<std::string>&) {}

  // Sets the only observer; null for none. The caller owns it and must replace
  // it before destroying it.
  void set_observer(WindowObserver* observer) { observer_ = observer; }

 protected:
  WindowObserver* observer() const { return observer_; }

 private:
  WindowObserver* observer_ = nullptr;
};

// NOT_FOUND with "No window 7."
absl::Status NoWindow(int64_t id);

}  // namespace window_host

#endif  // EXAMPLES_WINDOW_HOST_WINDOWS_WINDOW_SYSTEM_H_
