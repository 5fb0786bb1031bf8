"""Two monitors, one of which is unplugged and plugged in again. Only root has these."""

import unittest

from programs import TwoMonitors
from support import BrowserTestCase

LEFT, RIGHT = TwoMonitors.LEFT, TwoMonitors.RIGHT
# Of a window on each of them.
PLACES = {LEFT: (100, 80, 401, 300), RIGHT: (1400, 90, 400, 301)}


class Monitors(BrowserTestCase):
    @classmethod
    def start_screen(cls):
        return TwoMonitors()

    def set_bounds(self, number, bounds):
        x, y, width, height = bounds
        self.windows.set_bounds(number, bounds=dict(x=x, y=y, width=width, height=height))

    def expect_bounds(self, number, bounds):
        self.assertEqual(self.seen(number).bounds(), bounds)
        self.assertEqual(self.bounds(number), bounds)


class States(Monitors):
    def test_fill_the_monitor_of_the_window_and_come_back_to_it(self):
        for monitor, place in PLACES.items():
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
        for monitor, place in PLACES.items():
            self.set_bounds(1, place)
            self.windows.center_window(1)
            x, y, width, height = monitor
            _, _, own_width, own_height = place
            left, top = x + (width - own_width) // 2, y + (height - own_height) // 2
            self.expect_bounds(1, (left, top, own_width, own_height))

    def test_bounds_across_both_are_exact(self):
        for bounds in [(1200, 100, 333, 222), (-50, 900, 300, 200), (2200, 700, 301, 201)]:
            self.set_bounds(1, bounds)
            self.expect_bounds(1, bounds)


class Unplugged(Monitors):
    arguments = ("--windows", "5")

    def is_on_the_left(self, number):
        """The whole of it."""
        x, y, width, height = self.seen(number).bounds()
        return x >= 0 and y >= 0 and x + width <= LEFT[2] and y + height <= LEFT[3]

    def test_no_window_is_lost_when_its_monitor_is_unplugged(self):
        numbers = range(1, 6)
        for number in numbers:
            self.seen(number)
            self.set_bounds(number, PLACES[RIGHT])
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
                self.assertEqual(self.seen(number).bounds()[2:], PLACES[RIGHT][2:])
                self.assertEqual(self.bounds(number), self.seen(number).bounds())
        self.screen.plug_in()
        self.set_bounds(1, PLACES[RIGHT])
        self.expect_bounds(1, PLACES[RIGHT])
        self.windows.maximize(1)
        self.expect_bounds(1, RIGHT)


if __name__ == "__main__":
    unittest.main()
