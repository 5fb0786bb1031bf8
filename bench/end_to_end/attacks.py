"""Measures what clients that attack the example host cost others, and its stop.

    attacks.py MODE BUILD_FOLDER

MODE is one of:

    flood    16 clients call as fast as the host answers
    leave    one of several clients with all streams that it may have leaves
    stop     the host is stopped while such clients are connected

Prints one line of JSON: milliseconds by the names of figures. The attackers are
those of tools/attacks; who is measured is innocent_client.cc, so that no figure
depends on how fast Python is. Host, attackers and innocent client are processes
of their own, on all cores.
"""

from __future__ import annotations

import json
import pathlib
import subprocess
import sys
import time

ROOT = pathlib.Path(__file__).parent.parent.parent
BUILD = pathlib.Path(sys.argv[-1])
sys.path[:0] = [str(ROOT / "tools/attacks"), str(BUILD / "gen/python")]

# pylint: disable=wrong-import-position
from host import Host, Limits  # noqa: E402
from time_attacks import flooding, usual_crowd  # noqa: E402

HOST = BUILD / "examples/window_host/window_host"
INNOCENT_CLIENT = BUILD / "bench/innocent_client"

FLOOD_SECONDS = 2

MILLISECOND = 1e6  # In the nanoseconds that innocent_client prints.


class InnocentClient:
    """A process that calls the host until end()."""

    def __init__(self, host: Host):
        self._process = subprocess.Popen(
            [INNOCENT_CLIENT, host.path], stdin=subprocess.PIPE,
            stdout=subprocess.PIPE, text=True)
        if self._process.stdout.readline() != "ready\n":
            sys.exit("attacks.py: innocent_client has failed")

    def end(self) -> dict[str, float]:
        """Its figures, in nanoseconds."""
        printed, _ = self._process.communicate()
        if self._process.returncode != 0:
            sys.exit("attacks.py: innocent_client has failed")
        return json.loads(printed)


def measure_flood(host: Host) -> dict[str, float]:
    with flooding(host.path):
        innocent = InnocentClient(host)
        time.sleep(FLOOD_SECONDS)
        seen = innocent.end()
    return {"p50": seen["p50"] / MILLISECOND, "p99": seen["p99"] / MILLISECOND}


def measure_leave(host: Host) -> dict[str, float]:
    with usual_crowd(host.path, Limits(HOST)) as crowd:
        innocent = InnocentClient(host)
        crowd.let_one_leave()
        seen = innocent.end()
    return {"longest": seen["longest"] / MILLISECOND}


def measure_stop(host: Host) -> dict[str, float]:
    with usual_crowd(host.path, Limits(HOST)):
        return {"time": host.stop() * 1e3}


MODES = {"flood": measure_flood, "leave": measure_leave, "stop": measure_stop}


def main() -> None:
    if len(sys.argv) != 3 or sys.argv[1] not in MODES:
        sys.exit(__doc__)
    with Host(HOST) as host:
        print(json.dumps(MODES[sys.argv[1]](host)))


if __name__ == "__main__":
    main()
