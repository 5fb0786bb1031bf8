"""Many changes, many clients, many windows: each reply is true when it comes.

LOOPS=10000 and WINDOWS=50 make the long forms.
"""

import concurrent.futures
import os
import random
import unittest

from observer import Observer
from support import BrowserTestCase, PageTestCase

LOOPS = int(os.environ.get("LOOPS") or 40)
WINDOWS = int(os.environ.get("WINDOWS") or 8)


class OneAfterTheOther(BrowserTestCase):
    def test_maximize_get_bounds_restore_agree_with_the_server(self):
        seen = self.seen()
        area = self.observer.work_area()
        for loop in range(LOOPS):
            normal = (loop % 97, loop % 89, 400 + loop % 101, 300 + loop % 103)
            self.set_bounds(1, normal)
            self.windows.maximize(1)
            self.assertEqual((seen.is_maximized(), seen.bounds()), (True, area), loop)
            self.assertEqual(self.bounds(), seen.bounds(), loop)
            self.windows.restore(1)
            self.assertEqual((seen.is_maximized(), seen.bounds()), (False, normal), loop)


class AtOnce(BrowserTestCase):
    """Two clients for each window: one moves it, the other one names it."""

    arguments = ("--windows", "4")

    def setUp(self):
        super().setUp()
        # Each thread looks over a connection of its own.
        self.eyes = [Observer(self.screen) for _ in range(8)]
        for eyes in self.eyes:
            self.addCleanup(eyes.close)
        self.clients = [self.connect() for _ in range(8)]

    def move(self, number, windows, eyes):
        choice = random.Random(number)
        seen = eyes.window(number)
        for _ in range(LOOPS // 2):
            x, y = choice.randrange(800), choice.randrange(600)
            width, height = choice.randrange(160, 480), choice.randrange(120, 420)
            windows.set_bounds(number, bounds=dict(x=x, y=y, width=width, height=height))
            if seen.bounds() != (x, y, width, height):
                return f"{seen.bounds()} instead of {(x, y, width, height)}"
            windows.maximize(number)
            if not seen.is_maximized() or seen.bounds() != eyes.work_area():
                return f"window {number} is not maximized"
            windows.restore(number)
        return None

    def name(self, number, windows, eyes):
        seen = eyes.window(number)
        for turn in range(LOOPS // 2):
            title = f"{number}, {turn}"
            windows.set_title(number, title=title)
            if seen.title() != title:
                return f"{seen.title()!r} instead of {title!r}"
            everywhere = turn % 2 == 0
            policy = "POLICY_ALL_WORKSPACES" if everywhere else "POLICY_ONE_WORKSPACE"
            windows.set_window_display_policy(number, policy=policy)
            if (seen.workspace() == 0xFFFFFFFF) != everywhere:
                return f"workspace {seen.workspace()} instead of {policy}"
        return None

    def test_eight_clients_on_four_windows_see_what_they_were_told(self):
        with self.parallel() as start:
            calls = []
            for i, (client, eyes) in enumerate(zip(self.clients, self.eyes)):
                act = self.name if i % 2 else self.move
                calls.append(start(act, i // 2 + 1, client.windows, eyes))
            concurrent.futures.wait(calls)
        self.assertEqual([call.result() for call in calls], [None] * 8)


class Many(PageTestCase):
    page = "<title>ready</title>"
    windows_of_page = WINDOWS

    def test_all_open_windows_do_what_is_asked_of_them_and_close(self):
        numbers = list(range(1, WINDOWS + 1))
        self.assertEqual(self.observer.numbers(), numbers)
        for number in numbers:
            self.wait_for_title("ready", number)
        self.assertEqual(len(self.browser.children("WebKitWebProcess")), WINDOWS)
        for number in numbers:
            bounds = (number, 2 * number, 300 + number, 200 + number)
            self.set_bounds(number, bounds)
            self.assertEqual(self.seen(number).bounds(), bounds)
        for number in numbers:
            self.windows.activate(number)
            self.assertTrue(self.seen(number).is_active())
        for number in numbers:
            self.assertTrue(self.windows.close(number))
            self.assertEqual(self.observer.numbers(), numbers[number:])


if __name__ == "__main__":
    unittest.main()
