"""Titles, styles and more: another program sees what the reply says, right after it."""

import unittest

from programs import Compositor
from support import BrowserTestCase, PageTestCase
from torvane import Code


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

    def test_what_the_header_bar_shows_changes_on_another_workspace_too(self):
        seen = self.seen()
        # Tests before this one may have left the first.
        self.observer.xdotool("set_desktop", 1 - self.observer.workspace())
        self.observer.wait_until(lambda: not seen.is_viewable(), "the other workspace")
        self.windows.set_title(1, title="elsewhere")
        self.assertEqual(seen.title(), "elsewhere")
        self.windows.set_window_title_visible(1, visible=False)
        self.windows.set_window_style_flags(1, titled=True)

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


class FullSizeContent(PageTestCase):
    page = """
      <script>
        onresize = () => document.title = `${innerHeight} high`;
        onresize();
      </script>"""

    def test_puts_the_page_beneath_the_bar(self):
        flags = dict(titled=True, closable=True, minimizable=True, resizable=True)
        bounds = (0, 0, 640, 480)
        self.set_bounds(1, bounds)
        below = [f"{480 - header} high" for header in range(1, 60)]
        seen = self.seen()
        self.observer.wait_until(lambda: seen.title() in below, "a page below the header bar")
        title = seen.title()
        self.windows.set_window_style_flags(1, full_size_content=True, **flags)
        self.assertTrue(self.windows.get_window_style_flags(1).full_size_content)
        self.expect_bounds(1, bounds)
        self.wait_for_title("480 high")
        self.windows.set_window_style_flags(1, **flags)
        self.wait_for_title(title)


class Vibrancy(BrowserTestCase):
    arguments = ("--windows", "2")

    def start_window_manager(self):
        super().start_window_manager()
        compositor = Compositor(self.screen)
        self.addCleanup(compositor.close)

    def test_what_is_behind_shows_through(self):
        for number in (1, 2):
            self.set_bounds(number, (0, 0, 400, 400))
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


if __name__ == "__main__":
    unittest.main()
