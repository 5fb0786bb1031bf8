// What the server and the window manager say about a window.
//
// Every function asks the server just now, in one round trip; none returns what
// was requested but not confirmed. Errors about windows that are gone are
// caught: such a window is simply without a value.
//
// Sequence: the connection's.

#ifndef EXAMPLES_WEB_BROWSER_X11_WINDOW_FACTS_H_
#define EXAMPLES_WEB_BROWSER_X11_WINDOW_FACTS_H_

#include <cstdint>
#include <optional>

#include "examples/web_browser/x11/pixels.h"
#include "examples/web_browser/x11/x11_types.h"

namespace web_browser::x11 {

class Desktop;

// Stands for all workspaces in the place of one.
inline constexpr uint32_t kAllWorkspaces = 0xFFFFFFFF;

// WM_STATE: what the window manager does with the window.
enum class Management {
  // Not mapped, or not known to a window manager.
  kWithdrawn,
  kNormal,
  kMinimized
};

// _NET_WM_STATE, as far as it matters here.
struct WindowStates {
  bool maximized_vertically = false;
  bool maximized_horizontally = false;
  bool full_screen = false;
  bool hidden = false;
  bool skip_taskbar = false;

  bool maximized() const {
    return maximized_vertically && maximized_horizontally;
  }

  bool operator==(const WindowStates&) const = default;
};

// Widths of what the window manager puts around a window, in pixels.
struct FrameExtents {
  int left = 0;
  int right = 0;
  int top = 0;
  int bottom = 0;

  bool operator==(const FrameExtents&) const = default;
};

struct WindowFacts {
  Management management = Management::kWithdrawn;
  // On the screen; it may be covered by others, or off its edge.
  bool viewable = false;
  WindowStates states;
  // What is inside of the frame, in root coordinates.
  PixelRect bounds;
  // Absent until a window manager has told them.
  std::optional<FrameExtents> frame;
  // The desktop's active window, which this one may be; 0 for none.
  WindowId active_window = 0;
  // Or kAllWorkspaces. Absent until a window manager has told it.
  std::optional<uint32_t> workspace;

  bool operator==(const WindowFacts&) const = default;
};

// Each has no value for a window that is gone.
std::optional<WindowFacts> ReadWindow(const Desktop& desktop, WindowId window);
std::optional<Management> ReadManagement(const Desktop& desktop,
                                         WindowId window);
std::optional<WindowStates> ReadStates(const Desktop& desktop, WindowId window);
std::optional<PixelRect> ReadBounds(const Desktop& desktop, WindowId window);
// With what the window manager puts around the window.
std::optional<PixelRect> ReadOuterBounds(const Desktop& desktop,
                                         WindowId window);
// No value also where no window manager has told it yet.
std::optional<uint32_t> ReadWorkspace(const Desktop& desktop, WindowId window);
bool IsOnScreen(const Desktop& desktop, WindowId window);

}  // namespace web_browser::x11

#endif  // EXAMPLES_WEB_BROWSER_X11_WINDOW_FACTS_H_
