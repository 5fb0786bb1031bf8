"""Runs the tests of one module: run.py test_wire

Exits with 77, for which CTest says that the test was skipped, where Python has no
protobuf.
"""

import sys
import unittest

SKIPPED = 77


def main() -> int:
    try:
        import google.protobuf  # noqa: F401
    except ImportError:
        print(f"{sys.executable} has no protobuf: scripts/setup installs python3-protobuf")
        return SKIPPED
    program = unittest.main(module=sys.argv.pop(1), exit=False, verbosity=2)
    # A module of which no test was found must not pass.
    return 0 if program.result.wasSuccessful() and program.result.testsRun else 1


if __name__ == "__main__":
    sys.exit(main())
