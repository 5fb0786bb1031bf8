"""Runs the suites with one mutant switched on, and says which of them noticed."""

from __future__ import annotations

import concurrent.futures
import os
import pathlib
import resource
import signal
import subprocess
import tempfile
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
    """One program, how long it takes without a mutant, and which of its tests get
    to which mutants."""

    def __init__(self, tree: MutatedTree, name: str) -> None:
        self.name = name
        self._program, self._folder = tree.suite(name)
        self._limit = 300.0
        since = time.monotonic()
        if not self._passes(0):
            raise SuiteFailsAnyway(f"{name} fails without any mutant")
        self._limit = _SLOWER * (time.monotonic() - since) + _SECONDS_MORE
        self._mutants = 1 + max(m.number for file in tree.files for m in file.mutants)
        self._tests = self._list()
        self._reached = [reached(self._program, self._folder, self._mutants, test)
                         for test in self._tests]

    def notices(self, number: int, **environment: str) -> bool:
        """Whether the suite fails, crashes or hangs with this mutant. Only tests
        that get to it are run."""
        tests = [test for test, marks in zip(self._tests, self._reached) if marks[number]]
        return bool(tests) and not self._passes(
            number, f"--gtest_filter={':'.join(tests)}", **environment)

    def _passes(self, number: int, *arguments: str, **environment: str) -> bool:
        return passes([self._program, *arguments], self._folder, self._limit,
                      TORVANE_MUTANT=str(number), **environment)

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


def reached(program: pathlib.Path, folder: pathlib.Path, mutants: int,
            test: str) -> bytes:
    """A byte for each mutant, 1 if the test of this name gets to it."""
    with tempfile.NamedTemporaryFile() as marks:
        marks.truncate(mutants)
        passes([program, f"--gtest_filter={test}"], folder, 300.0,
               TORVANE_MUTANTS_REACHED=marks.name)
        return pathlib.Path(marks.name).read_bytes()


class Suites:
    """The suites of these files. From here on this process and those that it starts
    have limits: of memory, and no core files."""

    def __init__(self, tree: MutatedTree, paths: set[str], jobs: int) -> None:
        resource.setrlimit(resource.RLIMIT_AS, (_MEMORY, _MEMORY))
        resource.setrlimit(resource.RLIMIT_CORE, (0, 0))
        names = sorted({name for path in paths for name in suites.suites_of(path)})
        with concurrent.futures.ThreadPoolExecutor(jobs) as pool:
            made = pool.map(lambda name: Suite(tree, name), names)
        self._by_name = dict(zip(names, made))

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
