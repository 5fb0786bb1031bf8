"""Bounds, at both scales: another program sees what the reply says, right after it."""

import unittest

from programs import Screen
from support import OneBrowserTestCase
from torvane import Code

SMALLEST = (160, 120)


class Bounds(OneBrowserTestCase):
    def setUp(self):
        super().setUp()
        self.set_bounds(1, (40, 30, 640, 480))

    def test_position_and_size(self):
        self.windows.set_position(1, x=30, y=40)
        left, top, width, height = self.bounds()
        self.assertEqual((left, top), (30, 40))
        self.windows.set_position(1, y=51)
        self.expect_bounds(1, (30, 51, width, height))
        self.windows.set_size(1, width=801, height=599)
        self.expect_bounds(1, (30, 51, 801, 599))
        self.windows.set_size(1, height=600)
        self.expect_bounds(1, (30, 51, 801, 600))

    def test_any_bounds_are_exact(self):
        for bounds in [
            (0, 0, 640, 480),
            (-33, 17, 401, 301),
            (101, 99, *SMALLEST),
            (-200, -100, 641, 481),
            (1200, 980, 333, 222),
            (5, 6, 2000, 1700),
            (-1999, -1400, 2400, 1601),
        ]:
            with self.subTest(bounds):
                self.set_bounds(1, bounds)
                self.expect_bounds(1, bounds)

    def test_less_than_the_smallest_size_gives_the_smallest(self):
        self.set_bounds(1, (10, 10, 1, 0))
        self.expect_bounds(1, (10, 10, *SMALLEST))

    def test_what_x_cannot_express_is_refused(self):
        before = self.bounds()
        for change, fields in [
            (self.windows.set_position, dict(x=40000 // self.scale)),
            (self.windows.set_position, dict(y=-(1 << 31))),
            (self.windows.set_size, dict(width=70000 // self.scale)),
            (self.windows.set_size, dict(height=(1 << 31) - 1)),
        ]:
            with self.subTest(**fields):
                self.expect_error(
                    Code.OUT_OF_RANGE, "more than X11 can express", change, 1, **fields
                )
                self.expect_bounds(1, before)

    def test_where_openbox_puts_no_window_is_refused_and_changes_nothing(self):
        before = self.bounds()
        width, height = (length * self.scale for length in SMALLEST)
        # A tenth of it stays on the screen.
        _, _, right, bottom = self.observer.screen_size()
        left, top = right - width // 10, bottom - height // 10
        self.expect_error(
            Code.FAILED_PRECONDITION,
            f"Openbox put window 1 at {left},{top} with {width} x {height} pixels instead.",
            self.set_bounds,
            1,
            (3000, 3000, *SMALLEST),
        )
        self.expect_bounds(1, before)

    def test_a_negative_size_is_refused(self):
        self.expect_error(
            Code.INVALID_ARGUMENT, "it must not be negative", self.windows.set_size, 1, width=-1
        )

    def test_center(self):
        for size in [(400, 300), (401, 299)]:
            with self.subTest(size):
                width, height = size
                self.windows.set_size(1, width=width, height=height)
                self.windows.center_window(1)
                x, y, room, height_of_room = self.work_area()
                centre = (x + (room - width) // 2, y + (height_of_room - height) // 2)
                self.expect_bounds(1, (*centre, *size))

    def test_states_fill_the_screen_and_come_back(self):
        self.set_bounds(1, (-33, 17, 401, 301))
        self.windows.maximize(1)
        self.expect_bounds(1, self.work_area())
        self.windows.enter_full_screen(1)
        self.expect_bounds(1, self.work_area())
        self.windows.exit_full_screen(1)
        self.windows.restore(1)
        self.expect_bounds(1, (-33, 17, 401, 301))

    def test_a_maximized_window_gets_bounds_when_it_is_normal_again(self):
        self.windows.maximize(1)
        self.set_bounds(1, (11, 12, 500, 401))
        self.expect_bounds(1, self.work_area())
        self.windows.restore(1)
        self.expect_bounds(1, (11, 12, 500, 401))

    def test_so_it_does_when_the_user_makes_it_normal(self):
        self.windows.maximize(1)
        self.set_bounds(1, (11, 12, 500, 401))
        seen, wanted = self.seen(), self.pixels((11, 12, 500, 401))
        self.observer.unmaximize(seen)
        self.observer.wait_until(lambda: seen.bounds() == wanted, "the bounds")
        self.assertFalse(self.windows.is_maximized(1))

    def test_bounds_that_are_refused_when_they_are_due_are_not_asked_for_again(self):
        self.windows.maximize(1)
        self.set_bounds(1, (-5000, -5000, 500, 401))
        seen = self.seen()
        self.observer.unmaximize(seen)
        size = self.pixels((0, 0, 500, 401))[2:]
        self.observer.wait_until(lambda: seen.bounds()[2:] == size, "the size")
        # Behind that.
        self.windows.set_title(1, title="first")
        users = self.pixels((100, 101, 500, 401))
        self.observer.xdotool("windowmove", seen.xid, *users[:2])
        self.observer.wait_until(lambda: seen.bounds() == users, "the user's bounds")
        self.windows.set_title(1, title="second")
        self.expect_bounds(1, (100, 101, 500, 401))

    def test_a_hidden_window_keeps_its_bounds(self):
        self.set_bounds(1, (-20, 33, 555, 444))
        self.windows.hide(1)
        self.assertEqual(self.bounds(), (-20, 33, 555, 444))
        self.windows.show(1)
        self.expect_bounds(1, (-20, 33, 555, 444))
        self.windows.hide(1)
        self.windows.set_position(1, x=77, y=78)
        self.windows.show(1)
        self.expect_bounds(1, (77, 78, 555, 444))

    def test_a_minimized_window_says_where_it_will_come_back(self):
        self.windows.minimize(1)
        self.set_bounds(1, (21, 22, 510, 411))
        self.assertEqual(self.bounds(), (21, 22, 510, 411))
        self.windows.restore(1)
        self.expect_bounds(1, (21, 22, 510, 411))

    def test_what_the_user_does_is_where_the_next_change_begins(self):
        left, top = self.scale * 61, self.scale * 62
        self.observer.xdotool("windowmove", "--sync", self.seen().xid, left, top)
        self.assertEqual(self.bounds()[:2], (61, 62))
        self.windows.set_position(1, y=99)
        self.expect_bounds(1, (61, 99, *self.bounds()[2:]))


class Scaled(Bounds):
    scale = 2

    @classmethod
    def start_screen(cls):
        return Screen("2560x2048x24")


if __name__ == "__main__":
    unittest.main()
