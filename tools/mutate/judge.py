"""Runs the suites with one mutant switched on, and says which of them noticed."""

from __future__ import annotations

import pathlib
import re
import resource
import subprocess
import tempfile
import time

import suites
import watch
from build import MutatedTree

# A test hangs that works, or waits while nothing of it wants to run, for this many
# times as long as it takes by itself without a mutant, and so many seconds more.
# Other work of the machine counts for neither.
_SLOWER = 5
_SECONDS_MORE = 1

# For a program of which is not known how long it takes.
_LONG = 100.0

# No suite needs as much; a mutant that allocates without end must not take the
# machine along.
_MEMORY = 4 << 30

# Model tests and random ones take the same steps each time. Freed memory is
# overwritten, so that reading it shows.
_ENVIRONMENT = {"MODEL_SEED": "1", "TORVANE_TEST_SEED": "1", "GTEST_FAIL_FAST": "1",
                "MALLOC_PERTURB_": "165"}

_BEGINS = re.compile(rb"^\[ RUN      \] (\S+)", re.MULTILINE)


class SuiteFailsAnyway(Exception):
    pass


class Suite:
    """One program, and of each of its tests how long it takes without a mutant, and
    which mutants it gets to."""

    def __init__(self, tree: MutatedTree, name: str) -> None:
        self.name = name
        self._program, self._folder = tree.suite(name)
        if not passes([self._program], self._folder):
            raise SuiteFailsAnyway(f"{name} fails without any mutant")
        mutants = 1 + max(m.number for file in tree.files for m in file.mutants)
        self._seconds: dict[str, float] = {}
        self._reached: dict[str, bytes] = {}
        for test in self._list():
            since = time.monotonic()
            self._reached[test] = reached(self._program, self._folder, mutants, test)
            self._seconds[test] = time.monotonic() - since

    def notices(self, number: int, **environment: str) -> bool:
        """Whether the suite fails, crashes or hangs with this mutant. Only tests
        that get to it are run."""
        tests = [test for test, marks in self._reached.items() if marks[number]]
        return bool(tests) and not watch.passes(
            [self._program, f"--gtest_filter={':'.join(tests)}"], self._folder,
            TestByTest(self._seconds), TORVANE_MUTANT=str(number),
            **_ENVIRONMENT, **environment)

    def _list(self) -> list[str]:
        listed = subprocess.run([self._program, "--gtest_list_tests"], check=True,
                                capture_output=True, text=True).stdout
        tests, group = [], ""
        for line in listed.splitlines():
            name = line.partition("#")[0].rstrip()
            if name.endswith("."):
                group = name
            elif name.startswith("  "):
                tests.append(group + name.strip())
        return tests


class TestByTest:
    """The patience for a suite: each of its tests has its own."""

    def __init__(self, seconds: dict[str, float]) -> None:
        self._seconds = seconds
        self._usual = 0.0

    def hear(self, printed: bytes) -> bool:
        begun = _BEGINS.findall(printed)
        if begun:
            self._usual = self._seconds.get(begun[-1].decode(), 0.0)
        return bool(begun)

    def is_over(self, worked: float, idled: float) -> bool:
        return max(worked, idled) > _SLOWER * self._usual + _SECONDS_MORE


class Long:
    """The patience for anything else."""

    def hear(self, printed: bytes) -> bool:
        return False

    def is_over(self, worked: float, idled: float) -> bool:
        return max(worked, idled) > _LONG


def passes(command: list[object], folder: pathlib.Path, **environment: str) -> bool:
    """Whether a program passes of which is not known how long it takes."""
    return watch.passes(command, folder, Long(), **_ENVIRONMENT, **environment)


def reached(program: pathlib.Path, folder: pathlib.Path, mutants: int,
            test: str) -> bytes:
    """A byte for each mutant, 1 if the test of this name gets to it."""
    with tempfile.NamedTemporaryFile() as marks:
        marks.truncate(mutants)
        passes([program, f"--gtest_filter={test}"], folder,
               TORVANE_MUTANTS_REACHED=marks.name)
        return pathlib.Path(marks.name).read_bytes()


class Suites:
    """The suites of these files. From here on this process and those that it starts
    have limits: of memory, and no core files."""

    def __init__(self, tree: MutatedTree, paths: set[str], jobs: int) -> None:
        resource.setrlimit(resource.RLIMIT_AS, (_MEMORY, _MEMORY))
        resource.setrlimit(resource.RLIMIT_CORE, (0, 0))
        names = sorted({name for path in paths for name in suites.suites_of(path)})
        with watch.workers(jobs) as pool:
            self._by_name = dict(zip(names, pool.map(lambda name: Suite(tree, name),
                                                     names)))

    def who_notices(self, path: str, number: int) -> str:
        """The first suite of the file that notices, or ""."""
        for name in suites.suites_of(path):
            if self._by_name[name].notices(number):
                return name
        return ""

    def __getitem__(self, name: str) -> Suite:
        return self._by_name[name]
