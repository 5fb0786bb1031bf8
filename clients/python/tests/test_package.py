"""The package as pip installs it: it imports, and carries all that it needs."""

import os
import shutil
import subprocess
import sys
import tempfile
import unittest


class Package(unittest.TestCase):
    def setUp(self) -> None:
        self.folder = tempfile.mkdtemp(prefix="torvane-python-")
        self.addCleanup(shutil.rmtree, self.folder)

    def run_python(self, *arguments: str, **environment: str) -> str:
        clean = {key: value for key, value in os.environ.items() if key != "PYTHONPATH"}
        ended = subprocess.run(
            [sys.executable, *arguments],
            cwd=self.folder,
            env={**clean, **environment},
            stdout=subprocess.PIPE,
            stderr=subprocess.STDOUT,
            text=True,
        )
        self.assertEqual(ended.returncode, 0, ended.stdout)
        return ended.stdout

    def test_can_be_installed_by_pip_and_imported(self) -> None:
        # pip writes beside the sources that it builds.
        source = os.path.join(self.folder, "source")
        shutil.copytree(
            os.environ["PACKAGE"], source, ignore=shutil.ignore_patterns("CMake*", "*.cmake")
        )
        target = os.path.join(self.folder, "installed")
        self.run_python(
            *"-m pip install --quiet --no-index --no-build-isolation --no-deps".split(),
            "--root-user-action=ignore",
            "--target",
            target,
            source,
        )
        installed = sorted(os.listdir(os.path.join(target, "torvane")))
        self.assertIn("py.typed", installed)
        self.assertIn("contract_types.pyi", installed)
        self.assertIn("contract.binpb", installed)
        # Nothing but the package and what pip says of it.
        self.assertEqual(
            sorted(name for name in os.listdir(target) if not name.endswith(".dist-info")),
            ["torvane"],
        )
        printed = self.run_python(
            "-c",
            "import torvane, torvane.blocking; print(torvane.__file__);"
            "print(len(torvane.contract.builtin_contract().service('rpc.BrowserWindow').methods))",
            PYTHONPATH=target,
        )
        where, methods = printed.splitlines()
        self.assertTrue(where.startswith(target), where)
        self.assertEqual(methods, "41")


if __name__ == "__main__":
    unittest.main()
