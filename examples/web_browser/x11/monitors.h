// The monitors of a display and their work areas: what panels leave of them.
//
// A snapshot of now, in X pixels. Monitors come from RandR, panels from the
// struts of the managed windows, which are right for several monitors, where
// the desktop's one _NET_WORKAREA is not. With one monitor that is what the
// window managers go by, and so do we.
//
// Compare snapshots to see whether something has changed: events of a monitor
// that comes or goes are many and repeat themselves.
//
// Sequence: the connection's.

#ifndef EXAMPLES_WEB_BROWSER_X11_MONITORS_H_
#define EXAMPLES_WEB_BROWSER_X11_MONITORS_H_

#include <optional>
#include <string>
#include <vector>

#include "examples/web_browser/x11/pixels.h"

namespace web_browser::x11 {

class Desktop;

// Has the connection told when a monitor comes, goes or changes. Returns the
// type of these events; none where there is no RandR.
std::optional<int> SelectMonitorEvents(const Desktop& desktop);

struct Monitor {
  // As RandR names its output; "screen" where there is no RandR.
  std::string name;
  PixelRect bounds;
  PixelRect work_area;
  bool primary = false;

  bool operator==(const Monitor&) const = default;
};

// The primary one first, the others from left to right and top to bottom. Never
// empty.
std::vector<Monitor> ReadMonitors(const Desktop& desktop);

// The one that shows most of `bounds`; where none shows any, the nearest.
// `monitors` must not be empty.
const Monitor& MonitorOf(const std::vector<Monitor>& monitors,
                         const PixelRect& bounds);

// `bounds` moved, and made smaller where necessary, so that all of it is within
// `area`.
PixelRect PulledInto(const PixelRect& area, const PixelRect& bounds);

}  // namespace web_browser::x11

#endif  // EXAMPLES_WEB_BROWSER_X11_MONITORS_H_
