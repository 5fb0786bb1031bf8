"""Runs the suites with one mutant switched on, and says which of them noticed."""

from __future__ import annotations

import os
import pathlib
import resource
import signal
import subprocess
import time

import suites
from build import MutatedTree

# A suite that takes this much longer than it does without a mutant, and so much
# more, is taken to hang. Wide, since the machine may have other work.
_SLOWER = 20
_SECONDS_MORE = 20

# No suite needs as much; a mutant that allocates without end must not take the
# machine along.
_MEMORY = 4 << 30

# Model tests and random ones take the same steps each time. Freed memory is
# overwritten, so that reading it shows.
_ENVIRONMENT = {"MODEL_SEED": "1", "TORVANE_TEST_SEED": "1", "GTEST_FAIL_FAST": "1",
                "MALLOC_PERTURB_": "165"}


class SuiteFailsAnyway(Exception):
    pass


class Suite:
    """One program, and how long it takes without a mutant."""

    def __init__(self, tree: MutatedTree, name: str) -> None:
        self.name = name
        self._program, self._folder = tree.suite(name)
        self._limit = 300.0
        since = time.monotonic()
        if self.notices(0):
            raise SuiteFailsAnyway(f"{name} fails without any mutant")
        self.seconds = time.monotonic() - since
        self._limit = _SLOWER * self.seconds + _SECONDS_MORE

    def notices(self, number: int, *arguments: str, **environment: str) -> bool:
        """Whether the suite fails, crashes or hangs with this mutant."""
        return not passes([self._program, *arguments], self._folder, self._limit,
                          TORVANE_MUTANT=str(number), **environment)


class Suites:
    """All suites. From here on this process and those that it starts have limits:
    of memory, and no core files."""

    def __init__(self, tree: MutatedTree) -> None:
        resource.setrlimit(resource.RLIMIT_AS, (_MEMORY, _MEMORY))
        resource.setrlimit(resource.RLIMIT_CORE, (0, 0))
        self._by_name = {name: Suite(tree, name) for name in suites.all_suites()}

    def who_notices(self, path: str, number: int) -> str:
        """The first suite of the file that notices, or ""."""
        for name in suites.suites_of(path):
            if self._by_name[name].notices(number):
                return name
        return ""

    def __getitem__(self, name: str) -> Suite:
        return self._by_name[name]


def passes(command: list[object], folder: pathlib.Path, limit: float,
           **environment: str) -> bool:
    """Whether the program ends in time and without failure. Ends it, and what it
    has started, where it does not."""
    process = subprocess.Popen(
        [str(word) for word in command], cwd=folder,
        env=os.environ | _ENVIRONMENT | environment, stdin=subprocess.DEVNULL,
        stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL,
        start_new_session=True)
    try:
        return process.wait(limit) == 0
    except subprocess.TimeoutExpired:
        return False
    finally:
        try:
            os.killpg(process.pid, signal.SIGKILL)
        except ProcessLookupError:
            pass
        process.wait()
