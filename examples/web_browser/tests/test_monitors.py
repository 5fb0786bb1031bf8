"""Two monitors, one of which is unplugged and plugged in again. Only root has these.

At both scales, and under both window managers.
"""

import unittest

from programs import XFWM4, TwoMonitors
from support import BrowserTestCase, needs_xfwm4


class Monitors(BrowserTestCase):
    @classmethod
    def start_screen(cls):
        return TwoMonitors()

    def setUp(self):
        super().setUp()
        self.left, self.right = (
            tuple(length // self.scale for length in monitor)
            for monitor in (TwoMonitors.LEFT, TwoMonitors.RIGHT)
        )
        # Of a window on each of them.
        beside = self.left[2]
        self.places = {self.left: (50, 40, 401, 300), self.right: (beside + 60, 45, 400, 301)}


class States(Monitors):
    def test_fill_the_monitor_of_the_window_and_come_back_to_it(self):
        for monitor, place in self.places.items():
            self.set_bounds(1, place)
            for fill, leave in [
                (self.windows.maximize, self.windows.restore),
                (self.windows.enter_full_screen, self.windows.exit_full_screen),
            ]:
                with self.subTest(f"{fill.__name__} on {monitor}"):
                    fill(1)
                    self.expect_bounds(1, monitor)
                    leave(1)
                    self.expect_bounds(1, place)

    def test_center(self):
        for monitor, place in self.places.items():
            self.set_bounds(1, place)
            self.windows.center_window(1)
            x, y, width, height = monitor
            _, _, own_width, own_height = place
            left, top = x + (width - own_width) // 2, y + (height - own_height) // 2
            self.expect_bounds(1, (left, top, own_width, own_height))

    def test_bounds_across_both_are_exact(self):
        x, y, _, _ = self.right
        for bounds in [(x - 80, y + 100, 333, 222), (x - 1, y + 50, 300, 200)]:
            self.set_bounds(1, bounds)
            self.expect_bounds(1, bounds)

    def test_bounds_over_the_edges_are_exact(self):
        _, _, _, bottom = self.left
        x, _, width, height = self.right
        for bounds in [(-50, bottom - 124, 300, 200), (x + width - 104, height - 68, 301, 201)]:
            self.set_bounds(1, bounds)
            self.expect_bounds(1, bounds)


class Unplugged(Monitors):
    arguments = ("--windows", "5")

    def is_on_the_left(self, number):
        """The whole of it."""
        x, y, width, height = self.seen(number).bounds()
        _, _, right, bottom = TwoMonitors.LEFT
        return x >= 0 and y >= 0 and x + width <= right and y + height <= bottom

    def test_no_window_is_lost_when_its_monitor_is_unplugged(self):
        numbers = range(1, 6)
        place = self.places[self.right]
        for number in numbers:
            self.seen(number)
            self.set_bounds(number, place)
        self.windows.maximize(2)
        self.windows.enter_full_screen(3)
        self.windows.minimize(4)
        self.windows.hide(5)
        self.screen.unplug()
        for number in (1, 2, 3):
            self.observer.wait_until(lambda: self.is_on_the_left(number), f"window {number}")
        self.windows.restore(2)
        self.windows.exit_full_screen(3)
        self.windows.restore(4)
        self.windows.show(5)
        for number in numbers:
            with self.subTest(number):
                self.assertTrue(self.is_on_the_left(number), self.seen(number).bounds())
                self.assertEqual(self.bounds(number)[2:], place[2:])
                self.expect_bounds(number, self.bounds(number))
        self.screen.plug_in()
        self.set_bounds(1, place)
        self.expect_bounds(1, place)
        self.windows.maximize(1)
        self.expect_bounds(1, self.right)


class ScaledStates(States):
    scale = 2


class ScaledUnplugged(Unplugged):
    scale = 2


@needs_xfwm4
class Xfwm4States(States):
    window_manager = XFWM4


@needs_xfwm4
class Xfwm4Unplugged(Unplugged):
    window_manager = XFWM4


if __name__ == "__main__":
    unittest.main()
