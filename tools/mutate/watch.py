"""Runs programs, ends those that hang, and leaves nothing of them behind, however
this process ends itself."""

from __future__ import annotations

import concurrent.futures
import contextlib
import os
import pathlib
import select
import signal
import subprocess
import threading
import time
from collections.abc import Iterator
from typing import Protocol

# Ends the program together with the thread that has started it.
_WITH_US = ["setpriv", "--pdeathsig", "KILL"]
_LOOK_EVERY = 0.25  # Seconds.
_TICKS = os.sysconf("SC_CLK_TCK")

_running: set[int] = set()
_stopped = threading.Event()


class Stopped(Exception):
    """No more programs are to run."""


class Patience(Protocol):
    """How long to wait for a program."""

    def hear(self, printed: bytes) -> bool:
        """The program has printed this. Whether the wait begins anew."""

    def is_over(self, worked: float, idled: float) -> bool:
        """Since the wait began the program and its children have had so many seconds
        of processors. None of them has wanted one for so many seconds."""


def passes(command: list[object], folder: pathlib.Path, patience: Patience,
           **environment: str) -> bool:
    """Whether the program ends without failure before the patience does."""
    if _stopped.is_set():
        raise Stopped()
    process = subprocess.Popen(
        [*_WITH_US, *(str(word) for word in command)], cwd=folder,
        env=os.environ | environment, stdin=subprocess.DEVNULL,
        stdout=subprocess.PIPE, stderr=subprocess.DEVNULL, start_new_session=True)
    _running.add(process.pid)
    try:
        if _stopped.is_set():  # Perhaps before stop() could know of the program.
            raise Stopped()
        status = _await(process, patience)
        if _stopped.is_set():  # It may have been ended by that.
            raise Stopped()
        return status == 0
    finally:
        _end_session(process.pid)
        process.wait()
        _running.discard(process.pid)
        process.stdout.close()


def stop() -> None:
    """Ends all programs that are running. No more begin."""
    _stopped.set()
    for session in list(_running):
        _end_session(session)


@contextlib.contextmanager
def workers(jobs: int) -> Iterator[concurrent.futures.ThreadPoolExecutor]:
    """Threads that run programs. An exception ends these, too."""
    pool = concurrent.futures.ThreadPoolExecutor(jobs)
    try:
        yield pool
    except BaseException:
        stop()
        raise
    finally:
        pool.shutdown(cancel_futures=True)


def _await(process: subprocess.Popen[bytes], patience: Patience) -> int | None:
    """The program's status, None if it hangs."""
    begun: float | None = None  # With so many seconds of processors.
    last, wanted = 0.0, time.monotonic()
    prints = True
    while process.poll() is None:
        if prints and select.select([process.stdout], [], [], _LOOK_EVERY)[0]:
            printed = os.read(process.stdout.fileno(), 1 << 16)
            prints = bool(printed)
            if patience.hear(printed):
                begun, wanted = None, time.monotonic()
            continue
        if not prints:
            with contextlib.suppress(subprocess.TimeoutExpired):
                process.wait(_LOOK_EVERY)
        session = _Session(process.pid)
        begun = session.worked if begun is None else begun
        if session.wants or session.worked > last:
            last, wanted = session.worked, time.monotonic()
        if patience.is_over(session.worked - begun, time.monotonic() - wanted):
            return None
    return process.returncode


class _Session:
    """What the processes of a session have had of the processors, in seconds, and
    whether one of them wants one."""

    def __init__(self, session: int) -> None:
        self.worked = 0.0
        self.wants = False
        for process in _processes_of(session):
            with contextlib.suppress(OSError):
                fields = _fields(process / "stat")
                # Its own time, and that of those that it has waited for.
                self.worked += sum(map(int, fields[11:15])) / _TICKS
                self.wants |= any(_fields(task / "stat")[0] in ("R", "D")
                                  for task in (process / "task").iterdir())


def _processes_of(session: int) -> Iterator[pathlib.Path]:
    for process in pathlib.Path("/proc").glob("[0-9]*"):
        with contextlib.suppress(OSError):
            if int(_fields(process / "stat")[3]) == session:
                yield process


def _fields(stat: pathlib.Path) -> list[str]:
    """Those behind the name of the program, which may hold anything."""
    return stat.read_text().rpartition(")")[2].split()


def _end_session(session: int) -> None:
    """Also those that have a process group of their own."""
    while processes := [p for p in _processes_of(session)
                        if _state(p) not in ("Z", "X", "")]:
        for process in processes:
            with contextlib.suppress(ProcessLookupError):
                os.kill(int(process.name), signal.SIGKILL)


def _state(process: pathlib.Path) -> str:
    try:
        return _fields(process / "stat")[0]
    except OSError:
        return ""
