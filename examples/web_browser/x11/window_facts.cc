#include "examples/web_browser/x11/window_facts.h"

#include <vector>

#include "examples/web_browser/x11/atoms.h"
#include "examples/web_browser/x11/desktop.h"
#include "examples/web_browser/x11/properties.h"
#include "examples/web_browser/x11/query.h"
#include "examples/web_browser/x11/xlib.h"

namespace web_browser::x11 {
namespace {

xcb_window_t Number(WindowId window) {
  return static_cast<xcb_window_t>(window);
}

// Each asks when it is made and is read once.

class ManagementQuery {
 public:
  ManagementQuery(const Desktop& desktop, WindowId window)
      : state_(desktop.connection(), window, desktop.atoms().wm_state) {}

  std::optional<Management> Read() {
    const auto state = state_.Numbers();
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

 private:
  PropertyQuery state_;
};

class StatesQuery {
 public:
  StatesQuery(const Desktop& desktop, WindowId window)
      : atoms_(desktop.atoms()),
        names_(desktop.connection(), window, atoms_.net_wm_state) {}

  std::optional<WindowStates> Read() {
    const auto names = names_.Numbers();
    if (!names) {
      return std::nullopt;
    }
    WindowStates states;
    for (const AtomId name : *names) {
      states.maximized_vertically |= name == atoms_.net_wm_state_maximized_vert;
      states.maximized_horizontally |=
          name == atoms_.net_wm_state_maximized_horz;
      states.full_screen |= name == atoms_.net_wm_state_fullscreen;
      states.hidden |= name == atoms_.net_wm_state_hidden;
      states.skip_taskbar |= name == atoms_.net_wm_state_skip_taskbar;
    }
    return states;
  }

 private:
  const Atoms& atoms_;
  PropertyQuery names_;
};

class BoundsQuery {
 public:
  BoundsQuery(const Desktop& desktop, WindowId window)
      : size_(desktop.xcb(),
              xcb_get_geometry(desktop.xcb(), Number(window)),
              &xcb_get_geometry_reply),
        // Of its inner corner. The geometry has that of its border, in the
        // coordinates of the window manager's frame.
        position_(desktop.xcb(),
                  xcb_translate_coordinates(desktop.xcb(),
                                            Number(window),
                                            Number(desktop.root()),
                                            /*x=*/0,
                                            /*y=*/0),
                  &xcb_translate_coordinates_reply) {}

  std::optional<PixelRect> Read() {
    const auto size = size_.Take();
    const auto position = position_.Take();
    if (size == nullptr || position == nullptr) {
      return std::nullopt;
    }
    return PixelRect{position->dst_x, position->dst_y, size->width,
                     size->height};
  }

 private:
  Query<xcb_get_geometry_cookie_t, xcb_get_geometry_reply_t> size_;
  Query<xcb_translate_coordinates_cookie_t, xcb_translate_coordinates_reply_t>
      position_;
};

class OnScreenQuery {
 public:
  OnScreenQuery(const Desktop& desktop, WindowId window)
      : attributes_(desktop.xcb(),
                    xcb_get_window_attributes(desktop.xcb(), Number(window)),
                    &xcb_get_window_attributes_reply) {}

  bool Read() {
    const auto attributes = attributes_.Take();
    return attributes != nullptr &&
           attributes->map_state == XCB_MAP_STATE_VIEWABLE;
  }

 private:
  Query<xcb_get_window_attributes_cookie_t, xcb_get_window_attributes_reply_t>
      attributes_;
};

class FrameQuery {
 public:
  FrameQuery(const Desktop& desktop, WindowId window)
      : widths_(desktop.connection(),
                window,
                desktop.atoms().net_frame_extents) {}

  std::optional<FrameExtents> Read() {
    const auto widths = widths_.Numbers();
    if (!widths || widths->size() != 4) {
      return std::nullopt;
    }
    const auto width = [&](int i) { return static_cast<int>((*widths)[i]); };
    return FrameExtents{width(0), width(1), width(2), width(3)};
  }

 private:
  PropertyQuery widths_;
};

PropertyQuery WorkspaceQuery(const Desktop& desktop, WindowId window) {
  return PropertyQuery(desktop.connection(), window,
                       desktop.atoms().net_wm_desktop);
}

}  // namespace

std::optional<Management> ReadManagement(const Desktop& desktop,
                                         WindowId window) {
  return ManagementQuery(desktop, window).Read();
}

std::optional<WindowStates> ReadStates(const Desktop& desktop,
                                       WindowId window) {
  return StatesQuery(desktop, window).Read();
}

std::optional<PixelRect> ReadBounds(const Desktop& desktop, WindowId window) {
  return BoundsQuery(desktop, window).Read();
}

bool IsOnScreen(const Desktop& desktop, WindowId window) {
  return OnScreenQuery(desktop, window).Read();
}

std::optional<uint32_t> ReadWorkspace(const Desktop& desktop, WindowId window) {
  return WorkspaceQuery(desktop, window).Number();
}

std::optional<PixelRect> ReadOuterBounds(const Desktop& desktop,
                                         WindowId window) {
  BoundsQuery inner(desktop, window);
  FrameQuery around(desktop, window);
  const auto bounds = inner.Read();
  if (!bounds) {
    return std::nullopt;
  }
  const FrameExtents frame = around.Read().value_or(FrameExtents());
  return PixelRect{bounds->x - frame.left, bounds->y - frame.top,
                   bounds->width + frame.left + frame.right,
                   bounds->height + frame.top + frame.bottom};
}

std::optional<WindowFacts> ReadWindow(const Desktop& desktop, WindowId window) {
  ManagementQuery management_query(desktop, window);
  StatesQuery states_query(desktop, window);
  BoundsQuery bounds_query(desktop, window);
  OnScreenQuery on_screen_query(desktop, window);
  FrameQuery frame_query(desktop, window);
  PropertyQuery workspace_query = WorkspaceQuery(desktop, window);
  PropertyQuery active_query(desktop.connection(), desktop.root(),
                             desktop.atoms().net_active_window);
  const auto management = management_query.Read();
  const auto states = states_query.Read();
  const auto bounds = bounds_query.Read();
  if (!management || !states || !bounds) {
    return std::nullopt;
  }
  return WindowFacts{.management = *management,
                     .viewable = on_screen_query.Read(),
                     .states = *states,
                     .bounds = *bounds,
                     .frame = frame_query.Read(),
                     .active_window = active_query.Number().value_or(0),
                     .workspace = workspace_query.Number()};
}

}  // namespace web_browser::x11
