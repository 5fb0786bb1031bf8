"""Runs the tests of one module: run.py test_node

Exits with 77, for which CTest says that the test was skipped, where Python has no
grpcio, or the tests say that they cannot run here.
"""

import sys
import unittest

SKIPPED = 77


def main() -> int:
    try:
        import google.protobuf  # noqa: F401
        import grpc  # noqa: F401
    except ImportError:
        print(f"{sys.executable} has no grpcio: scripts/setup --grpc installs python3-grpcio")
        return SKIPPED
    result = unittest.main(module=sys.argv.pop(1), exit=False, verbosity=2).result
    if not result.wasSuccessful():
        return 1
    if result.skipped:
        return SKIPPED
    # A module of which no test was found must not pass.
    return 0 if result.testsRun else 1


if __name__ == "__main__":
    sys.exit(main())
