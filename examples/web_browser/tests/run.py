"""Runs the tests of one module: run.py test_states [TEST...]

Exits with 77, for which CTest says that the test was skipped, where something that
they need is not installed. One that hangs says where, before CTest ends it.
"""

import faulthandler
import importlib.util
import shutil
import sys
import unittest

SKIPPED = 77

# CTest ends it after 300.
SECONDS_UNTIL_IT_HANGS = 285


def missing() -> str:
    """What is not installed; empty if nothing is missing."""
    modules = ["google.protobuf", "Xlib"]
    programs = ["Xvfb", "openbox", "xdotool"]
    for module in modules:
        try:
            if importlib.util.find_spec(module) is None:
                return f"{sys.executable} has no {module}"
        except ImportError:
            return f"{sys.executable} has no {module}"
    return next((f"there is no {name}" for name in programs if shutil.which(name) is None), "")


def main() -> int:
    what = missing()
    if what:
        print(f"{what}: scripts/setup --browser installs it")
        return SKIPPED
    faulthandler.dump_traceback_later(SECONDS_UNTIL_IT_HANGS)
    program = unittest.main(module=sys.argv.pop(1), exit=False, verbosity=2)
    # A module of which no test was found must not pass.
    return 0 if program.result.wasSuccessful() and program.result.testsRun else 1


if __name__ == "__main__":
    sys.exit(main())
