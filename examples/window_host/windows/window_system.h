// The windows of a browser, on whatever desktop they are shown.
//
// A desktop does not obey at once: its window manager confirms a change later,
// or refuses it, and meanwhile the window may vanish. So a change is a request
// with a completion, and what is read is what was confirmed last:
//
//   windows.Change(7, WindowAction::kMaximize, [](const absl::Status& status) {
//     ...
//   });
//   windows.Change(7, Close{rpc::WINDOW_CLOSE_REASON_USER}, ...);
//   absl::StatusOr<WindowView> view = windows.Inspect(7);
//
// A completion runs exactly once, as a task of the sequence, never from within
// Change(). Its status is
//
//   OK                 the change is done, and Inspect() shows it;
//   NOT_FOUND          "No window 7.": there is no such window, or it went away
//                      before the change was done;
//   DEADLINE_EXCEEDED  the desktop did not confirm the change in time;
//   another error      the change was refused; the text says why, and by whom
//   if
//                      it was the window manager. The window is as it was.
//
// Ownership: the windows are the implementation's. It must outlive the last
// task of the sequence.
//
// Sequence: everything belongs to one.

#ifndef EXAMPLES_WINDOW_HOST_WINDOWS_WINDOW_SYSTEM_H_
#define EXAMPLES_WINDOW_HOST_WINDOWS_WINDOW_SYSTEM_H_

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

// In device-independent pixels, as all lengths here.
struct Rect {
  int x = 0;
  int y = 0;
  int width = 0;
  int height = 0;

  bool operator==(const Rect&) const = default;
};

enum class WindowState { kNormal, kMaximized, kFullScreen, kMinimized };

// How a window is.
struct WindowView {
  int64_t id = 0;
  WindowState state = WindowState::kNormal;
  bool visible = false;
  bool active = false;
  // The page, rather than the browser's own controls, has the keyboard.
  bool page_has_keyboard = false;
  Rect bounds;

  // What a client may set at will. Nothing else depends on it, except that an
  // independent window is not activated in another's place.
  std::string title;
  bool title_visible = true;
  bool titlebar_visible = true;
  std::set<rpc::WindowButton::Kind> hidden_buttons;
  bool activation_independent = false;
  // The windows that these name mean nothing.
  rpc::WindowStyleFlags style;
  rpc::BrowserWindowDisplayPolicy display_policy;
  rpc::WindowAnimationBehavior animation;
  rpc::BrowserVibrancy vibrancy;
};

// Changes that need no more than their name. What they do is what the methods
// of the same names do, in rpc/browser/browser_window.proto.
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

// What is absent stays as it is.
struct BoundsChange {
  std::optional<int> x = std::nullopt;
  std::optional<int> y = std::nullopt;
  std::optional<int> width = std::nullopt;
  std::optional<int> height = std::nullopt;
};

// Closes the window without asking anybody.
struct Close {
  rpc::WindowCloseReason reason = rpc::WINDOW_CLOSE_REASON_UNSPECIFIED;
};

// A message is what the method that takes it is to change. The window that it
// names is ignored: Change() is told which one is meant.
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

// Hears what happens to the windows, whoever made it happen. Each call is a
// task of the sequence, never from within Change(). What a change brings about
// is told before the change completes.
class WindowObserver {
 public:
  virtual ~WindowObserver() = default;

  // What Inspect() says of an open window may have changed, or the window is
  // new.
  virtual void OnWindowChanged(int64_t) {}

  // The user or the window manager wants to close the window. It stays open
  // until a change closes it.
  virtual void OnCloseWish(int64_t id) = 0;

  // The window is gone. `last` says how it was before.
  virtual void OnWindowGone(const WindowView& last,
                            rpc::WindowCloseReason reason) = 0;
};

class WindowSystem {
 public:
  virtual ~WindowSystem() = default;

  // How the window is, as far as the desktop has confirmed it. NOT_FOUND for a
  // window that is not open.
  virtual absl::StatusOr<WindowView> Inspect(int64_t id) const = 0;

  // The open windows, the frontmost first.
  virtual std::vector<int64_t> stacking() const = 0;

  virtual void Change(int64_t id, WindowChange change, Completion done) = 0;

  // There is one observer; null for none. It is the caller's and must stay
  // until another takes its place.
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
