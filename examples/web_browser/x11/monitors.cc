#include "examples/web_browser/x11/monitors.h"

#include <algorithm>
#include <cstdint>
#include <memory>
#include <optional>
#include <tuple>

#include "examples/web_browser/x11/atoms.h"
#include "examples/web_browser/x11/desktop.h"
#include "examples/web_browser/x11/properties.h"
#include "examples/web_browser/x11/xlib.h"

namespace web_browser::x11 {
namespace {

// What a panel keeps for itself, by the edge of the root window that it is at.
std::vector<PixelRect> ReadStruts(const Desktop& desktop,
                                  WindowId window,
                                  const PixelRect& root) {
  PropertyQuery strut_query(desktop.connection(), window,
                            desktop.atoms().net_wm_strut_partial);
  PropertyQuery older_query(desktop.connection(), window,
                            desktop.atoms().net_wm_strut);
  auto strut = strut_query.Numbers();
  if (strut && strut->size() != 12) {
    // The older property has no ends: the whole edge.
    strut = older_query.Numbers();
  }
  if (!strut || strut->size() < 4) {
    return {};
  }
  const auto number = [&](size_t i) { return static_cast<int>((*strut)[i]); };
  // Where along its edge it begins, and how long it is.
  const auto range = [&](size_t edge, int whole) {
    if (strut->size() < 12) {
      return std::pair(0, whole);
    }
    const int begin = number(4 + 2 * edge);
    return std::pair(begin, number(5 + 2 * edge) - begin + 1);
  };
  std::vector<PixelRect> rects;
  const auto add = [&](const PixelRect& rect) {
    if (!rect.is_empty()) {
      rects.push_back(rect);
    }
  };
  const auto [left_y, left_length] = range(0, root.height);
  add({0, left_y, number(0), left_length});
  const auto [right_y, right_length] = range(1, root.height);
  add({root.width - number(1), right_y, number(1), right_length});
  const auto [top_x, top_length] = range(2, root.width);
  add({top_x, 0, top_length, number(2)});
  const auto [bottom_x, bottom_length] = range(3, root.width);
  add({bottom_x, root.height - number(3), bottom_length, number(3)});
  return rects;
}

// `area` without a panel at one of its edges. A panel that spans all of it is
// on another monitor, to whose edge it is counted from.
PixelRect WithoutStrut(const PixelRect& area, const PixelRect& strut) {
  const PixelRect taken = Intersect(area, strut);
  if (taken.is_empty()) {
    return area;
  }
  PixelRect left = area;
  if (strut.width < strut.height) {
    left.width -= taken.width;
    left.x += taken.x == area.x ? taken.width : 0;
  } else {
    left.height -= taken.height;
    left.y += taken.y == area.y ? taken.height : 0;
  }
  return left.is_empty() ? area : left;
}

std::vector<Monitor> ReadBounds(const Desktop& desktop, const PixelRect& root) {
  int event_base = 0;
  int error_base = 0;
  int count = 0;
  std::vector<Monitor> monitors;
  if (XRRQueryExtension(desktop.connection(), &event_base, &error_base) != 0) {
    const std::unique_ptr<XRRMonitorInfo, decltype(&XRRFreeMonitors)> infos(
        XRRGetMonitors(desktop.connection(), desktop.root(),
                       /*get_active=*/1, &count),
        &XRRFreeMonitors);
    for (const XRRMonitorInfo* info = infos.get(); info < infos.get() + count;
         ++info) {
      const std::unique_ptr<char, decltype(&XFree)> name(
          XGetAtomName(desktop.connection(), info->name), &XFree);
      monitors.push_back(
          {.name = name ? name.get() : "",
           .bounds = {info->x, info->y, info->width, info->height},
           .work_area = {},
           .primary = info->primary != 0});
    }
  }
  if (monitors.empty()) {
    monitors.push_back(
        {.name = "screen", .bounds = root, .work_area = {}, .primary = true});
  }
  std::sort(monitors.begin(), monitors.end(),
            [](const Monitor& one, const Monitor& other) {
              return std::tuple(!one.primary, one.bounds.x, one.bounds.y) <
                     std::tuple(!other.primary, other.bounds.x, other.bounds.y);
            });
  return monitors;
}

// The work area of the current workspace, which is one for all monitors.
std::optional<PixelRect> ReadWorkArea(const Desktop& desktop) {
  PropertyQuery areas_query(desktop.connection(), desktop.root(),
                            desktop.atoms().net_workarea);
  PropertyQuery workspace_query(desktop.connection(), desktop.root(),
                                desktop.atoms().net_current_desktop);
  const auto areas = areas_query.Numbers();
  const size_t first = size_t{4} * workspace_query.Number().value_or(0);
  if (!areas || areas->size() < first + 4) {
    return std::nullopt;
  }
  const auto number = [&](size_t i) {
    return static_cast<int>((*areas)[first + i]);
  };
  return PixelRect{number(0), number(1), number(2), number(3)};
}

int64_t Area(const PixelRect& rect) {
  return int64_t{rect.width} * rect.height;
}

// How far it is from one to the other, squared; 0 if they touch.
int64_t Distance(const PixelRect& one, const PixelRect& other) {
  const int64_t x = std::max({0, one.x - other.right(), other.x - one.right()});
  const int64_t y =
      std::max({0, one.y - other.bottom(), other.y - one.bottom()});
  return x * x + y * y;
}

}  // namespace

std::optional<int> SelectMonitorEvents(const Desktop& desktop) {
  int event_base = 0;
  int error_base = 0;
  if (XRRQueryExtension(desktop.connection(), &event_base, &error_base) == 0) {
    return std::nullopt;
  }
  // What toolkits select, too: the selection is one for the whole connection.
  XRRSelectInput(desktop.connection(), desktop.root(),
                 RRScreenChangeNotifyMask | RRCrtcChangeNotifyMask |
                     RROutputPropertyNotifyMask);
  return event_base + RRScreenChangeNotify;
}

std::vector<Monitor> ReadMonitors(const Desktop& desktop) {
  WindowId ignored = 0;
  PixelRect root;
  unsigned width = 0;
  unsigned height = 0;
  unsigned border = 0;
  unsigned depth = 0;
  XGetGeometry(desktop.connection(), desktop.root(), &ignored, &root.x, &root.y,
               &width, &height, &border, &depth);
  root.width = static_cast<int>(width);
  root.height = static_cast<int>(height);

  std::vector<Monitor> monitors = ReadBounds(desktop, root);
  for (Monitor& monitor : monitors) {
    monitor.work_area = monitor.bounds;
  }
  if (monitors.size() == 1) {
    const PixelRect area = Intersect(
        monitors[0].bounds, ReadWorkArea(desktop).value_or(monitors[0].bounds));
    if (!area.is_empty()) {
      monitors[0].work_area = area;
    }
    return monitors;
  }
  const auto windows = PropertyQuery(desktop.connection(), desktop.root(),
                                     desktop.atoms().net_client_list)
                           .Numbers();
  for (const WindowId window : windows.value_or(std::vector<uint32_t>())) {
    for (const PixelRect& strut : ReadStruts(desktop, window, root)) {
      for (Monitor& monitor : monitors) {
        monitor.work_area = WithoutStrut(monitor.work_area, strut);
      }
    }
  }
  return monitors;
}

const Monitor& MonitorOf(const std::vector<Monitor>& monitors,
                         const PixelRect& bounds) {
  return *std::max_element(monitors.begin(), monitors.end(),
                           [&](const Monitor& one, const Monitor& other) {
                             const auto rank = [&](const Monitor& monitor) {
                               return std::pair(
                                   Area(Intersect(monitor.bounds, bounds)),
                                   -Distance(monitor.bounds, bounds));
                             };
                             return rank(one) < rank(other);
                           });
}

PixelRect PulledInto(const PixelRect& area, const PixelRect& bounds) {
  PixelRect pulled = bounds;
  pulled.width = std::min(bounds.width, area.width);
  pulled.height = std::min(bounds.height, area.height);
  pulled.x = std::clamp(bounds.x, area.x, area.right() - pulled.width);
  pulled.y = std::clamp(bounds.y, area.y, area.bottom() - pulled.height);
  return pulled;
}

}  // namespace web_browser::x11
