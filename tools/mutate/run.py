#!/usr/bin/python3
"""Changes the sources in small ways and says which changes no test notices.

    run.py [--list] [--only FILE] [--seed N --sample K]

Each change, a mutant, is a switch in one build of a copy of the sources, in
build/mutate; the sources themselves stay as they are. For each mutant those tests
of the suites that belong to its file run that get to it, with it switched on. It is
noticed if one of them fails, crashes or hangs. Of the generator a second figure says which mutants are
noticed if the golden files are made anew with them.

Prints each mutant that is left, with file and line, and a table. Those that
change nothing that can be seen are listed in tools/mutate/equivalent.txt, each
with the reason.

Exit status: 0 if the goals are met, 1 if not, if a mutant is left that has no
reason where it needs one, or if the list does not fit the sources, 2 for wrong
usage or a failed build.
"""

from __future__ import annotations

import argparse
import concurrent.futures
import os
import pathlib
import random
import signal
import sys
import time
from collections import Counter
from dataclasses import dataclass

import suites
import watch
from build import BuildFailed, MutatedTree
from equivalent import Equivalents
from goldens import Goldens
from judge import SuiteFailsAnyway, Suites
from places import Mutant
from switches import MutatedFile

_ROOT = pathlib.Path(__file__).resolve().parents[2]


@dataclass
class Verdict:
    file: MutatedFile
    mutant: Mutant
    name: str  # As in equivalent.txt.
    noticed_by: str = ""
    # With golden files made anew; only of folders that have some.
    noticed_by_others: str = ""

    @property
    def counts(self) -> bool:
        """Whether something notices that nobody updates along with a mistake."""
        golden = suites.folder_of(self.file.path).golden
        return bool(self.noticed_by_others if golden else self.noticed_by)


def parse_arguments() -> argparse.Namespace:
    parser = argparse.ArgumentParser(
        description=__doc__, prog="scripts/mutate",
        formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("--list", action="store_true",
                        help="print all mutants, and run none")
    parser.add_argument("--only", metavar="FILE",
                        help="only those of files whose path ends in FILE, or that "
                        "lie in the folder FILE, such as stream")
    parser.add_argument("--sample", type=int, metavar="K",
                        help="only K of them, drawn at random")
    parser.add_argument("--seed", type=int, default=1, metavar="N",
                        help="which sample is drawn; default: 1")
    parser.add_argument("--jobs", type=int, default=os.cpu_count(), metavar="N",
                        help="how many run at a time; default: one for each core")
    arguments = parser.parse_args()
    for option in ("sample", "jobs"):
        value = getattr(arguments, option)
        if value is not None and value < 1:
            parser.error(f"--{option} needs a whole number from 1")
    return arguments


def choose(verdicts: list[Verdict], arguments: argparse.Namespace) -> list[Verdict]:
    chosen = [v for v in verdicts
              if not arguments.only or v.file.path.endswith(f"/{arguments.only}") or
              f"/{arguments.only.rstrip('/')}/" in v.file.path]
    if arguments.sample is None or arguments.sample >= len(chosen):
        return chosen
    drawn = set(random.Random(arguments.seed).sample(range(len(chosen)), arguments.sample))
    return [v for i, v in enumerate(chosen) if i in drawn]


def verdicts_of(tree: MutatedTree) -> list[Verdict]:
    """Names are made unique: the second of its name in a file ends in #2."""
    verdicts = []
    for file in tree.files:
        seen: Counter[str] = Counter()
        for mutant in file.mutants:
            name = file.name_of(mutant)
            seen[name] += 1
            if seen[name] > 1:
                name += f" #{seen[name]}"
            if not mutant.dropped:
                verdicts.append(Verdict(file, mutant, name))
    return verdicts


def judge(verdicts: list[Verdict], tree: MutatedTree, jobs: int) -> None:
    all_suites = Suites(tree, {verdict.file.path for verdict in verdicts}, jobs)
    goldens = Goldens(tree, all_suites)

    def judge_one(verdict: Verdict) -> None:
        path, number = verdict.file.path, verdict.mutant.number
        if not suites.folder_of(path).golden:
            verdict.noticed_by = all_suites.who_notices(path, number)
            return
        verdict.noticed_by_others = goldens.who_notices(number)
        verdict.noticed_by = (verdict.noticed_by_others or
                              goldens.who_notices_as_they_are(path, number))

    since, done, left = time.monotonic(), 0, 0
    with watch.workers(jobs) as pool:
        futures = {pool.submit(judge_one, verdict): verdict for verdict in verdicts}
        for future in concurrent.futures.as_completed(futures):
            future.result()
            done += 1
            left += not futures[future].counts
            show_progress(done, len(verdicts), left, time.monotonic() - since)


def show_progress(done: int, of: int, left: int, seconds: float) -> None:
    text = f"[{done}/{of}] {left} not noticed, {seconds:.0f} s"
    if sys.stderr.isatty():
        print(f"\r{text}\033[K", end="\n" if done == of else "", file=sys.stderr,
              flush=True)
    elif done == of or done * 20 // of > (done - 1) * 20 // of:
        print(text, file=sys.stderr, flush=True)


def show(verdict: Verdict, why: str = "") -> None:
    line = verdict.file.line_of(verdict.mutant)
    print(f"{verdict.file.path}:{line}: {verdict.mutant.kind}: {verdict.mutant.change}"
          f"{why}")


def percent(part: int, whole: int) -> float:
    """Rounded down, so that a goal is met only if it is reached."""
    return 1000 * part // whole / 10 if whole else 100.0


def report(verdicts: list[Verdict], equivalents: Equivalents,
           whole: set[suites.Folder]) -> bool:
    """Prints what is left, and the table. Whether all is as it should be. Only of
    whole folders is said whether they reach their goals."""
    good = True
    left = [v for v in verdicts if not v.counts and not equivalents.reason(v.name)]
    print("Not noticed:" if left else "Nothing is left without a reason.")
    for verdict in left:
        show(verdict, " (but by the golden files)" if verdict.noticed_by else "")
    wrong = [v for v in verdicts if v.noticed_by and equivalents.reason(v.name)]
    for verdict in wrong:
        show(verdict, f": {verdict.noticed_by} notices it, so strike it from "
             "equivalent.txt")
        good = False
    print(f"\n{'':10} {'mutants':>8} {'noticed':>8} {'':>7} {'explained':>10} {'left':>6}")
    for folder in suites.FOLDERS:
        own = [v for v in verdicts if suites.folder_of(v.file.path) is folder]
        if not own:
            continue
        noticed = sum(v.counts for v in own)
        explained = sum(not v.counts and bool(equivalents.reason(v.name)) for v in own)
        unexplained = len(own) - noticed - explained
        rate = percent(noticed, len(own))
        print(f"{folder.name:10} {len(own):8} {noticed:8} {rate:6.1f}% {explained:10} "
              f"{unexplained:6}   goal: {folder.goal}%")
        if folder.golden:
            rather = sum(bool(v.noticed_by) for v in own)
            print(f"{'':10} {'':8} {rather:8} {percent(rather, len(own)):6.1f}%"
                  "   with the golden files as they are")
        good &= not (folder.explained and unexplained)
        good &= folder not in whole or rate >= folder.goal
    return good


def whole_folders(chosen: list[Verdict], verdicts: list[Verdict]) -> set[suites.Folder]:
    """Those of which all mutants are chosen."""
    left_out = {v.name for v in verdicts} - {v.name for v in chosen}
    return set(suites.FOLDERS) - {suites.folder_of(name) for name in left_out}


def main() -> int:
    arguments = parse_arguments()
    # So that everything that runs is ended, as for Ctrl-C.
    signal.signal(signal.SIGTERM, lambda number, _: sys.exit(128 + number))
    try:
        tree = MutatedTree(_ROOT)
        print("==> Building the mutants", file=sys.stderr, flush=True)
        tree.make()
        verdicts = verdicts_of(tree)
        chosen = choose(verdicts, arguments)
        if not chosen:
            print(f"scripts/mutate: no mutants in '{arguments.only}'", file=sys.stderr)
            return 2
        if arguments.list:
            for verdict in chosen:
                show(verdict)
            return 0
        equivalents = Equivalents(pathlib.Path(__file__).with_name("equivalent.txt"))
        stale = equivalents.names() - {v.name for v in verdicts}
        for name in sorted(stale):
            print(f"equivalent.txt names what is not there: {name}")
        print(f"==> Running {len(chosen)} mutants; {tree.dropped()} others do not "
              "compile", file=sys.stderr, flush=True)
        judge(chosen, tree, arguments.jobs)
    except (BuildFailed, SuiteFailsAnyway) as failure:
        print(f"scripts/mutate: {failure}", file=sys.stderr)
        return 2
    good = report(chosen, equivalents, whole_folders(chosen, verdicts))
    return 0 if good and not stale else 1


if __name__ == "__main__":
    sys.exit(main())
