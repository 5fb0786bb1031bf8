// What a window's state follows from, and what the changes of it mean, the same
// on every desktop.
//
//   WindowForm form;
//   absl::StatusOr<ActivationChange> change =
//       ApplyAction(WindowAction::kMaximize, 7, form);
//
// A window is hidden or shown and, independently of that, normal, maximized,
// full screen or minimized. A minimized window remembers that it was full
// screen, a full-screen one that it was maximized, and all of them their normal
// bounds.
//
// Ownership: plain data.
//
// Sequence: any.
//
// Failure: FAILED_PRECONDITION where a hidden window is to be activated,
// INVALID_ARGUMENT for a negative size. The form is then as it was.

#ifndef EXAMPLES_WINDOW_HOST_WINDOWS_WINDOW_FORM_H_
#define EXAMPLES_WINDOW_HOST_WINDOWS_WINDOW_FORM_H_

#include <cstdint>

#include "absl/status/status.h"
#include "absl/status/statusor.h"
#include "examples/window_host/windows/window_system.h"

namespace window_host {

// Smaller sizes are raised to this one, so that the buttons of the title bar
// stay usable.
inline constexpr int kMinimumWidth = 160;
inline constexpr int kMinimumHeight = 120;

struct WindowForm {
  bool shown = true;
  bool minimized = false;
  bool full_screen = false;
  bool maximized = false;
  Rect normal_bounds;

  bool visible() const { return shown && !minimized; }
  WindowState state() const;

  bool operator==(const WindowForm&) const = default;
};

// What a change of a window's form does about the activation.
enum class ActivationChange {
  kNone,
  // The window becomes the active one.
  kTake,
  // If the window is the active one, the next one becomes it.
  kPassOn
};

// Every action but kCenter, which changes nothing here: see Centered(). The id
// is for texts.
absl::StatusOr<ActivationChange> ApplyAction(WindowAction action,
                                             int64_t id,
                                             WindowForm& form);

// Changes the normal bounds, which a window that is maximized, minimized or
// full screen gets when it becomes normal again.
absl::Status ApplyBounds(const BoundsChange& change, WindowForm& form);

// `bounds` in the middle of `area`. The title bar of a window larger than that
// stays within it.
Rect Centered(const Rect& bounds, const Rect& area);

// Where a window opens: each a little further, so that it does not cover the
// title bar of the one before.
Rect FirstBounds(int64_t id, const Rect& work_area);

}  // namespace window_host

#endif  // EXAMPLES_WINDOW_HOST_WINDOWS_WINDOW_FORM_H_
