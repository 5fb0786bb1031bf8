"""States and activation: another program sees what the reply says, right after it."""

import unittest

from observer import ICONIC, NORMAL, WITHDRAWN
from support import BrowserTestCase, PageTestCase
from torvane import Code


class States(BrowserTestCase):
    arguments = ("--windows", "2")

    def test_hide_and_show(self):
        seen = self.seen(2)
        self.windows.hide(2)
        self.assertEqual(seen.wm_state(), WITHDRAWN)
        self.assertFalse(seen.is_viewable())
        self.assertNotIn(2, self.observer.numbers())
        self.assertFalse(self.windows.is_visible(2))
        self.windows.show(2)
        self.assertEqual(seen.wm_state(), NORMAL)
        self.assertTrue(seen.is_viewable())
        self.assertTrue(seen.is_active())
        self.assertTrue(self.windows.is_visible(2))

    def test_hiding_the_active_window_activates_the_next(self):
        self.windows.hide(2)
        self.assertTrue(self.seen(1).is_active())
        self.assertTrue(self.windows.is_active(1))

    def test_show_brings_back_a_minimized_window(self):
        self.windows.minimize(1)
        self.windows.show(1)
        self.assertEqual(self.seen(1).wm_state(), NORMAL)
        self.assertTrue(self.seen(1).is_active())

    def test_activate(self):
        self.assertTrue(self.seen(2).is_active())
        self.windows.activate(1)
        self.assertTrue(self.seen(1).is_active())
        self.assertTrue(self.windows.is_active(1))
        self.assertFalse(self.windows.is_active(2))
        self.windows.minimize(1)
        self.windows.activate(1)
        self.assertEqual(self.seen(1).wm_state(), NORMAL)
        self.assertTrue(self.seen(1).is_active())

    def test_activating_a_hidden_window_fails(self):
        self.windows.hide(1)
        self.expect_error(
            Code.FAILED_PRECONDITION, "Window 1 is hidden: show it first.", self.windows.activate, 1
        )

    def test_deactivate(self):
        self.windows.deactivate(2)
        self.assertTrue(self.seen(1).is_active())
        self.assertFalse(self.windows.is_active(2))
        # Does nothing to a window that is not active.
        self.windows.deactivate(2)
        self.assertTrue(self.seen(1).is_active())

    def test_deactivating_the_only_window_leaves_none_active(self):
        self.windows.hide(1)
        self.windows.deactivate(2)
        self.assertFalse(self.windows.is_active(2))
        self.assertNotEqual(self.observer.active(), self.seen(2).xid)

    def test_maximize_and_restore(self):
        before = self.seen().bounds()
        self.windows.maximize(1)
        self.assertTrue(self.seen().is_maximized())
        self.assertEqual(self.seen().bounds(), self.observer.work_area())
        self.assertEqual(self.bounds(), self.observer.work_area())
        self.assertTrue(self.windows.is_maximized(1))
        self.windows.restore(1)
        self.assertFalse(self.seen().is_maximized())
        self.assertEqual(self.seen().bounds(), before)
        self.assertFalse(self.windows.is_maximized(1))

    def test_minimize_and_restore(self):
        self.windows.maximize(2)
        self.windows.minimize(2)
        self.assertEqual(self.seen(2).wm_state(), ICONIC)
        self.assertFalse(self.seen(2).is_viewable())
        self.assertTrue(self.windows.is_minimized(2))
        self.assertFalse(self.windows.is_maximized(2))
        self.assertFalse(self.windows.is_visible(2))
        self.assertTrue(self.seen(1).is_active())
        self.windows.restore(2)
        self.assertEqual(self.seen(2).wm_state(), NORMAL)
        self.assertTrue(self.seen(2).is_maximized())
        self.assertTrue(self.seen(2).is_active())
        self.assertTrue(self.windows.is_maximized(2))

    def test_full_screen(self):
        before = self.seen().bounds()
        self.windows.maximize(1)
        self.windows.enter_full_screen(1)
        self.assertTrue(self.seen().is_full_screen())
        self.assertEqual(self.seen().bounds(), self.observer.screen_size())
        self.assertTrue(self.windows.is_full_screen(1))
        self.assertFalse(self.windows.is_maximized(1))
        self.windows.exit_full_screen(1)
        self.assertFalse(self.seen().is_full_screen())
        self.assertTrue(self.seen().is_maximized())
        self.assertTrue(self.windows.is_maximized(1))
        self.windows.restore(1)
        self.assertEqual(self.seen().bounds(), before)

    def test_a_hidden_window_keeps_its_state(self):
        self.seen(1)
        self.windows.hide(1)
        self.windows.maximize(1)
        self.assertTrue(self.windows.is_maximized(1))
        self.assertEqual(self.seen(1).wm_state(), WITHDRAWN)
        self.windows.show(1)
        self.assertTrue(self.seen(1).is_maximized())
        self.windows.hide(1)
        self.windows.restore(1)
        self.windows.show(1)
        self.assertFalse(self.seen(1).is_maximized())

    def test_focus_gives_the_page_the_keyboard(self):
        self.windows.focus(1)
        self.assertTrue(self.seen(1).is_active())
        self.browser.say("list")
        self.assertIn("its page has the keyboard", str(self.browser._lines.next()))

    def test_close(self):
        seen = self.seen(2)
        self.assertTrue(self.windows.close(2))
        self.assertFalse(seen.exists())
        self.assertEqual(self.observer.numbers(), [1])
        self.assertTrue(self.seen(1).is_active())
        self.expect_error(Code.NOT_FOUND, "No window 2.", self.windows.is_visible, 2)

    def test_a_window_that_another_program_unmaps_is_invisible_until_it_is_shown(self):
        seen = self.seen(1)
        self.observer.xdotool("windowunmap", seen.xid)
        self.observer.wait_until(lambda: seen.wm_state() == WITHDRAWN, "the end of it")
        self.assertFalse(self.windows.is_visible(1))
        self.windows.show(1)
        self.assertTrue(seen.is_viewable())
        self.assertTrue(self.windows.is_visible(1))

    def test_unknown_window(self):
        self.expect_error(Code.NOT_FOUND, "No window 99.", self.windows.maximize, 99)


class HeaderBar(BrowserTestCase):
    def test_a_double_click_on_it_maximizes(self):
        seen = self.seen()
        seen.click(300, 15, times=2)
        self.observer.wait_until(seen.is_maximized, "the window, maximized")


    def test_its_buttons_maximize_restore_and_minimize(self):
        seen = self.seen()
        maximize, minimize = 38, 62
        self.click_button(maximize)
        self.observer.wait_until(seen.is_maximized, "the window, maximized")
        # The bar is as wide as the window when the change is over.
        self.windows.set_title(1, title="maximized")
        self.click_button(maximize)
        self.observer.wait_until(lambda: not seen.is_maximized(), "the window, restored")
        self.windows.set_title(1, title="restored")
        self.click_button(minimize)
        self.observer.wait_until(lambda: seen.wm_state() == ICONIC, "the window, minimized")

    def click_button(self, from_the_right):
        _, _, width, _ = self.seen().bounds()
        self.seen().click(width - from_the_right, 15)


class Focus(PageTestCase):
    page = "<title>page</title><script>onkeydown = event => document.title = event.key</script>"

    def test_takes_the_keyboard_from_the_find_bar(self):
        self.wait_for_title("page")
        self.browser.say("command 1 find")
        self.browser.expect("Window 1 executes find: nobody answers for it.")
        self.windows.focus(1)
        self.observer.key("x")
        self.wait_for_title("x")


class Independence(BrowserTestCase):
    arguments = ("--windows", "3")

    def test_an_independent_window_is_not_activated_when_another_goes(self):
        self.windows.set_activation_independence_enabled(2, enabled=True)
        self.assertFalse(self.seen(2).takes_focus())
        self.assertTrue(self.windows.is_activation_independence_enabled(2))
        self.windows.hide(3)
        self.assertTrue(self.seen(1).is_active())
        self.windows.activate(2)
        self.assertTrue(self.seen(2).is_active())
        self.windows.set_activation_independence_enabled(2, enabled=False)
        self.assertTrue(self.seen(2).takes_focus())

    def test_none_is_when_only_independent_ones_are_left(self):
        for number in (1, 2):
            self.windows.set_activation_independence_enabled(number, enabled=True)
        others = {self.seen(1).xid, self.seen(2).xid}
        for go in (self.windows.hide, self.windows.minimize, self.windows.close):
            with self.subTest(go.__name__):
                self.windows.show(3)
                self.assertTrue(self.seen(3).is_active())
                go(3)
                self.assertNotIn(self.observer.active(), others)
                self.assertFalse(self.windows.is_active(1) or self.windows.is_active(2))

    def test_a_click_activates_it(self):
        self.windows.set_activation_independence_enabled(2, enabled=True)
        self.windows.activate(1)
        for number in (1, 3):
            self.set_bounds(number, (600, 500, 300, 300))
        self.set_bounds(2, (0, 0, 300, 300))
        self.seen(2).click(150, 200)
        seen = self.seen(2)
        self.observer.wait_until(seen.is_active, "activation by a click")


if __name__ == "__main__":
    unittest.main()
