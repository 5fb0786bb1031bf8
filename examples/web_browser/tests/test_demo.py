"""The demo, which checks itself what it shows."""

import os
import re
import shutil
import subprocess
import sys
import tempfile
import unittest

HERE = os.path.dirname(os.path.abspath(__file__))
DEMO = os.path.join(HERE, "..", "demo", "demo.py")
PICTURES = ["context-menu.png", "full-screen.png", "typing.png", "vibrancy.png", "windows.png"]


@unittest.skipUnless(shutil.which("import") and shutil.which("picom"), "no imagemagick or picom")
class Demo(unittest.TestCase):
    def setUp(self):
        folder = tempfile.TemporaryDirectory(prefix="torvane-demo-")
        self.addCleanup(folder.cleanup)
        self.pictures = folder.name

    def run_demo(self, *arguments, **environment):
        path = os.pathsep.join([os.environ.get("PYTHONPATH", ""), HERE])
        return subprocess.run(
            [sys.executable, "-B", DEMO, *arguments, self.pictures],
            env={**os.environ, "PYTHONPATH": path, **environment},
            stdout=subprocess.PIPE,
            stderr=subprocess.STDOUT,
            text=True,
        )

    def test_shows_every_method_and_keeps_pictures(self):
        ran = self.run_demo()
        self.assertEqual(ran.returncode, 0, ran.stdout)
        self.assertRegex(ran.stdout, re.compile(r"^==> All \d+ unary methods did", re.MULTILINE))
        self.assertEqual(sorted(os.listdir(self.pictures)), PICTURES)

    def test_fails_where_the_browser_does_not_come_up(self):
        ran = self.run_demo(WEB_BROWSER="/bin/false")
        self.assertEqual(ran.returncode, 1, ran.stdout)
        self.assertRegex(ran.stdout, "^demo: expected 'false: ready")

    def test_needs_a_display_for_being_here(self):
        ran = self.run_demo("--here", DISPLAY="")
        self.assertEqual(ran.returncode, 1, ran.stdout)
        self.assertEqual(ran.stdout, "demo: there is no display: $DISPLAY is not set\n")


if __name__ == "__main__":
    unittest.main()
