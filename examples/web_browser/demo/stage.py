"""What the demo plays on: the browser on a display, a client of it, an observer that
shares no code with either, and pictures. Says each thing that happens in a line, and
raises Wrong where it is not as it should be."""

import json
import os
import queue
import subprocess
from typing import Any, Callable, Set, Tuple

import torvane
from observer import Bounds, Observer, Seen
from programs import TIMEOUT, Display
from torvane.contract import MethodKind, snake_case
from torvane.service import WINDOWS


class Wrong(Exception):
    """Something that the demo shows is not so."""


def say(text: str) -> None:
    print(f"==> {text}", flush=True)


def says(who: str, what: str) -> None:
    print(f"  {who + ':':<10}{what}", flush=True)


class Answers:
    """Answers the questions of one method with what answer() returns at the time."""

    def __init__(self, subscribe: Callable[..., Any], *windows: int) -> None:
        self.answer: Callable[[], Any] = lambda: True
        self._asked: "queue.Queue[Any]" = queue.Queue()
        subscribe(*windows, handler=self._handle)

    def answer_with(self, answer: Any) -> None:
        self.answer = lambda: answer

    def next(self) -> Any:
        """Waits for the next question, which is being answered."""
        try:
            return self._asked.get(timeout=TIMEOUT)
        except queue.Empty:
            raise Wrong("the browser does not ask") from None

    def _handle(self, asked: Any) -> Any:
        # Before anybody hears of the question, and says what the next answer is.
        answer = self.answer
        self._asked.put(asked)
        return answer()


class Stage:
    """Everything that a scene needs. The caller owns what it is made of.

    picture() keeps pictures in the folder `pictures`, which is there.
    """

    def __init__(self, display: Display, client: Any, pictures: str) -> None:
        self.windows = client.windows
        self.observer = Observer(display)
        self._display = display
        self._contract = client.contract
        self._pictures = pictures
        self._called: Set[str] = set()

    def call(self, method: str, *window: int, expected: Any = None, **fields: Any) -> None:
        """Calls a unary method by its name in the contract, and checks its answer."""
        words = [method, *map(str, window), *(f"{key}={_text(fields[key])}" for key in fields)]
        answer = _plain(getattr(self.windows, snake_case(method))(*window, **fields))
        says("client", f"{' '.join(words):<74} {'ok' if answer is None else _text(answer)}")
        if answer != expected:
            raise Wrong(f"{method} answered {answer!r} instead of {expected!r}")
        self._called.add(method)

    def refused(self, method: str, window: int, code: torvane.Code, **fields: Any) -> None:
        """Calls a unary method that must fail with this code."""
        try:
            getattr(self.windows, snake_case(method))(window, **fields)
        except torvane.RpcError as error:
            says("client", f"{method} {window}: {error.text}")
            if error.code != code:
                raise
            self._called.add(method)
            return
        raise Wrong(f"{method} of window {window} did not fail")

    def check_all_called(self) -> int:
        """How many unary methods there are, each of which was called."""
        methods = self._contract.service(WINDOWS).methods
        unary = {method.name for method in methods if method.kind == MethodKind.UNARY}
        if missing := sorted(unary - self._called):
            raise Wrong(f"the demo does not show {', '.join(missing)}")
        return len(unary)

    def seen(self, window: int) -> Seen:
        return self.observer.window(window)

    def sees(self, what: str, is_so: bool) -> None:
        """Says what the X server has told the observer, without waiting for it."""
        if not is_so:
            raise Wrong(f"the X server does not have it that {what}")
        says("X server", what)

    def sees_bounds(self, window: int) -> Bounds:
        """That GetBounds says what the X server has."""
        bounds = self.seen(window).bounds()
        self.call("GetBounds", window, expected=dict(zip(("x", "y", "width", "height"), bounds)))
        return bounds

    def comes(self, what: str, condition: Callable[[], Any]) -> None:
        """Waits for what comes by itself, such as the effect of a key."""
        self.observer.wait_until(condition, what)
        says("X server", what)

    def comes_to_be_called(self, window: int, title: str) -> None:
        seen = self.seen(window)
        self.comes(f"window {window} is called {title!r}", lambda: seen.title() == title)

    def shows(self, what: str, condition: Callable[[], bool]) -> None:
        """Waits until the screen's pixels are as they should be."""
        self.observer.wait_until_pixels(condition)
        says("screen", what)

    def presses(self, keys: str) -> None:
        says("user", f"presses {keys}")
        self.observer.key(keys)

    def types(self, text: str) -> None:
        says("user", f"types {text!r}")
        self.observer.xdotool("type", text)

    def clicks(self, window: int, what: str, place: Tuple[int, int], button: int = 1) -> None:
        says("user", f"clicks {what} of window {window}")
        self.seen(window).click(*place, button)

    def wait_until_painted(self, window: int, place: Tuple[int, int], colour: str) -> None:
        """Waits until the screen shows this colour ("#rrggbb") there in the window."""
        left, top, _, _ = self.seen(window).bounds()
        box = (left + place[0], top + place[1], 1, 1)
        wanted = bytes.fromhex(colour[1:])[::-1]
        self.observer.wait_until_pixels(lambda: self.observer.screen_pixels(box)[:3] == wanted)

    def wait_until_menu_is_painted(self) -> None:
        """Waits until the open menu has more than a background."""
        box = self.observer.menu().bounds()
        self.observer.wait_until_pixels(lambda: _colours(self.observer.screen_pixels(box)) > 8)

    def picture(self, name: str) -> None:
        """Keeps what the screen shows now, with few colours, to be small."""
        path = os.path.join(self._pictures, f"{name}.png")
        subprocess.run(
            ["import", "-window", "root", "+dither", "-colors", "64", "-strip", path],
            env={**os.environ, **self._display.environment},
            check=True,
        )
        if _colours_of_file(path) < 8:
            raise Wrong(f"{path} shows next to nothing")
        says("picture", path)


def _plain(answer: Any) -> Any:
    """A message as a dict, without the window that it is about."""
    if not hasattr(answer, "DESCRIPTOR"):
        return answer
    return {
        field.name: _value(field, getattr(answer, field.name))
        for field in answer.DESCRIPTOR.fields
        if field.message_type is None
    }


def _value(field: Any, value: Any) -> Any:
    return field.enum_type.values_by_number[value].name if field.enum_type else value


def _text(value: Any) -> str:
    return json.dumps(value, ensure_ascii=False)


def _colours(pixels: bytes) -> int:
    return len({pixels[at : at + 4] for at in range(0, len(pixels), 4)})


def _colours_of_file(path: str) -> int:
    shown = subprocess.run(
        ["identify", "-format", "%k", path], check=True, stdout=subprocess.PIPE, text=True
    )
    return int(shown.stdout)
