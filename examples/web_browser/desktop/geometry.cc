#include "examples/web_browser/desktop/geometry.h"

#include <cstdint>
#include <limits>
#include <vector>

#include "absl/strings/str_cat.h"
#include "examples/web_browser/frame/frame.h"
#include "examples/web_browser/x11/monitors.h"

namespace web_browser {

using window_host::Rect;

namespace {

bool IsShort(int length) {
  return std::numeric_limits<int16_t>::min() <= length &&
         length <= std::numeric_limits<int16_t>::max();
}

}  // namespace

x11::PixelRect ToPixels(const Rect& rect, int scale) {
  return x11::ToPixels(x11::DipRect{rect.x, rect.y, rect.width, rect.height},
                       scale);
}

Rect InDips(const x11::PixelRect& rect, int scale) {
  const x11::DipRect dips = x11::ToDips(rect, scale);
  return {dips.x, dips.y, dips.width, dips.height};
}

absl::Status CheckExpressible(const Rect& bounds, int scale) {
  const x11::PixelRect pixels = ToPixels(bounds, scale);
  if (IsShort(pixels.x) && IsShort(pixels.y) && IsShort(pixels.width) &&
      IsShort(pixels.height)) {
    return absl::OkStatus();
  }
  return absl::OutOfRangeError(absl::StrCat(
      "The bounds ", bounds.width, "x", bounds.height, " at ", bounds.x, ",",
      bounds.y, " are more than X11 can express: 32767 pixels."));
}

Rect PulledInto(const Rect& area, const Rect& bounds) {
  return InDips(x11::PulledInto(ToPixels(area, 1), ToPixels(bounds, 1)), 1);
}

Rect MonitorArea(const x11::Desktop& display,
                 const Rect& bounds,
                 AreaKind kind) {
  const int scale = DisplayScale();
  const std::vector<x11::Monitor> monitors = x11::ReadMonitors(display);
  const x11::Monitor& monitor =
      x11::MonitorOf(monitors, ToPixels(bounds, scale));
  return InDips(kind == AreaKind::kWork ? monitor.work_area : monitor.bounds,
                scale);
}

}  // namespace web_browser
