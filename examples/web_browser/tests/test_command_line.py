"""The browser's command line: what it says without a display, and what it opens."""

import os
import re
import subprocess
import tempfile
import unittest

from programs import TIMEOUT
from support import BrowserTestCase


def run(variable, *arguments):
    return subprocess.run(
        [os.environ[variable], *arguments],
        env={**os.environ, "DISPLAY": ""},
        capture_output=True,
        text=True,
        timeout=TIMEOUT,
    )


def flags(variable):
    """All that its help names."""
    done = run(variable, "--help")
    assert done.returncode == 0, done
    return set(re.findall(r"^  (?:-h, )?(--[a-z-]+)", done.stdout, re.MULTILINE))


class WithoutDisplay(unittest.TestCase):
    def test_it_has_the_flags_and_limits_of_the_host_in_memory_and_one_more(self):
        others = flags("WINDOW_HOST")
        self.assertLess({"--socket", "--windows", "--max-connections"}, others)
        self.assertEqual(flags("WEB_BROWSER"), {*others, "--desktop-timeout"})

    def test_help_says_that_urls_are_opened(self):
        self.assertIn("\nUsage: web_browser [FLAG...] [URL...]\n", run("WEB_BROWSER", "--help").stdout)

    def test_version(self):
        self.assertRegex(run("WEB_BROWSER", "--version").stdout, r"^web_browser \d+\.\d+\.\d+\n$")

    def test_a_flag_that_it_does_not_know(self):
        done = run("WEB_BROWSER", "--window", "1")
        self.assertEqual(done.returncode, 2)
        self.assertIn("'web_browser --help' says more.", done.stderr)


class MoreWindowsThanUrls(BrowserTestCase):
    arguments = ("--windows", "3", "data:text/html,<title>first</title>")

    def test_are_opened_the_one_with_the_url_first(self):
        self.assertEqual(self.observer.numbers(), [1, 2, 3])
        seen = self.seen(1)
        self.observer.wait_until(lambda: seen.title() == "first", "the page")


class Files(BrowserTestCase):
    names = ("a b", "a#b", "a?b", "a%41", "ü")

    def setUp(self):
        folder = tempfile.TemporaryDirectory(prefix="torvane-page-")
        self.addCleanup(folder.cleanup)
        self.arguments = [os.path.join(folder.name, name + ".html") for name in self.names]
        for name, path in zip(self.names, self.arguments):
            with open(path, "w") as file:
                file.write(f"<!doctype html><meta charset=utf-8><title>{name}</title>")
        super().setUp()

    def test_are_opened_whatever_their_names(self):
        for number, name in enumerate(self.names, 1):
            seen = self.seen(number)
            self.observer.wait_until(
                lambda seen=seen, name=name: seen.title() == name, f"the page {name}"
            )


if __name__ == "__main__":
    unittest.main()
