"""What clients may ask of the service: operations chosen at random, sensible and not.

The same seed chooses the same operations, as long as the same windows are open.
"""

import dataclasses
import random
from typing import Any, Callable, Dict, List, Sequence, Tuple

BUTTONS = ("KIND_CLOSE", "KIND_MINIMIZE", "KIND_MAXIMIZE")
STYLE_FLAGS = ("titled", "closable", "minimizable", "resizable", "full_size_content")

Fields = Dict[str, Any]


@dataclasses.dataclass(frozen=True)
class Operation:
    """A call of a method of rpc.BrowserWindow, or open_window of the directory, which
    names no window."""

    method: str
    window: int = 0
    fields: Fields = dataclasses.field(default_factory=dict)
    # Of close(): what whoever is asked says.
    allowed: bool = True

    def __str__(self) -> str:
        words = [str(self.window)] if self.window else []
        words += [f"{name}={value!r}" for name, value in self.fields.items()]
        if self.method == "close":
            words.append("allowed" if self.allowed else "denied")
        return f"{self.method}({', '.join(words)})"


class Operations:
    """Chooses operations for a screen of this size."""

    def __init__(self, choice: random.Random, width: int, height: int) -> None:
        self._choice = choice
        self._width = width
        self._height = height
        # Each method with how often it is chosen and what makes its fields.
        self._methods: Dict[str, Tuple[int, Callable[[], Fields]]] = {
            "show": (8, dict),
            "hide": (6, dict),
            "activate": (6, dict),
            "deactivate": (6, dict),
            "focus": (4, dict),
            "maximize": (6, dict),
            "minimize": (6, dict),
            "restore": (10, dict),
            "enter_full_screen": (5, dict),
            "exit_full_screen": (5, dict),
            "center_window": (4, dict),
            "set_position": (4, self._position),
            "set_size": (4, self._size),
            "set_bounds": (5, lambda: {"bounds": {**self._position(), **self._size()}}),
            "set_title": (3, self._title),
            "set_window_title_visible": (2, self._switch("visible")),
            "set_window_titlebar_visible": (2, self._switch("visible")),
            "set_window_button_visible": (3, self._button),
            "set_window_style_flags": (4, self._style),
            "set_window_display_policy": (3, self._display_policy),
            "set_window_animation_behavior": (1, self._animation),
            "set_activation_independence_enabled": (4, self._switch("enabled")),
            "set_vibrancy": (1, self._vibrancy),
            "close": (2, dict),
            "open_window": (3, self._new_window),
        }

    @property
    def methods(self) -> List[str]:
        return list(self._methods)

    def next(self, windows: Sequence[int]) -> Operation:
        """One for one of these windows, now and then for one that is not open."""
        weights = [weight for weight, _ in self._methods.values()]
        (method,) = self._choice.choices(self.methods, weights)
        fields = self._methods[method][1]()
        if method == "open_window":
            return Operation(method, fields=fields)
        window = self._choice.choice(windows) if windows and self._chance(0.98) else 999
        return Operation(method, window, fields, allowed=self._chance(0.7))

    def _chance(self, probability: float) -> bool:
        return self._choice.random() < probability

    def _among(self, *choices: Any) -> Any:
        return self._choice.choice(choices)

    def _switch(self, name: str) -> Callable[[], Fields]:
        return lambda: {name: self._chance(0.5)}

    def _some(self, fields: Fields) -> Fields:
        """Now and then without one of them."""
        return {name: value for name, value in fields.items() if self._chance(0.9)}

    def _place(self, length: int) -> int:
        """On the screen, near it, or far away."""
        return self._among(
            self._choice.randrange(length),
            self._choice.randrange(length),
            self._choice.randrange(length // 2),
            self._choice.randrange(-length, 2 * length),
            self._among(-32768, -1, 0, 1, 30000, 1 << 20),
        )

    def _length(self, length: int) -> int:
        return self._among(
            self._choice.randrange(100, length),
            self._choice.randrange(100, length),
            self._choice.randrange(300),
            self._choice.randrange(2 * length),
            self._among(-1, 0, 1, 40000, (1 << 31) - 1),
        )

    def _position(self) -> Fields:
        return self._some({"x": self._place(self._width), "y": self._place(self._height)})

    def _size(self) -> Fields:
        width, height = self._length(self._width), self._length(self._height)
        return self._some({"width": width, "height": height})

    def _title(self) -> Fields:
        titles = ("Inbox", "Grüße, 日本", "", "two\nlines\u202e", "x" * 4096, "x" * 4097)
        return self._some({"title": self._among(*titles)})

    def _button(self) -> Fields:
        kind = self._among(*BUTTONS, *BUTTONS, "KIND_UNSPECIFIED")
        return {"kind": kind, "visible": self._chance(0.5)}

    def _style(self) -> Fields:
        flags = {flag: True for flag in STYLE_FLAGS if self._chance(0.7)}
        return {**flags, "utility": self._chance(0.3)}

    def _display_policy(self) -> Fields:
        policies = ("ONE_WORKSPACE", "ALL_WORKSPACES", "CURRENT_WORKSPACE", "UNSPECIFIED")
        return {"policy": "POLICY_" + self._among(*policies)}

    def _animation(self) -> Fields:
        kinds = ("DEFAULT", "NONE", "DOCUMENT", "UTILITY", "ALERT", "UNSPECIFIED")
        return {"behavior": "BEHAVIOR_" + self._among(*kinds)}

    def _vibrancy(self) -> Fields:
        material = self._among("NONE", "TITLEBAR", "WINDOW", "UNSPECIFIED")
        state = self._among("UNSPECIFIED", "FOLLOWS_WINDOW", "INACTIVE")
        return {"material": "MATERIAL_" + material, "state": "STATE_" + state}

    def _new_window(self) -> Fields:
        bounds = {**self._position(), **self._size()} if self._chance(0.3) else {}
        return {**self._some({"url": self._among("about:blank", "no url")}), **bounds}
