"""All unary methods: another program sees what the reply says, right after it."""

import unittest

from observer import ICONIC, NORMAL, WITHDRAWN
from programs import Compositor
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

    def test_unknown_window(self):
        self.expect_error(Code.NOT_FOUND, "No window 99.", self.windows.maximize, 99)


class Bounds(BrowserTestCase):
    def test_position_and_size(self):
        self.windows.set_position(1, x=30, y=40)
        left, top, width, height = self.seen().bounds()
        self.assertEqual((left, top), (30, 40))
        self.windows.set_position(1, y=50)
        self.assertEqual(self.seen().bounds(), (30, 50, width, height))
        self.windows.set_size(1, width=801, height=599)
        self.assertEqual(self.seen().bounds(), (30, 50, 801, 599))
        self.windows.set_size(1, height=600)
        self.assertEqual(self.seen().bounds(), (30, 50, 801, 600))
        self.assertEqual(self.bounds(), (30, 50, 801, 600))

    def test_any_bounds_are_exact(self):
        for wanted in [
            (0, 0, 640, 480),
            (-200, -100, 641, 481),
            (1200, 980, 333, 222),
            (5, 6, 2000, 1700),
            (-1999, -1400, 2400, 1601),
        ]:
            with self.subTest(wanted):
                x, y, width, height = wanted
                self.windows.set_bounds(1, bounds=dict(x=x, y=y, width=width, height=height))
                self.assertEqual(self.seen().bounds(), wanted)
                self.assertEqual(self.bounds(), wanted)

    def test_less_than_the_smallest_size_gives_the_smallest(self):
        self.windows.set_bounds(1, bounds=dict(x=10, y=10, width=1, height=0))
        self.assertEqual(self.seen().bounds(), (10, 10, 160, 120))

    def test_what_x_cannot_express_is_refused(self):
        before = self.seen().bounds()
        self.expect_error(
            Code.OUT_OF_RANGE, "more than X11 can express", self.windows.set_position, 1, x=40000
        )
        self.expect_error(
            Code.OUT_OF_RANGE, "more than X11 can express", self.windows.set_size, 1, width=1 << 30
        )
        self.assertEqual(self.seen().bounds(), before)

    def test_where_openbox_puts_no_window_is_refused_and_changes_nothing(self):
        before = self.seen().bounds()
        self.expect_error(
            Code.FAILED_PRECONDITION,
            "Openbox put window 1 at 1264,1012 with 160 x 120 pixels instead.",
            self.windows.set_bounds,
            1,
            bounds=dict(x=3000, y=3000, width=160, height=120),
        )
        self.assertEqual(self.seen().bounds(), before)
        self.assertEqual(self.bounds(), before)

    def test_a_negative_size_is_refused(self):
        self.expect_error(
            Code.INVALID_ARGUMENT, "it must not be negative", self.windows.set_size, 1, width=-1
        )

    def test_center(self):
        self.windows.set_size(1, width=400, height=300)
        self.windows.center_window(1)
        x, y, width, height = self.observer.work_area()
        self.assertEqual(
            self.seen().bounds(), (x + (width - 400) // 2, y + (height - 300) // 2, 400, 300)
        )

    def test_a_maximized_window_gets_bounds_when_it_is_normal_again(self):
        self.windows.maximize(1)
        self.windows.set_bounds(1, bounds=dict(x=11, y=12, width=500, height=400))
        self.assertEqual(self.seen().bounds(), self.observer.work_area())
        self.windows.restore(1)
        self.assertEqual(self.seen().bounds(), (11, 12, 500, 400))

    def test_so_it_does_when_the_user_makes_it_normal(self):
        self.windows.maximize(1)
        self.windows.set_bounds(1, bounds=dict(x=11, y=12, width=500, height=400))
        seen = self.seen()
        self.observer.unmaximize(seen)
        self.observer.wait_until(lambda: seen.bounds() == (11, 12, 500, 400), "the bounds")
        self.assertFalse(self.windows.is_maximized(1))

    def test_a_hidden_window_keeps_its_bounds(self):
        self.windows.set_bounds(1, bounds=dict(x=-20, y=33, width=555, height=444))
        self.windows.hide(1)
        self.assertEqual(self.bounds(), (-20, 33, 555, 444))
        self.windows.show(1)
        self.assertEqual(self.seen().bounds(), (-20, 33, 555, 444))
        self.windows.hide(1)
        self.windows.set_position(1, x=77, y=78)
        self.windows.show(1)
        self.assertEqual(self.seen().bounds(), (77, 78, 555, 444))

    def test_a_minimized_window_says_where_it_will_come_back(self):
        self.windows.minimize(1)
        self.windows.set_bounds(1, bounds=dict(x=21, y=22, width=510, height=410))
        self.assertEqual(self.bounds(), (21, 22, 510, 410))
        self.windows.restore(1)
        self.assertEqual(self.seen().bounds(), (21, 22, 510, 410))

    def test_what_the_user_does_is_where_the_next_change_begins(self):
        self.observer.xdotool("windowmove", "--sync", self.seen().xid, 61, 62)
        self.assertEqual(self.bounds()[:2], (61, 62))
        self.windows.set_position(1, y=99)
        self.assertEqual(self.seen().bounds()[:2], (61, 99))


class Properties(BrowserTestCase):
    # Of the header bar; the page is below.
    HEADER = 28

    def setUp(self):
        super().setUp()
        # An open window need not have been painted; one whose title is set has.
        self.windows.set_title(1, title="painted")

    def header(self):
        _, _, width, _ = self.seen().bounds()
        return self.seen().pixels((0, 0, width, self.HEADER))

    def test_title(self):
        self.windows.set_title(1, title="Grüße, 日本")
        self.assertEqual(self.seen().title(), "Grüße, 日本")
        self.assertEqual(self.windows.get_title(1), "Grüße, 日本")
        self.windows.set_title(1)
        self.assertEqual(self.seen().title(), "")
        self.assertEqual(self.windows.get_title(1), "")

    def test_title_is_shown_in_the_header_bar(self):
        self.windows.set_title(1, title="MMMM")
        before = self.header()
        self.windows.set_title(1, title="iiii")
        self.assertNotEqual(self.header(), before)

    def test_title_without_control_and_direction_characters(self):
        self.windows.set_title(1, title="a\x1b]0;b\x07\u202ec\nd\u2066e")
        self.assertEqual(self.seen().title(), "a]0;bc de")
        self.assertEqual(self.windows.get_title(1), "a]0;bc de")

    def test_longest_title(self):
        self.windows.set_title(1, title="€" * 1365)
        self.assertEqual(self.seen().title(), "€" * 1365)
        self.expect_error(
            Code.INVALID_ARGUMENT, "at most 4096", self.windows.set_title, 1, title="x" * 4097
        )

    def test_title_visible(self):
        self.windows.set_title(1, title="Some title")
        with_title = self.header()
        self.windows.set_window_title_visible(1, visible=False)
        self.assertFalse(self.windows.is_window_title_visible(1))
        self.assertNotEqual(self.header(), with_title)
        self.assertEqual(self.seen().title(), "Some title")
        self.windows.set_window_title_visible(1, visible=True)
        self.assertTrue(self.windows.is_window_title_visible(1))
        self.assertEqual(self.header(), with_title)

    def test_title_bar_visible(self):
        with_bar = self.header()
        bounds = self.seen().bounds()
        self.windows.set_window_titlebar_visible(1, visible=False)
        self.assertFalse(self.windows.is_window_titlebar_visible(1))
        self.assertNotEqual(self.header(), with_bar)
        self.assertEqual(self.seen().bounds(), bounds)
        self.windows.set_window_titlebar_visible(1, visible=True)
        self.assertTrue(self.windows.is_window_titlebar_visible(1))
        self.assertEqual(self.header(), with_bar)

    def test_buttons(self):
        for kind in ["KIND_CLOSE", "KIND_MINIMIZE", "KIND_MAXIMIZE"]:
            with self.subTest(kind):
                before = self.header()
                self.windows.set_window_button_visible(1, kind=kind, visible=False)
                self.assertFalse(self.windows.is_window_button_visible(1, kind=kind))
                self.assertNotEqual(self.header(), before)
                self.windows.set_window_button_visible(1, kind=kind, visible=True)
                self.assertTrue(self.windows.is_window_button_visible(1, kind=kind))
                self.assertEqual(self.header(), before)

    def test_style_flags_are_kept(self):
        self.windows.set_window_style_flags(1, titled=True, closable=True)
        flags = self.windows.get_window_style_flags(1)
        self.assertEqual((flags.titled, flags.closable), (True, True))
        self.assertFalse(flags.minimizable or flags.resizable or flags.utility)

    def test_untitled_has_no_header_bar(self):
        before = self.header()
        self.windows.set_window_style_flags(1, closable=True, minimizable=True, resizable=True)
        self.assertNotEqual(self.header(), before)

    def test_full_size_content_puts_the_page_beneath_the_bar(self):
        flags = dict(titled=True, closable=True, minimizable=True, resizable=True)
        bounds = self.seen().bounds()
        self.windows.set_window_style_flags(1, full_size_content=True, **flags)
        self.assertTrue(self.windows.get_window_style_flags(1).full_size_content)
        self.assertEqual(self.seen().bounds(), bounds)

    def test_not_resizable(self):
        x, y, width, height = self.seen().bounds()
        self.windows.set_window_style_flags(1, titled=True)
        hints = self.seen().size_hints()
        self.assertEqual((hints.min_width, hints.min_height), (width, height))
        self.assertEqual((hints.max_width, hints.max_height), (width, height))
        # The service may all the same.
        self.windows.set_size(1, width=500, height=401)
        self.assertEqual(self.seen().bounds(), (x, y, 500, 401))
        self.windows.maximize(1)
        self.assertEqual(self.seen().bounds(), self.observer.work_area())
        self.windows.restore(1)
        self.assertEqual(self.seen().bounds(), (x, y, 500, 401))

    def test_utility(self):
        self.windows.set_window_style_flags(1, titled=True, utility=True)
        self.assertEqual(self.seen().window_types(), {"_NET_WM_WINDOW_TYPE_UTILITY"})
        self.assertIn("_NET_WM_STATE_SKIP_TASKBAR", self.seen().states())
        self.assertTrue(self.seen().is_active())
        self.windows.set_window_style_flags(1, titled=True)
        self.assertEqual(self.seen().window_types(), {"_NET_WM_WINDOW_TYPE_NORMAL"})
        self.assertNotIn("_NET_WM_STATE_SKIP_TASKBAR", self.seen().states())

    def test_display_policy(self):
        first = self.seen().workspace()
        self.windows.set_window_display_policy(1, policy="POLICY_ALL_WORKSPACES")
        self.assertEqual(self.seen().workspace(), 0xFFFFFFFF)
        policy = self.windows.get_window_display_policy(1).policy
        self.assertEqual(policy, 2)
        self.windows.set_window_display_policy(1, policy="POLICY_ONE_WORKSPACE")
        self.assertEqual(self.seen().workspace(), first)

    def test_current_workspace(self):
        self.windows.set_window_display_policy(1, policy="POLICY_CURRENT_WORKSPACE")
        self.observer.xdotool("set_desktop", 1)
        self.observer.wait_until(lambda: self.observer.workspace() == 1, "the other workspace")
        self.windows.activate(1)
        self.assertEqual(self.seen().workspace(), 1)
        self.assertEqual(self.observer.workspace(), 1)
        self.assertTrue(self.seen().is_active())

    def test_animation(self):
        self.windows.set_window_animation_behavior(1, behavior="BEHAVIOR_NONE")
        self.windows.set_window_animation_behavior(1, behavior="BEHAVIOR_DEFAULT")
        for behavior in ["BEHAVIOR_DOCUMENT", "BEHAVIOR_UTILITY", "BEHAVIOR_ALERT"]:
            self.expect_error(
                Code.UNIMPLEMENTED,
                "X11 has no way to choose how a window is animated",
                self.windows.set_window_animation_behavior,
                1,
                behavior=behavior,
            )

    def test_vibrancy_needs_a_compositor(self):
        self.windows.set_vibrancy(1, material="MATERIAL_NONE")
        self.expect_error(
            Code.FAILED_PRECONDITION,
            "No compositor is running",
            self.windows.set_vibrancy,
            1,
            material="MATERIAL_WINDOW",
        )


class Vibrancy(BrowserTestCase):
    arguments = ("--windows", "2")

    def start_window_manager(self):
        super().start_window_manager()
        compositor = Compositor(self.screen)
        self.addCleanup(compositor.close)

    def test_what_is_behind_shows_through(self):
        everything = dict(x=0, y=0, width=400, height=400)
        for number in (1, 2):
            self.windows.set_bounds(number, bounds=everything)
        page = (100, 100, 1, 1)
        opaque = self.observer.screen_pixels(page)
        self.windows.set_vibrancy(2, material="MATERIAL_WINDOW")
        self.windows.hide(1)
        self.observer.wait_until_pixels(lambda: self.observer.screen_pixels(page) != opaque)
        self.windows.set_vibrancy(2, material="MATERIAL_NONE")
        self.observer.wait_until_pixels(lambda: self.observer.screen_pixels(page) == opaque)


class PageTitles(PageTestCase):
    page = "<title>In&#10;box \u202e\u009b\x1b[2J!</title>"

    def test_are_made_harmless(self):
        self.wait_for_title("In box [2J!")
        self.assertEqual(self.windows.get_title(1), "In box [2J!")

    def test_give_way_to_the_clients(self):
        self.wait_for_title("In box [2J!")
        self.windows.set_title(1, title="mine")
        self.browser.say("command 1 reload")
        self.browser.expect("Window 1 executes reload: nobody answers for it.")
        self.assertEqual(self.seen().title(), "mine")
        self.assertEqual(self.windows.get_title(1), "mine")


class Scaled(BrowserTestCase):
    """Two X pixels for each of the service's."""

    environment = {"GDK_SCALE": "2"}

    def test_bounds_are_exact(self):
        for wanted in [(0, 0, 300, 200), (-33, 17, 401, 301), (101, 99, 333, 222)]:
            x, y, width, height = wanted
            self.windows.set_bounds(1, bounds=dict(x=x, y=y, width=width, height=height))
            pixels = tuple(2 * length for length in wanted)
            self.assertEqual(self.seen().bounds(), pixels)
            self.assertEqual(self.bounds(), wanted)

    def test_states(self):
        before = self.seen().bounds()
        self.windows.maximize(1)
        self.assertEqual(self.seen().bounds(), self.observer.work_area())
        self.windows.restore(1)
        self.assertEqual(self.seen().bounds(), before)
        self.windows.hide(1)
        self.windows.show(1)
        self.assertEqual(self.seen().bounds(), before)


class HeaderBar(BrowserTestCase):
    def test_a_double_click_on_it_maximizes(self):
        seen = self.seen()
        seen.click(300, 15, times=2)
        self.observer.wait_until(seen.is_maximized, "the window, maximized")


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
            self.windows.set_bounds(number, bounds=dict(x=600, y=500, width=300, height=300))
        self.windows.set_bounds(2, bounds=dict(x=0, y=0, width=300, height=300))
        self.seen(2).click(150, 200)
        seen = self.seen(2)
        self.observer.wait_until(seen.is_active, "activation by a click")


if __name__ == "__main__":
    unittest.main()
