#include "examples/web_browser/x11/window_facts.h"

#include <vector>

#include "examples/web_browser/x11/atoms.h"
#include "examples/web_browser/x11/desktop.h"
#include "examples/web_browser/x11/error_trap.h"
#include "examples/web_browser/x11/properties.h"
#include "examples/web_browser/x11/xlib.h"

namespace web_browser::x11 {
std::optional<Management> ReadManagement(const Desktop& desktop,
                                         WindowId window) {
  const auto state =
      ReadNumbers(desktop.connection(), window, desktop.atoms().wm_state);
  if (!state) {
    return std::nullopt;
  }
  if (state->empty()) {
    return Management::kWithdrawn;
  }
  switch (state->front()) {
    case NormalState:
      return Management::kNormal;
    case IconicState:
      return Management::kMinimized;
    default:
      return Management::kWithdrawn;
  }
}

std::optional<WindowStates> ReadStates(const Desktop& desktop,
                                       WindowId window) {
  const Atoms& atoms = desktop.atoms();
  const auto names =
      ReadNumbers(desktop.connection(), window, atoms.net_wm_state);
  if (!names) {
    return std::nullopt;
  }
  WindowStates states;
  for (const AtomId name : *names) {
    states.maximized_vertically |= name == atoms.net_wm_state_maximized_vert;
    states.maximized_horizontally |= name == atoms.net_wm_state_maximized_horz;
    states.full_screen |= name == atoms.net_wm_state_fullscreen;
    states.hidden |= name == atoms.net_wm_state_hidden;
    states.skip_taskbar |= name == atoms.net_wm_state_skip_taskbar;
  }
  return states;
}

std::optional<PixelRect> ReadBounds(const Desktop& desktop, WindowId window) {
  ErrorTrap trap(desktop.connection());
  WindowId root = 0;
  int x = 0;
  int y = 0;
  unsigned width = 0;
  unsigned height = 0;
  unsigned border = 0;
  unsigned depth = 0;
  if (XGetGeometry(desktop.connection(), window, &root, &x, &y, &width, &height,
                   &border, &depth) == 0) {
    return std::nullopt;
  }
  WindowId child = 0;
  if (XTranslateCoordinates(desktop.connection(), window, desktop.root(), 0, 0,
                            &x, &y, &child) == 0 ||
      trap.HasCaught()) {
    return std::nullopt;
  }
  return PixelRect{x, y, static_cast<int>(width), static_cast<int>(height)};
}

bool IsOnScreen(const Desktop& desktop, WindowId window) {
  ErrorTrap trap(desktop.connection());
  XWindowAttributes attributes;
  return XGetWindowAttributes(desktop.connection(), window, &attributes) != 0 &&
         attributes.map_state == IsViewable;
}

std::optional<uint32_t> ReadWorkspace(const Desktop& desktop, WindowId window) {
  const auto workspace =
      ReadNumber(desktop.connection(), window, desktop.atoms().net_wm_desktop);
  if (!workspace) {
    return std::nullopt;
  }
  return static_cast<uint32_t>(*workspace);
}

std::optional<FrameExtents> ReadFrame(const Desktop& desktop, WindowId window) {
  const auto widths = ReadNumbers(desktop.connection(), window,
                                  desktop.atoms().net_frame_extents);
  if (!widths || widths->size() != 4) {
    return std::nullopt;
  }
  const auto width = [&](int i) { return static_cast<int>((*widths)[i]); };
  return FrameExtents{width(0), width(1), width(2), width(3)};
}

std::optional<PixelRect> ReadOuterBounds(const Desktop& desktop,
                                         WindowId window) {
  const auto bounds = ReadBounds(desktop, window);
  if (!bounds) {
    return std::nullopt;
  }
  const FrameExtents frame =
      ReadFrame(desktop, window).value_or(FrameExtents());
  return PixelRect{bounds->x - frame.left, bounds->y - frame.top,
                   bounds->width + frame.left + frame.right,
                   bounds->height + frame.top + frame.bottom};
}

std::optional<WindowFacts> ReadWindow(const Desktop& desktop, WindowId window) {
  const auto management = ReadManagement(desktop, window);
  const auto states = ReadStates(desktop, window);
  const auto bounds = ReadBounds(desktop, window);
  if (!management || !states || !bounds) {
    return std::nullopt;
  }
  return WindowFacts{.management = *management,
                     .viewable = IsOnScreen(desktop, window),
                     .states = *states,
                     .bounds = *bounds,
                     .frame = ReadFrame(desktop, window),
                     .active = desktop.ActiveWindow() == window,
                     .workspace = ReadWorkspace(desktop, window)};
}

}  // namespace web_browser::x11
