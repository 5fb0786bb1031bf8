"""Where an attack is played: a host, an innocent client, and what they show."""

from __future__ import annotations

import dataclasses
import pathlib
import time
from typing import Callable, Iterable, Iterator

from google.protobuf.message import DecodeError
from host import Host, Limits
from innocent import WINDOW, Innocent, Report
from messages import Refused
from wire import Connection, Ended, Silence

# What an innocent client may have to wait while others attack, in seconds.
# scripts/bench measures by these goals on a quiet machine. Here a wait counts
# only beyond Rules.slack times the goal: that finds stalls of seconds, and
# nothing else, since a machine that runs tests has other work as well.
WAIT_GOAL = 0.050
FLOOD_P99_GOAL = 0.010
STOP_GOAL = 1.0

KIB = 1 << 10
MIB = 1 << 20


@dataclasses.dataclass(frozen=True)
class Rules:
    """How strictly figures are judged."""

    # How many times a goal a wait may take.
    slack: float

    # Whether memory says anything: not where a sanitizer keeps what is freed.
    memory: bool


@dataclasses.dataclass(frozen=True)
class Finding:
    """One thing that an attack shows."""

    text: str  # With the figure and its goal.
    held: bool


@dataclasses.dataclass(frozen=True)
class Arena:
    """What an attack gets."""

    host: Host
    innocent: Innocent
    limits: Limits
    rules: Rules

    def connect(self, name: str = "attacker", **options: int) -> Connection:
        return Connection(self.host.path, name, **options)

    def waited(self, what: str, seconds: float, goal: float) -> Finding:
        """Judges a time by its goal, and lets the machine be slow."""
        most = goal * self.rules.slack
        return Finding(f"{what} {show_time(seconds)} (goal {show_time(goal)}, "
                       f"fails beyond {show_time(most)})", seconds <= most)

    def grown(self, what: str, size: float, most: float) -> Finding:
        """Judges how much memory something costs."""
        if not self.rules.memory:
            return Finding(f"{what} not measured", True)
        return Finding(f"{what} {show_size(size)} (at most {show_size(most)})",
                       size <= most)


@dataclasses.dataclass(frozen=True)
class Attack:
    """One attack.

    `play` returns what it shows besides what the innocent client has seen,
    which is judged in any case.
    """

    name: str
    what: str  # The first line of its documentation.
    play: Callable[[Arena], Iterable[Finding]]
    flags: tuple[str, ...]  # Of the host.
    stops_host: bool


ATTACKS: dict[str, Attack] = {}


def attack(*flags: str, stops_host: bool = False) -> Callable:
    """Makes an attack of a function, which gets its name and description."""

    def add(play: Callable[[Arena], Iterable[Finding]]) -> Callable:
        what = (play.__doc__ or "").partition("\n")[0].rstrip(".")
        ATTACKS[play.__name__] = Attack(play.__name__, what, play, flags,
                                        stops_host)
        return play

    return add


def show_time(seconds: float) -> str:
    return f"{seconds:.3g} s" if seconds >= 1 else f"{seconds * 1e3:.3g} ms"


def show_size(size: float) -> str:
    unit, name = (MIB, "MiB") if abs(size) >= MIB else (KIB, "KiB")
    return f"{size / unit:.3g} {name}"


# What an attack meets if the host is gone, hangs, or says something else.
FAILURES = (Ended, Silence, Refused, DecodeError, OSError)


def check(what: str, held: bool) -> Finding:
    return Finding(what if held else f"NOT: {what}", held)


def run(chosen: Attack, program: pathlib.Path, rules: Rules) -> list[Finding]:
    """Plays an attack against a host of its own; returns what it has shown."""
    findings: list[Finding] = []
    try:
        with (Host(program, *chosen.flags) as host,
              Innocent(host.path) as innocent):
            arena = Arena(host, innocent, Limits(program), rules)
            try:
                findings.extend(play(chosen, arena))
            except FAILURES as error:
                findings.append(Finding(str(error), False))
            findings.extend(ended_well(host))
    except Silence as error:
        findings.append(Finding(str(error), False))
    return findings


def play(chosen: Attack, arena: Arena) -> Iterator[Finding]:
    yield from chosen.play(arena)
    if not chosen.stops_host:
        yield from innocent_lost_nothing(arena)


def ended_well(host: Host) -> Iterator[Finding]:
    """Lets the host stop, if it still runs. It must end without a fault.

    That is also when a sanitizer reports memory that was not freed.
    """
    try:
        if host.is_running:
            host.stop()
    except Silence as error:
        yield Finding(str(error), False)
        return
    if host.process.returncode != 0:
        yield Finding(f"the host has ended with {host.process.returncode}, its "
                      f"last record: {host.last_record()}", False)


def innocent_lost_nothing(arena: Arena) -> Iterator[Finding]:
    """Its streams still work, and it has never waited for long."""
    before = arena.innocent.begin("close")
    if not before.lost:
        start = time.monotonic()
        arena.host.type(f"close {WINDOW}")
        arena.host.await_line(
            f"Window {WINDOW} is closed: its client allows that.")
        yield arena.waited("its own question takes", time.monotonic() - start,
                           WAIT_GOAL)
    yield from judge(arena, before, arena.innocent.end())


def judge(arena: Arena, *reports: Report) -> Iterator[Finding]:
    """What the innocent client has seen in all."""
    for report in reports:
        if report.lost:
            yield Finding(f"the innocent client has lost: {report.lost}", False)
            return
    yield arena.waited("others wait", reports[-1].longest, WAIT_GOAL)
