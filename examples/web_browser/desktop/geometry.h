// Between the DIPs of the service and the pixels of the display.
//
// Sequence: any; MonitorArea() the display's.

#ifndef EXAMPLES_WEB_BROWSER_DESKTOP_GEOMETRY_H_
#define EXAMPLES_WEB_BROWSER_DESKTOP_GEOMETRY_H_

#include "absl/status/status.h"
#include "examples/web_browser/x11/desktop.h"
#include "examples/web_browser/x11/pixels.h"
#include "examples/window_host/windows/window_system.h"

namespace web_browser {

x11::PixelRect ToPixels(const window_host::Rect& rect, int scale);
window_host::Rect InDips(const x11::PixelRect& rect, int scale);

// OUT_OF_RANGE for bounds that X11 has no numbers for: it has 16 bits for each.
absl::Status CheckExpressible(const window_host::Rect& bounds, int scale);

// `bounds` moved, and made smaller where necessary, so that `area` holds them.
window_host::Rect PulledInto(const window_host::Rect& area,
                             const window_host::Rect& bounds);

enum class AreaKind {
  // All of the monitor.
  kWhole,
  // Without what panels keep for themselves.
  kWork
};

// The area of the monitor that shows most of `bounds`, as the server says just
// now.
window_host::Rect MonitorArea(const x11::Desktop& display,
                              const window_host::Rect& bounds,
                              AreaKind kind);

}  // namespace web_browser

#endif  // EXAMPLES_WEB_BROWSER_DESKTOP_GEOMETRY_H_
