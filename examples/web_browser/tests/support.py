"""What the tests share: a display with a window manager, a browser, a client."""

import concurrent.futures
import contextlib
import os
import shutil
import tempfile
import unittest
from typing import Any, Callable, Dict, Iterator, Sequence

import torvane.blocking
from observer import Bounds, Observer
from programs import OPENBOX, TIMEOUT, Screen, WebBrowser, WindowManager
from torvane import Code, RpcError

needs_xfwm4 = unittest.skipIf(shutil.which("xfwm4") is None, "there is no xfwm4")

UNSPECIFIED, USER, CALL, SHUTDOWN = 0, 1, 2, 3


class BrowserTestCase(unittest.TestCase):
    """A display for all tests of the class, and a browser for each test."""

    # Arguments of the browser; how many windows it opens is the first one's.
    arguments: Sequence[str] = ("--windows", "1")
    window_manager: Sequence[str] = OPENBOX
    # Of the browser, beside the test's own.
    environment: Dict[str, str] = {}
    # X pixels for each of the service's.
    scale = 1
    # Seconds that the window manager may take, on a machine with other work.
    patience: float = TIMEOUT / 2

    screen: Any

    @classmethod
    def start_screen(cls) -> Any:
        return Screen()

    @classmethod
    def setUpClass(cls) -> None:
        cls.screen = cls.start_screen()
        cls.addClassCleanup(cls.screen.close)

    def setUp(self) -> None:
        self.start_window_manager()
        self.browser = WebBrowser(
            self.screen,
            "--desktop-timeout",
            str(self.patience),
            *self.arguments,
            GDK_SCALE=str(self.scale),
            **self.environment,
        )
        self.addCleanup(self.browser.close)
        self.observer = Observer(self.screen)
        self.addCleanup(self.observer.close)
        self.client = self.connect()
        self.windows = self.client.windows

    def start_window_manager(self) -> None:
        self.manager = WindowManager(self.screen, *self.window_manager)
        self.addCleanup(self.manager.close)

    def connect(self, **options: Any) -> Any:
        # A call that a browser leaves without reply fails, instead of all tests.
        client = torvane.blocking.connect(self.browser.socket, timeout=TIMEOUT, **options)
        self.addCleanup(client.close)
        return client

    def seen(self, number: int = 1) -> Any:
        return self.observer.window(number)

    def bounds(self, number: int = 1) -> Bounds:
        """As the service says."""
        rect = self.windows.get_bounds(number)
        return (rect.x, rect.y, rect.width, rect.height)

    def set_bounds(self, number: int, bounds: Bounds) -> None:
        names = ("x", "y", "width", "height")
        self.windows.set_bounds(number, bounds=dict(zip(names, bounds)))

    def expect_bounds(self, number: int, bounds: Bounds) -> None:
        """The X server has them, and the service says so."""
        self.assertEqual(self.seen(number).bounds(), self.pixels(bounds))
        self.assertEqual(self.bounds(number), bounds)

    def pixels(self, bounds: Bounds) -> Bounds:
        x, y, width, height = (self.scale * length for length in bounds)
        return (x, y, width, height)

    def work_area(self) -> Bounds:
        """In the service's pixels."""
        x, y, width, height = (length // self.scale for length in self.observer.work_area())
        return (x, y, width, height)

    @contextlib.contextmanager
    def parallel(self) -> Iterator[Callable[..., Any]]:
        """Calls beside the test: start(call, 1, x=2) returns a future. Waits for
        all of them at the end."""
        with concurrent.futures.ThreadPoolExecutor(64) as pool:
            yield pool.submit

    def expect_error(self, code: Code, text: str, call: Any, *args: Any, **fields: Any) -> None:
        """Calls what must fail with this code, and a text that contains `text`."""
        with self.assertRaises(RpcError) as caught:
            call(*args, **fields)
        self.assertEqual(caught.exception.code, code, caught.exception)
        self.assertIn(text, caught.exception.text)


class OneBrowserTestCase(BrowserTestCase):
    """All tests of the class share the browser, whose windows each leaves as usual:
    shown, neither minimized, maximized nor full screen."""

    _first: BrowserTestCase

    @classmethod
    def setUpClass(cls) -> None:
        super().setUpClass()
        first = cls()
        cls.addClassCleanup(first.doCleanups)
        BrowserTestCase.setUp(first)
        cls._first = first

    def setUp(self) -> None:
        for name in ("manager", "browser", "observer", "client", "windows"):
            setattr(self, name, getattr(self._first, name))


class PageTestCase(BrowserTestCase):
    """The window shows a page of the test's, which says what happens by its title."""

    page = "<title>page</title>"
    # So many windows show it.
    windows_of_page = 1

    def setUp(self) -> None:
        folder = tempfile.TemporaryDirectory(prefix="torvane-page-")
        self.addCleanup(folder.cleanup)
        self.path = os.path.join(folder.name, "page.html")
        with open(self.path, "w") as file:
            file.write(f"<!doctype html><meta charset=utf-8>{self.page}")
        self.arguments = (self.path,) * self.windows_of_page
        super().setUp()

    def wait_for_title(self, title: str, number: int = 1, patience: float = TIMEOUT) -> None:
        seen = self.seen(number)
        what = f"the title {title}"
        self.observer.wait_until(lambda: seen.title() == title, what, patience)
