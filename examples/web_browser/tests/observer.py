"""Looks at windows from outside, and plays the user, with code of others.

Nothing here is shared with the browser: python3-xlib reads what the X server says,
xdotool presses keys and buttons.
"""

import contextlib
import dataclasses
import os
import subprocess
import time
from typing import Any, Callable, Dict, Iterable, List, Set, Tuple

import Xlib.display
import Xlib.error
import Xlib.protocol.event
import Xlib.X
import Xlib.Xutil
from programs import TIMEOUT, Display, wait_for_events

WITHDRAWN, NORMAL, ICONIC = 0, 1, 3

Bounds = Tuple[int, int, int, int]


class Observer:
    """The windows of a display. Everything is asked of the server at once."""

    def __init__(self, display: Display) -> None:
        self._environment = display.environment
        self._display = Xlib.display.Display(display.name)
        self._root = self._display.screen().root
        self._root.change_attributes(
            event_mask=Xlib.X.PropertyChangeMask | Xlib.X.SubstructureNotifyMask
        )
        self._known: Dict[int, "Seen"] = {}

    def close(self) -> None:
        # The display may be gone.
        with contextlib.suppress(Xlib.error.ConnectionClosedError):
            self._display.close()

    def window(self, number: int) -> "Seen":
        """The browser's window with this id, also when it is hidden now."""
        if number not in self._known:
            self._known[number] = Seen(self, self._find(f"window-{number}"))
        return self._known[number]

    def client_list(self) -> List[int]:
        """The windows that the window manager manages, by their X ids."""
        return list(self.property(self._root, "_NET_CLIENT_LIST") or [])

    def numbers(self) -> List[int]:
        """The same for those of the browser, by its ids, in order."""
        return sorted(self._numbers_of(self.client_list()))

    def stacking(self) -> List[int]:
        """The windows of the browser, by its ids, the frontmost first."""
        lowest_first = self.property(self._root, "_NET_CLIENT_LIST_STACKING") or []
        return self._numbers_of(reversed(lowest_first))

    def active(self) -> int:
        """The X id of the active window; 0 for none."""
        return int((self.property(self._root, "_NET_ACTIVE_WINDOW") or [0])[0])

    def work_area(self) -> Bounds:
        area = self.property(self._root, "_NET_WORKAREA")
        return (area[0], area[1], area[2], area[3])

    def screen_size(self) -> Bounds:
        geometry = self._root.get_geometry()
        return (0, 0, geometry.width, geometry.height)

    def workspace(self) -> int:
        return int(self.property(self._root, "_NET_CURRENT_DESKTOP")[0])

    def menus(self) -> List[int]:
        """The menus that are open, by their X ids."""
        children = self._root.query_tree().children
        return [child.id for child in children if self._is_menu(child)]

    def menu(self) -> "Seen":
        """The menu that is open."""
        (xid,) = self.menus()
        return Seen(self, self._resource(xid))

    def has_compositor(self) -> bool:
        number = self._display.get_default_screen()
        selection = self._display.intern_atom(f"_NET_WM_CM_S{number}")
        return bool(self._display.get_selection_owner(selection))

    def titles(self) -> List[str]:
        """Of all managed windows."""
        windows = map(self._resource, self.client_list())
        return [self.text(window, "_NET_WM_NAME") for window in windows]

    def wait_until(
        self, condition: Callable[[], Any], what: str = "", patience: float = TIMEOUT
    ) -> Any:
        """Waits until a condition holds that events of the display announce."""
        return wait_for_events(self._display, condition, what, patience)

    def xdotool(self, *words: object) -> None:
        """Plays the user."""
        subprocess.run(
            ["xdotool", *map(str, words)],
            env={**os.environ, **self._environment},
            check=True,
            stdout=subprocess.DEVNULL,
        )

    def key(self, keys: str) -> None:
        self.xdotool("key", "--clearmodifiers", keys)

    def click(self, x: int, y: int, button: int = 1, times: int = 1) -> None:
        self.xdotool("mousemove", x, y, "click", "--repeat", times, button)

    def close_window(self, seen: "Seen") -> None:
        """Asks the window manager to close it, as a task bar does."""
        self.request(seen, "_NET_CLOSE_WINDOW", Xlib.X.CurrentTime, 2)

    def destroy(self, seen: "Seen") -> None:
        """Takes it away, which the X server lets any program do."""
        seen.window.destroy()
        self._display.sync()

    def unmaximize(self, seen: "Seen") -> None:
        """As a user does with the window manager's keys."""
        names = ("_NET_WM_STATE_MAXIMIZED_VERT", "_NET_WM_STATE_MAXIMIZED_HORZ")
        atoms = [self._display.intern_atom(name) for name in names]
        self.request(seen, "_NET_WM_STATE", 0, *atoms, 2)

    def request(self, seen: "Seen", name: str, *data: int) -> None:
        """Sends a client message to the window manager."""
        message = Xlib.protocol.event.ClientMessage(
            window=seen.window,
            client_type=self._display.intern_atom(name),
            data=(32, [*data, *[0] * (5 - len(data))]),
        )
        mask = Xlib.X.SubstructureRedirectMask | Xlib.X.SubstructureNotifyMask
        self._root.send_event(message, event_mask=mask)
        self._display.flush()

    def screen_pixels(self, box: Bounds) -> bytes:
        """What the screen shows there."""
        return self.pixels(self._root, box)

    def wait_until_pixels(self, condition: Callable[[], Any]) -> None:
        """Waits until what is seen is as it should be.

        No event tells of pixels on the screen: it looks again after each round
        trip to the server.
        """
        end = time.monotonic() + TIMEOUT
        while not condition():
            if time.monotonic() > end:
                raise AssertionError(f"never seen: {condition}")

    def property(self, window: Any, name: str) -> Any:
        """The value of a property; None where it is absent."""
        atom = self._display.intern_atom(name)
        found = window.get_full_property(atom, Xlib.X.AnyPropertyType)
        return None if found is None else found.value

    def text(self, window: Any, name: str) -> str:
        value = self.property(window, name)
        return "" if value is None else bytes(value).decode("utf-8")

    def atom_names(self, window: Any, name: str) -> Set[str]:
        return {self._display.get_atom_name(atom) for atom in self.property(window, name) or []}

    def pixels(self, window: Any, box: Bounds) -> bytes:
        """What the screen shows within the window there."""
        x, y, width, height = box
        return bytes(window.get_image(x, y, width, height, Xlib.X.ZPixmap, 0xFFFFFFFF).data)

    def _resource(self, xid: int) -> Any:
        return self._display.create_resource_object("window", xid)

    def _numbers_of(self, xids: Iterable[int]) -> List[int]:
        roles = map(self._role, xids)
        return [int(role[7:]) for role in roles if role.startswith("window-")]

    def _role(self, xid: int) -> str:
        try:
            return self.text(self._resource(xid), "WM_WINDOW_ROLE")
        except Xlib.error.BadWindow:
            return ""

    def _find(self, role: str) -> Any:
        for xid in self.client_list():
            if self._role(xid) == role:
                window = self._resource(xid)
                window.change_attributes(
                    event_mask=Xlib.X.PropertyChangeMask | Xlib.X.StructureNotifyMask
                )
                self._display.sync()
                return window
        raise AssertionError(f"no managed window has the role {role}")

    def _is_menu(self, window: Any) -> bool:
        types = {"_NET_WM_WINDOW_TYPE_POPUP_MENU", "_NET_WM_WINDOW_TYPE_DROPDOWN_MENU"}
        try:
            is_viewable = window.get_attributes().map_state == Xlib.X.IsViewable
            return is_viewable and bool(self.atom_names(window, "_NET_WM_WINDOW_TYPE") & types)
        except Xlib.error.BadWindow:
            return False


@dataclasses.dataclass
class Seen:
    """One window, as the X server has it at each call."""

    observer: Observer
    window: Any

    @property
    def xid(self) -> int:
        return int(self.window.id)

    def wm_state(self) -> int:
        state = self.observer.property(self.window, "WM_STATE")
        return WITHDRAWN if state is None else int(state[0])

    def states(self) -> Set[str]:
        return self.observer.atom_names(self.window, "_NET_WM_STATE")

    def is_viewable(self) -> bool:
        return bool(self.window.get_attributes().map_state == Xlib.X.IsViewable)

    def is_maximized(self) -> bool:
        return {"_NET_WM_STATE_MAXIMIZED_VERT", "_NET_WM_STATE_MAXIMIZED_HORZ"} <= self.states()

    def is_full_screen(self) -> bool:
        return "_NET_WM_STATE_FULLSCREEN" in self.states()

    def is_active(self) -> bool:
        return self.observer.active() == self.xid

    def bounds(self) -> Bounds:
        """In root coordinates."""
        geometry = self.window.get_geometry()
        place = self.window.translate_coords(geometry.root, 0, 0)
        return (-place.x, -place.y, geometry.width, geometry.height)

    def title(self) -> str:
        return self.observer.text(self.window, "_NET_WM_NAME")

    def workspace(self) -> int:
        return int(self.observer.property(self.window, "_NET_WM_DESKTOP")[0])

    def window_types(self) -> Set[str]:
        return self.observer.atom_names(self.window, "_NET_WM_WINDOW_TYPE")

    def takes_focus(self) -> bool:
        hints = self.window.get_wm_hints()
        return bool(hints and hints.input)

    def size_hints(self) -> Any:
        return self.window.get_wm_normal_hints()

    def pixels(self, box: Bounds) -> bytes:
        return self.observer.pixels(self.window, box)

    def exists(self) -> bool:
        try:
            self.window.get_attributes()
        except (Xlib.error.BadWindow, Xlib.error.BadDrawable):
            return False
        return True

    def click(self, x: int, y: int, button: int = 1, times: int = 1) -> None:
        """Clicks that far from its top left corner; twice at once is a double click."""
        left, top, _, _ = self.bounds()
        self.observer.click(left + x, top + y, button, times)
