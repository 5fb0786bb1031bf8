"""The same under xfwm4, which does much of it otherwise than openbox."""

import unittest

from observer import ICONIC, NORMAL, WITHDRAWN
from programs import TIMEOUT, XFWM4
from support import USER, BrowserTestCase, needs_xfwm4
from torvane import Code


@needs_xfwm4
class Xfwm4(BrowserTestCase):
    window_manager = XFWM4
    arguments = ("--windows", "2")

    def test_states(self):
        seen, before = self.seen(1), self.seen(1).bounds()
        self.windows.maximize(1)
        self.assertTrue(seen.is_maximized())
        self.assertEqual(seen.bounds(), self.observer.work_area())
        self.windows.enter_full_screen(1)
        self.assertTrue(seen.is_full_screen())
        self.assertEqual(seen.bounds(), self.observer.screen_size())
        self.windows.minimize(1)
        self.assertEqual(seen.wm_state(), ICONIC)
        self.assertTrue(self.windows.is_minimized(1))
        self.windows.restore(1)
        self.assertEqual((seen.wm_state(), seen.is_active()), (NORMAL, True))
        self.assertTrue(self.windows.is_full_screen(1))
        self.windows.exit_full_screen(1)
        self.assertEqual(seen.bounds(), self.observer.work_area())
        self.windows.restore(1)
        self.assertEqual(seen.bounds(), before)
        self.windows.hide(1)
        self.assertEqual(seen.wm_state(), WITHDRAWN)
        self.assertTrue(self.seen(2).is_active())
        self.windows.show(1)
        self.assertEqual((seen.wm_state(), seen.is_active()), (NORMAL, True))
        self.assertEqual(seen.bounds(), before)

    def test_activation(self):
        for number in (1, 2, 1):
            self.windows.activate(number)
            self.assertTrue(self.seen(number).is_active())
        self.windows.deactivate(1)
        self.assertTrue(self.seen(2).is_active())
        self.windows.set_activation_independence_enabled(1, enabled=True)
        self.windows.activate(1)
        self.assertTrue(self.seen(1).is_active())
        self.windows.activate(2)
        self.assertFalse(self.seen(1).is_active())

    def test_bounds_are_exact_or_refused(self):
        for bounds in [(0, 0, 640, 480), (-200, 100, 641, 481), (5, 6, 2000, 1700)]:
            with self.subTest(bounds):
                self.set_bounds(1, bounds)
                self.expect_bounds(1, bounds)
        before = self.seen(1).bounds()
        self.expect_error(
            Code.FAILED_PRECONDITION,
            "Xfwm4 ",
            self.set_bounds,
            1,
            (3000, 3000, 160, 120),
        )
        self.assertEqual(self.seen(1).bounds(), before)

    def test_properties(self):
        self.windows.set_title(1, title="Inbox")
        self.assertEqual(self.seen(1).title(), "Inbox")
        self.windows.set_window_display_policy(1, policy="POLICY_ALL_WORKSPACES")
        self.assertEqual(self.seen(1).workspace(), 0xFFFFFFFF)
        self.windows.set_window_style_flags(1, titled=True, utility=True)
        self.assertEqual(self.seen(1).window_types(), {"_NET_WM_WINDOW_TYPE_UTILITY"})
        self.assertIn("_NET_WM_STATE_SKIP_TASKBAR", self.seen(1).states())

    def test_closing(self):
        events = self.windows.closed(2)
        self.windows.activate(2)
        self.observer.key("alt+F4")
        event = events.get(TIMEOUT)
        self.assertEqual((event.browser_id.value, event.reason), (2, USER))
        self.assertEqual(self.observer.numbers(), [1])


if __name__ == "__main__":
    unittest.main()
