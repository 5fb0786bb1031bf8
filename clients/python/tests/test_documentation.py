"""Runs each program of docs/clients.md with a host, as is, and compares what it
prints with the block below it. There, what follows "host> " is typed at the host,
and what follows "host: " is printed by it. Also looks up the tests that it names."""

import importlib
import os
import re
import shutil
import subprocess
import sys
import tempfile
import unittest
from typing import Iterator, Tuple

from support import TIMEOUT, Host, Lines

HOST_PROMPT = "host> "
HOST_PRINTS = "host: "
RESTART = "(is killed, and started again)"


def page() -> str:
    with open(os.environ["CLIENTS_PAGE"], encoding="utf-8") as file:
        return file.read()


def programs() -> Iterator[Tuple[str, str, str]]:
    """Heading, program and transcript of each."""
    text = page()
    for section in re.split(r"^### ", text, flags=re.M)[1:]:
        for program, transcript in re.findall(
            r"^```python\n(.*?)^```\n```\n(.*?)^```\n", section, flags=re.M | re.S
        ):
            yield section.splitlines()[0], program, transcript
    # A program without transcript would not be run.
    if text.count("```python\n") != len(re.findall(r"^```\n```\n", text, flags=re.M)):
        raise AssertionError("a program of docs/clients.md has no transcript below it")


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
        for heading, program, transcript in programs():
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
