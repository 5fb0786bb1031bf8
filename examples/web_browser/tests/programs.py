"""The programs around a test: a virtual display, a window manager, the browser.

Each is a context manager that starts a process and kills it at the end. Nothing
here sleeps: a display says on a descriptor that it is ready, a window manager by
properties of the root window, the browser by a line. TIMEOUT only ends a test that
would wait for ever.
"""

import contextlib
import os
import queue
import select
import shutil
import signal
import subprocess
import tempfile
import threading
import time
from types import TracebackType
from typing import Any, Callable, Dict, Iterator, List, Optional, Protocol, Sequence, Type

import Xlib.display
import Xlib.error
import Xlib.X

TIMEOUT = float(os.environ.get("BROWSER_TEST_TIMEOUT", "60"))

_TWO_MONITORS = os.path.join(os.path.dirname(__file__), "../testing/two_monitors.conf")


class Process:
    """A process that is killed at the end."""

    def __init__(self, argv: Sequence[str], environment: Dict[str, str], **options: Any) -> None:
        self.process = subprocess.Popen(argv, env={**os.environ, **environment}, **options)

    def __enter__(self) -> "Process":
        return self

    def __exit__(
        self,
        kind: Optional[Type[BaseException]],
        error: Optional[BaseException],
        trace: Optional[TracebackType],
    ) -> None:
        self.close()

    def close(self) -> None:
        self.kill()

    def kill(self, how: int = signal.SIGKILL) -> int:
        """Sends a signal, if it still runs, and waits for its end; the exit status."""
        if self.process.poll() is None:
            # One that is stopped would get it only later.
            self.process.send_signal(how)
            self.process.send_signal(signal.SIGCONT)
        return self.process.wait(TIMEOUT)

    def wait(self) -> int:
        """Waits until it ends by itself; the exit status."""
        return self.process.wait(TIMEOUT)

    @contextlib.contextmanager
    def killed_on_failure(self) -> Iterator[None]:
        """For constructors, whose caller gets nothing to close if they fail: what is
        left on a display would be taken for the next test's."""
        try:
            yield
        except BaseException:
            self.kill()
            raise


class Display(Protocol):
    """An X server that programs can be started on."""

    name: str

    @property
    def environment(self) -> Dict[str, str]:
        """What they find it by."""


class PresentDisplay:
    """The X server that this process was started on."""

    def __init__(self) -> None:
        self.name = os.environ.get("DISPLAY", "")
        if not self.name:
            raise OSError("there is no display: $DISPLAY is not set")

    @property
    def environment(self) -> Dict[str, str]:
        return {"DISPLAY": self.name}


def use_keyboard(display: Display) -> None:
    """Presses a key that does nothing, on a display that nobody uses yet.

    A server takes over the layout of the keyboard that is used first, and says that
    the layout has changed. Window managers then give up their keys and take them
    anew: a key that is pressed meanwhile they miss.
    """
    subprocess.run(
        ["xdotool", "key", "Shift_L"], env={**os.environ, **display.environment}, check=True
    )


class Screen(Process):
    """An X server that shows nothing to anybody."""

    def __init__(self, size: str = "1280x1024x24") -> None:
        reader, writer = os.pipe()
        argv = ["Xvfb", "-displayfd", str(writer), "-screen", "0", size, "-nolisten", "tcp", "-noreset"]
        super().__init__(
            argv, {}, pass_fds=[writer], stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL
        )
        os.close(writer)
        with os.fdopen(reader) as said:
            self.name = ":" + said.readline().strip()
        with self.killed_on_failure():
            use_keyboard(self)

    @property
    def environment(self) -> Dict[str, str]:
        return {"DISPLAY": self.name}


class TwoMonitors(Process):
    """An X server with two monitors, the second one at the right of the first."""

    LEFT = (0, 0, 1280, 1024)
    RIGHT = (1280, 0, 1024, 768)

    def __init__(self) -> None:
        self.folder = tempfile.mkdtemp(prefix="torvane-xorg-")
        reader, writer = os.pipe()
        argv = ["Xorg", "-displayfd", str(writer), "-config", _TWO_MONITORS]
        argv += ["-logfile", os.path.join(self.folder, "log"), "-nolisten", "tcp"]
        argv += ["-noreset", "-novtswitch", "-sharevts"]
        super().__init__(
            argv, {}, pass_fds=[writer], stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL
        )
        os.close(writer)
        with os.fdopen(reader) as said:
            self.name = ":" + said.readline().strip()
        self._xrandr("--output", "DUMMY0", "--primary")
        self._xrandr("--addmode", "DUMMY1", "1024x768")
        self.plug_in()

    @property
    def environment(self) -> Dict[str, str]:
        return {"DISPLAY": self.name}

    def plug_in(self) -> None:
        self._xrandr("--output", "DUMMY1", "--mode", "1024x768", "--pos", "1280x0")
        # The server counts it as connected from the next time that somebody asks it to
        # look. Until then programs of GTK, as xfwm4 is, take no notice of it.
        self._xrandr("--query")

    def unplug(self) -> None:
        self._xrandr("--output", "DUMMY1", "--off")

    def close(self) -> None:
        super().close()
        shutil.rmtree(self.folder)

    def _xrandr(self, *words: str) -> None:
        subprocess.run(
            ["xrandr", *words],
            env={**os.environ, **self.environment},
            stdout=subprocess.DEVNULL,
            check=True,
        )


class Bus(Process):
    """A session bus, without which xfwm4 does not start."""

    def __init__(self) -> None:
        reader, writer = os.pipe()
        argv = ["dbus-daemon", "--session", "--nofork", f"--print-address={writer}"]
        super().__init__(argv, {}, pass_fds=[writer], stderr=subprocess.DEVNULL)
        os.close(writer)
        with os.fdopen(reader) as said:
            self.address = said.readline().strip()


OPENBOX = ("openbox", "--sm-disable")
XFWM4 = ("xfwm4", "--compositor=off")


class WindowManager(Process):
    """A window manager that is ready."""

    def __init__(self, screen: Display, *argv: str) -> None:
        display = Xlib.display.Display(screen.name)
        root = display.screen().root
        root.change_attributes(event_mask=Xlib.X.PropertyChangeMask)
        # What appears while a window manager starts it may miss. It takes over the
        # windows that are there, and when it also notices that one goes, it has begun
        # to serve.
        window = root.create_window(0, 0, 1, 1, 0, display.screen().root_depth)
        window.map()
        display.sync()
        self._home = tempfile.mkdtemp(prefix="torvane-home-")
        self._bus = Bus() if argv == XFWM4 else None
        environment = {**screen.environment, "HOME": self._home, "XDG_CONFIG_HOME": self._home}
        environment["NO_AT_BRIDGE"] = "1"
        if self._bus:
            environment["DBUS_SESSION_BUS_ADDRESS"] = self._bus.address
        super().__init__(
            argv or OPENBOX, environment, stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL
        )

        def value(name: str) -> Any:
            found = root.get_full_property(display.intern_atom(name), Xlib.X.AnyPropertyType)
            return found.value if found else []

        def manages() -> bool:
            return window.id in value("_NET_CLIENT_LIST")

        with self.killed_on_failure():
            wait_for_events(
                display, lambda: manages() and value("_NET_WORKAREA"), "a window manager"
            )
            window.destroy()
            wait_for_events(display, lambda: not manages(), "a window manager at work")
        display.close()
        self._screen = screen

    def close(self) -> None:
        super().close()
        if self._bus:
            self._bus.close()
        shutil.rmtree(self._home, ignore_errors=True)

    def hang(self) -> None:
        """Stops it until go_on(), while the X server goes on.

        Now and then a window manager has the X server to itself for a moment. Stopped
        within it, it would keep everybody from the server, so another moment is chosen
        then.
        """
        while True:
            self.process.send_signal(signal.SIGSTOP)
            os.waitid(os.P_PID, self.process.pid, os.WSTOPPED)
            if self._server_answers():
                return
            self.go_on()
            if not self._server_answers():
                raise AssertionError("the display hangs")

    def go_on(self) -> None:
        self.process.send_signal(signal.SIGCONT)

    def _server_answers(self) -> bool:
        ask = ["timeout", "2", "xprop", "-display", self._screen.name, "-root", "_NET_WORKAREA"]
        return subprocess.run(ask, stdout=subprocess.DEVNULL, check=False).returncode == 0


class Compositor(Process):
    """A compositor that is there, without effects."""

    def __init__(self, screen: Screen) -> None:
        display = Xlib.display.Display(screen.name)
        selection = display.intern_atom("_NET_WM_CM_S0")
        display.xfixes_query_version()
        # Tells of its owner.
        display.xfixes_select_selection_input(display.screen().root, selection, 1)
        super().__init__(
            ["picom", "--config", "/dev/null", "--backend", "xrender"],
            screen.environment,
            stdout=subprocess.DEVNULL,
            stderr=subprocess.DEVNULL,
        )
        with self.killed_on_failure():
            wait_for_events(
                display, lambda: display.get_selection_owner(selection), "the compositor"
            )
        display.close()


class Lines:
    """The lines that a process prints, as they come."""

    def __init__(self, file: Any) -> None:
        self._lines: "queue.Queue[Optional[str]]" = queue.Queue()
        threading.Thread(target=self._read, args=(file,), daemon=True).start()

    def next(self) -> Optional[str]:
        """The next line without its end; None after the last."""
        return self._lines.get(timeout=TIMEOUT)

    def _read(self, file: Any) -> None:
        with file:
            for line in file:
                self._lines.put(line.rstrip("\n"))
        self._lines.put(None)


class Host(Process):
    """A program that serves windows, and is ready. say() is what a user types at it."""

    def __init__(self, program: str, arguments: Sequence[str], environment: Dict[str, str]) -> None:
        self.folder = tempfile.mkdtemp(prefix="torvane-browser-")
        self.socket = os.path.join(self.folder, "host.sock")
        with open(os.path.join(self.folder, "records"), "wb") as records:
            super().__init__(
                [program, "--socket", self.socket, *arguments],
                environment,
                stdin=subprocess.PIPE,
                stdout=subprocess.PIPE,
                stderr=records,
                text=True,
            )
        self._lines = Lines(self.process.stdout)
        with self.killed_on_failure():
            self.expect(f"{os.path.basename(program)}: ready at {self.socket}")

    def expect(self, line: Optional[str]) -> None:
        got = self._lines.next()
        if got != line:
            raise AssertionError(f"expected {line!r}, got {got!r}; records: {self.records()}")

    def say(self, line: str) -> None:
        assert self.process.stdin
        self.process.stdin.write(line + "\n")
        self.process.stdin.flush()

    def services(self) -> str:
        """What it offers, as it says itself to whoever does not know it."""
        return subprocess.run(
            [os.environ["RPCCTL"], "--socket", self.socket, "list"],
            check=True,
            stdout=subprocess.PIPE,
            text=True,
        ).stdout

    def records(self) -> str:
        """What it has written on standard error."""
        with open(os.path.join(self.folder, "records"), errors="replace") as records:
            return records.read()

    def close(self) -> None:
        """Ends it, in good order; a sanitizer's report is not."""
        status = self.kill(signal.SIGTERM)
        if self.process.stdin:
            self.process.stdin.close()
        records = self.records()
        shutil.rmtree(self.folder)
        if status != 0:
            raise AssertionError(f"the host ended with {status}: {records}")


class WindowHost(Host):
    """The host whose windows are in memory."""

    def __init__(self, *arguments: str) -> None:
        super().__init__(os.environ["WINDOW_HOST"], arguments, {})


class WebBrowser(Host):
    """The browser on a display."""

    def __init__(self, screen: Display, *arguments: str, **environment: str) -> None:
        own = {
            **screen.environment,
            # No buses, which a machine for tests does not have.
            "NO_AT_BRIDGE": "1",
            "GTK_A11Y": "none",
            "GSETTINGS_BACKEND": "memory",
            **environment,
        }
        super().__init__(os.environ["WEB_BROWSER"], arguments, own)

    def children(self, name: str) -> List[int]:
        """The processes of this name below the browser."""
        found = []
        for pid in filter(str.isdigit, os.listdir("/proc")):
            try:
                with open(f"/proc/{pid}/stat") as stat:
                    # The name may hold spaces, but stands in parentheses.
                    _, _, rest = stat.read().rpartition(")")
                with open(f"/proc/{pid}/cmdline") as cmdline:
                    program = cmdline.read().split("\0")[0]
            except OSError:
                continue
            if int(rest.split()[1]) == self.process.pid and os.path.basename(program) == name:
                found.append(int(pid))
        return sorted(found)


def wait_for_events(
    display: Any, condition: Callable[[], Any], what: str = "", patience: float = TIMEOUT
) -> Any:
    """Waits until a condition holds, looking at each event of the connection.

    Returns what the condition has returned.
    """
    end = time.monotonic() + patience
    while True:
        try:
            result = condition()
        except (Xlib.error.BadWindow, Xlib.error.BadDrawable):
            result = None
        if result:
            return result
        # Reading the state may have brought events along.
        if display.pending_events():
            display.next_event()
            continue
        if not select.select([display], [], [], max(0, end - time.monotonic()))[0]:
            raise AssertionError(f"never came about: {what or condition}")
        while display.pending_events():
            display.next_event()
