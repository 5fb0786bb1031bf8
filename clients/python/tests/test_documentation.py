"""Runs each program of the Python client in docs/clients.md with a host, as is, and
compares what it prints with the block below it. Also looks up the tests that the
page names."""

import importlib
import os
import re
import shutil
import subprocess
import sys
import tempfile
import unittest

from clients_page import HOST_PRINTS, HOST_PROMPT, page, programs, section
from processes import TIMEOUT, Host, Lines

RESTART = "(is killed, and started again)"


class Documentation(unittest.TestCase):
    def run_program(self, program: str, transcript: str) -> None:
        folder = tempfile.mkdtemp(prefix="torvane-python-")
        self.addCleanup(shutil.rmtree, folder)
        path = os.path.join(folder, "window_host.sock")
        host = Host(path)
        process = subprocess.Popen(
            [sys.executable, "-B", "-u", "-c", program],
            stdout=subprocess.PIPE,
            text=True,
            env={**os.environ, "XDG_RUNTIME_DIR": folder},
        )
        self.addCleanup(process.kill)
        lines = Lines(process.stdout)
        try:
            for line in transcript.splitlines():
                if line == HOST_PROMPT + RESTART:
                    host.kill()
                    host = Host(path)
                elif line.startswith(HOST_PROMPT):
                    host.say(line[len(HOST_PROMPT) :])
                elif line.startswith(HOST_PRINTS):
                    host.expect(line[len(HOST_PRINTS) :])
                else:
                    self.assertEqual(lines.next(), line)
            self.assertEqual(process.wait(TIMEOUT), 0)
        finally:
            host.stop()

    def test_each_program_prints_what_the_page_says(self) -> None:
        count = 0
        for heading, program, transcript in programs(section("Python", 2), "python"):
            with self.subTest(heading):
                self.run_program(program, transcript)
            count += 1
        self.assertEqual(count, 5)

    def test_the_tests_that_the_page_names_exist(self) -> None:
        names = re.findall(r"`(test_\w+)\.(\w+)\.(\w+)`", page())
        self.assertGreater(len(names), 5)
        for module, group, test in names:
            with self.subTest(test):
                self.assertTrue(hasattr(getattr(importlib.import_module(module), group), test))


if __name__ == "__main__":
    unittest.main()
