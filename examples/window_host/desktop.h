// A desktop with one display, kept in memory.
//
// It lets the example host behave towards its clients as a window manager
// would, without a screen: states, bounds, stacking and activation depend on
// each other here as they do there.
//
//   Desktop desktop(Display{});
//   int64_t id = desktop.Open();
//   absl::Status status = desktop.Maximize(id);
//   absl::StatusOr<WindowView> view = desktop.Inspect(id);
//
// A window is hidden or shown and, independently of that, normal, maximized,
// full screen or minimized. A minimized window remembers that it was full
// screen, a full-screen one that it was maximized, and all of them their normal
// bounds. At most one window is active; it is shown and not minimized. When it
// goes away, the next such window in stacking order takes its place, unless its
// activation is independent.
//
// Ownership: the desktop owns its windows. Pointers to a window's look are good
// until the window closes.
//
// Sequence: any one at a time; nothing is locked.
//
// Failure: NOT_FOUND with "No window 7." for an id that is not open; then and
// at any other error the desktop is left as it was.

#ifndef EXAMPLES_WINDOW_HOST_DESKTOP_H_
#define EXAMPLES_WINDOW_HOST_DESKTOP_H_

#include <cstdint>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <vector>

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

struct Display {
  Rect bounds = {0, 0, 1920, 1080};
  // What the desktop's own bars leave free.
  Rect work_area = {0, 32, 1920, 1000};
};

// A title bar with its buttons stays usable at this size.
inline constexpr int kMinimumWidth = 160;
inline constexpr int kMinimumHeight = 120;

enum class WindowState { kNormal, kMaximized, kFullScreen, kMinimized };

// What depends on other windows or on the display.
struct WindowView {
  int64_t id = 0;
  WindowState state = WindowState::kNormal;
  bool visible = false;
  bool active = false;
  // The page, rather than the browser's own controls, has the keyboard.
  bool page_has_keyboard = false;
  Rect bounds;
};

// What a client may set at will: nothing else depends on it, except that an
// independent window is not activated in another's place.
struct WindowLook {
  std::string title;
  bool title_visible = true;
  bool titlebar_visible = true;
  std::set<rpc::WindowButton::Kind> hidden_buttons;
  bool activation_independent = false;
  // The window that these name is left empty.
  rpc::WindowStyleFlags style;
  rpc::BrowserWindowDisplayPolicy display_policy;
  rpc::WindowAnimationBehavior animation;
  rpc::BrowserVibrancy vibrancy;
};

// New bounds; what is absent stays as it is.
struct BoundsChange {
  std::optional<int> x = std::nullopt;
  std::optional<int> y = std::nullopt;
  std::optional<int> width = std::nullopt;
  std::optional<int> height = std::nullopt;
};

class Desktop {
 public:
  explicit Desktop(const Display& display);

  // Opens a window, shows and activates it. Ids begin with 1 and are not used
  // again.
  int64_t Open();
  absl::Status Close(int64_t id);

  absl::Status Show(int64_t id);
  absl::Status Hide(int64_t id);

  // FAILED_PRECONDITION for a hidden window.
  absl::Status Activate(int64_t id);
  absl::Status Focus(int64_t id);
  absl::Status Deactivate(int64_t id);

  // A shown window that these bring back from being minimized becomes active.
  absl::Status Maximize(int64_t id);
  absl::Status EnterFullScreen(int64_t id);
  absl::Status Restore(int64_t id);

  absl::Status ExitFullScreen(int64_t id);
  absl::Status Minimize(int64_t id);

  // Change the normal bounds; a window that is not normal gets them when it
  // becomes so. Sizes below the minimum are raised to it, negative ones are an
  // INVALID_ARGUMENT.
  absl::Status SetBounds(int64_t id, const BoundsChange& change);
  absl::Status Center(int64_t id);

  absl::StatusOr<WindowView> Inspect(int64_t id) const;
  absl::StatusOr<WindowLook*> Look(int64_t id);

  // The open windows, the frontmost first.
  const std::vector<int64_t>& stacking() const { return stacking_; }

 private:
  struct Window {
    bool shown = true;
    bool minimized = false;
    bool full_screen = false;
    bool maximized = false;
    Rect normal_bounds;
    WindowLook look;

    bool visible() const { return shown && !minimized; }
    WindowState state() const;
  };

  // Null for an id that is not open.
  Window* Find(int64_t id);
  void MakeActive(int64_t id);
  void BringBack(int64_t id, Window& window);
  void PassActivationOn(int64_t id);

  const Display display_;
  std::map<int64_t, Window> windows_;
  std::vector<int64_t> stacking_;
  int64_t last_id_ = 0;
  // Zero where there is none.
  int64_t active_ = 0;
  bool page_has_keyboard_ = false;
};

}  // namespace window_host

#endif  // EXAMPLES_WINDOW_HOST_DESKTOP_H_
