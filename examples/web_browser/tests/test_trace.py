"""What the browser writes with --trace."""

import json
import os
import signal
import tempfile
import unittest

from support import BrowserTestCase


class Trace(BrowserTestCase):
    def setUp(self):
        folder = tempfile.TemporaryDirectory(prefix="torvane-trace-")
        self.addCleanup(folder.cleanup)
        self.path = os.path.join(folder.name, "trace.json")
        self.arguments = ("--trace", self.path, "--windows", "1")
        super().setUp()

    def test_is_whole_when_the_browser_is_stopped(self):
        self.windows.is_visible(1)
        self.assertEqual(self.browser.kill(signal.SIGTERM), 0)
        with open(self.path) as file:
            names = {event["name"] for event in json.load(file)}
        self.assertIn("IsVisible", names)


if __name__ == "__main__":
    unittest.main()
