"""A panel at the top and the bottom of a screen, whose place windows leave free."""

from typing import Any

import Xlib.display
import Xlib.X
import Xlib.Xatom
import Xlib.Xutil
from programs import Screen, wait_for_events


class Panel:
    """Keeps so many pixels at both edges of the whole screen for itself."""

    def __init__(self, screen: Screen, top: int, bottom: int) -> None:
        self._display = Xlib.display.Display(screen.name)
        self._root = self._display.screen().root
        geometry = self._root.get_geometry()
        width, height = geometry.width, geometry.height
        window = self._root.create_window(0, 0, width, top, 0, self._display.screen().root_depth)
        window.set_wm_normal_hints(flags=Xlib.Xutil.USPosition | Xlib.Xutil.USSize)
        dock = self._atom("_NET_WM_WINDOW_TYPE_DOCK")
        self._set(window, "_NET_WM_WINDOW_TYPE", Xlib.Xatom.ATOM, dock)
        # Widths at the left, right, top and bottom; then where each begins and ends.
        edges = [0, 0, top, bottom, 0, 0, 0, 0, 0, width - 1, 0, width - 1]
        self._set(window, "_NET_WM_STRUT_PARTIAL", Xlib.Xatom.CARDINAL, *edges)
        self._root.change_attributes(event_mask=Xlib.X.PropertyChangeMask)
        window.map()
        self._display.sync()
        self._free = [0, top, width, height - top - bottom]

    def wait(self) -> None:
        """Waits until the window manager leaves its place free."""
        wait_for_events(self._display, lambda: self._work_area() == self._free, "the panel's place")

    def close(self) -> None:
        self._display.close()

    def _atom(self, name: str) -> int:
        return int(self._display.intern_atom(name))

    def _set(self, window: Any, name: str, kind: int, *values: int) -> None:
        window.change_property(self._atom(name), kind, 32, values)

    def _work_area(self) -> Any:
        area = self._root.get_full_property(self._atom("_NET_WORKAREA"), Xlib.X.AnyPropertyType)
        return list(area.value[:4]) if area else None
