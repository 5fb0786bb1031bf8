#!/usr/bin/env python3
"""Attacks a host over its socket, and says whether anybody else was hurt.

    run.py --host build/release/examples/window_host/window_host [--only NAME]

Each attack has a host of its own and an innocent client beside the attackers.
Prints a line for each: whether it held, its name, and its figures with their
goals. Exit status: 0 if all held, 1 if one did not, 2 wrong usage. The modules
that protoc makes of the .proto files must be in PYTHONPATH; scripts/attacks
and ctest see to that.
"""

from __future__ import annotations

import argparse
import pathlib
import sys

import memory_attacks  # noqa: F401  Adds to ATTACKS, as the next two do.
import misuse_attacks  # noqa: F401
import time_attacks  # noqa: F401
from arena import ATTACKS, Rules, run


def parse_arguments() -> argparse.Namespace:
    parser = argparse.ArgumentParser(
        description=__doc__,
        formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("--host", type=pathlib.Path, metavar="PROGRAM",
                        help="the window_host to attack")
    parser.add_argument("--list", action="store_true",
                        help="print the attacks by name, and end")
    parser.add_argument("--only", choices=ATTACKS, metavar="NAME",
                        help="play this attack alone")
    parser.add_argument("--slack", type=float, default=20, metavar="N",
                        help="how many times its goal a wait may take; "
                        "default: 20, which finds stalls of seconds only")
    parser.add_argument("--no-memory", action="store_true",
                        help="do not judge memory: for a host whose sanitizer "
                        "keeps what was freed")
    arguments = parser.parse_args()
    if not arguments.list and arguments.host is None:
        parser.error("--host is missing")
    if arguments.host is not None and not arguments.host.is_file():
        parser.error(f"there is no {arguments.host}")
    return arguments


def main() -> int:
    arguments = parse_arguments()
    if arguments.list:
        for attack in ATTACKS.values():
            print(f"{attack.name:32} {attack.what}")
        return 0
    rules = Rules(arguments.slack, memory=not arguments.no_memory)
    names = [arguments.only] if arguments.only else list(ATTACKS)
    all_held = True
    for name in names:
        findings = run(ATTACKS[name], arguments.host, rules)
        held = bool(findings) and all(finding.held for finding in findings)
        all_held = all_held and held
        print(f"{'held' if held else 'NOT HELD':8}  {name:32} "
              f"{'; '.join(finding.text for finding in findings)}", flush=True)
    return 0 if all_held else 1


if __name__ == "__main__":
    try:
        sys.exit(main())
    except KeyboardInterrupt:
        sys.exit(130)
