"""Processes that the tests of clients in all languages run: what they print, and hosts.

Nothing here waits for time. TIMEOUT only ends a test that would wait for ever.
"""

import asyncio
import os
import queue
import signal
import subprocess
import threading
from typing import Any, List, Optional, Sequence

TIMEOUT = 60.0


class Lines:
    """The lines that a process prints, as they come."""

    def __init__(self, file: Any) -> None:
        self._lines: "queue.Queue[Optional[str]]" = queue.Queue()
        self._thread = threading.Thread(target=self._read, args=(file,), daemon=True)
        self._thread.start()

    def next(self) -> str:
        """The next line, without its end. Fails where there is none."""
        line = self._lines.get(timeout=TIMEOUT)
        if line is None:
            raise AssertionError("the process has ended its output")
        return line

    def waiting(self) -> bool:
        """Whether next() has a line, or the end, at once."""
        return not self._lines.empty()

    def rest(self) -> List[str]:
        """All lines up to the end."""
        return list(iter(lambda: self._lines.get(timeout=TIMEOUT), None))

    def _read(self, file: Any) -> None:
        with file:
            for line in file:
                self._lines.put(line.rstrip("\n"))
        self._lines.put(None)


class Host:
    """A window_host as a process. say() is what the user types at it. The words before
    its command, prefix, are of a program that becomes it."""

    def __init__(self, path: str, *flags: str, prefix: Sequence[str] = ()) -> None:
        self.path = path
        self._process = subprocess.Popen(
            [*prefix, os.environ["WINDOW_HOST"], "--socket", path, *flags],
            stdin=subprocess.PIPE,
            stdout=subprocess.PIPE,
            stderr=subprocess.DEVNULL,
            text=True,
        )
        self._lines = Lines(self._process.stdout)
        self.expect(f"window_host: ready at {path}")

    @property
    def pid(self) -> int:
        return self._process.pid

    def say(self, line: str) -> None:
        assert self._process.stdin
        self._process.stdin.write(line + "\n")
        self._process.stdin.flush()

    def next(self) -> str:
        """The next line that it prints."""
        return self._lines.next()

    def expect(self, line: str) -> None:
        got = self.next()
        if got != line:
            raise AssertionError(f"expected the host to print {line!r}, got {got!r}")

    async def hears(self, line: str) -> None:
        """expect() without holding up the loop."""
        await asyncio.get_running_loop().run_in_executor(None, self.expect, line)

    def kill(self, how: int = signal.SIGKILL) -> None:
        """Ends the process; returns when it is gone."""
        self._process.send_signal(how)
        self._process.wait(TIMEOUT)
        if self._process.stdin and not self._process.stdin.closed:
            self._process.stdin.close()

    def stop(self) -> None:
        if self._process.poll() is None:
            self.kill(signal.SIGTERM)
