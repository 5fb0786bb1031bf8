"""Runs clang-tidy on the sources named on standard input.

    scripts/tidy.py BUILD    takes the flags from BUILD/compile_commands.json

Most of the time goes to the headers, which each source includes anew. So sources
of one folder that are compiled with the same flags are checked as one: a file
that includes them. Where two of them cannot stand in one file, since each has a
name of its own that is the other's, too, they are checked one by one. What is
declared in one of them and used only in another passes for used.

Sources that the database does not have, since they are not built here, are left
out. Prints what clang-tidy finds. Exits with 1 if it has found something.
"""

import collections
import concurrent.futures
import json
import os
import pathlib
import shlex
import subprocess
import sys

SOURCES_AT_ONCE = 8

# Of its own, since a file that includes sources looks like a mistake.
CHECKS = "--checks=-bugprone-suspicious-include"


def flags(entry: dict) -> tuple[str, ...]:
    """The command of `entry` without its source and what it makes of it."""
    arguments = shlex.split(entry["command"])
    return tuple(arguments[:arguments.index("-o")])


def read_database(build: pathlib.Path) -> dict[str, dict]:
    entries = json.loads((build / "compile_commands.json").read_text())
    return {entry["file"]: entry for entry in entries}


def group(sources: list[str], database: dict[str, dict]) -> list[list[str]]:
    alike = collections.defaultdict(list)
    for source in sources:
        entry = database[source]
        alike[os.path.dirname(source), entry["directory"], flags(entry)].append(source)
    return [
        some[i : i + SOURCES_AT_ONCE]
        for some in alike.values()
        for i in range(0, len(some), SOURCES_AT_ONCE)
    ]


def tidy(build: pathlib.Path, source: str) -> str:
    """What clang-tidy prints of `source`; empty if it finds nothing."""
    done = subprocess.run(
        ["clang-tidy", "--quiet", CHECKS, "-p", build, source],
        stdout=subprocess.PIPE,
        stderr=subprocess.DEVNULL,
        text=True,
        check=False,
    )
    if done.returncode != 0 and not done.stdout:
        return f"clang-tidy ends with {done.returncode} at {source}\n"
    return done.stdout


class Units:
    """Files that include several sources, with a database of their own."""

    def __init__(self, build: pathlib.Path) -> None:
        self._folder = build / "tidy"
        self._folder.mkdir(exist_ok=True)
        self._entries: list[dict] = []

    def add(self, sources: list[str], like: dict) -> str:
        unit = str(self._folder / f"{len(self._entries)}.cc")
        pathlib.Path(unit).write_text("".join(f'#include "{source}"\n' for source in sources))
        self._entries.append({
            "directory": like["directory"],
            "file": unit,
            "arguments": [*flags(like), "-c", unit],
        })
        return unit

    def write_database(self) -> pathlib.Path:
        (self._folder / "compile_commands.json").write_text(json.dumps(self._entries))
        return self._folder


def main() -> int:
    build = pathlib.Path(sys.argv[1]).resolve()
    database = read_database(build)
    sources = [os.path.abspath(line.strip()) for line in sys.stdin]
    known = [source for source in sources if source in database]
    groups = group(known, database)
    units = Units(build)
    unit_of = [units.add(some, database[some[0]]) for some in groups]
    folder = units.write_database()

    def check(i: int) -> str:
        found = tidy(folder, unit_of[i])
        if "clang-diagnostic" in found and len(groups[i]) > 1:
            return "".join(tidy(build, source) for source in groups[i])
        return found

    found_something = False
    with concurrent.futures.ThreadPoolExecutor(os.cpu_count()) as pool:
        for found in pool.map(check, range(len(groups))):
            found_something = found_something or bool(found)
            print(found, end="", flush=True)
    return 1 if found_something else 0


sys.exit(main())
