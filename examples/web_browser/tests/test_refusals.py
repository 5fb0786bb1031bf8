"""Window managers that refuse, hang or are not there: who it was, and at once."""

import asyncio
import concurrent.futures
import signal
import unittest

import torvane
from observer import ICONIC, WITHDRAWN
from programs import TIMEOUT
from support import BrowserTestCase
from torvane import Code


class NoWindowManager(BrowserTestCase):
    def setUp(self):
        super().setUp()
        self.before = self.seen().bounds()
        self.manager.kill()

    def test_changes_are_unavailable_and_reading_goes_on(self):
        none = "There is no window manager to "
        self.expect_error(Code.UNAVAILABLE, none + "maximize window 1.", self.windows.maximize, 1)
        self.expect_error(Code.UNAVAILABLE, none, self.windows.minimize, 1)
        self.expect_error(Code.UNAVAILABLE, none, self.windows.enter_full_screen, 1)
        self.assertEqual(self.bounds(), self.before)
        self.assertFalse(self.windows.is_maximized(1))

    def test_the_server_itself_sets_bounds(self):
        self.set_bounds(1, (7, 8, 300, 301))
        self.assertEqual(self.seen().bounds(), (7, 8, 300, 301))
        self.assertEqual(self.bounds(), (7, 8, 300, 301))

    def test_properties_of_our_own_need_none(self):
        self.windows.set_title(1, title="alone")
        self.assertEqual(self.seen().title(), "alone")

    def test_closing_needs_none(self):
        seen = self.seen()
        self.assertTrue(self.windows.close(1))
        self.assertFalse(seen.exists())

    def test_with_a_new_one_changes_work_again(self):
        self.expect_error(Code.UNAVAILABLE, "", self.windows.maximize, 1)
        self.start_window_manager()
        self.windows.maximize(1)
        self.assertTrue(self.seen().is_maximized())
        self.assertEqual(self.seen().bounds(), self.observer.work_area())


class HangingWindowManager(BrowserTestCase):
    arguments = ("--windows", "2")
    patience = TIMEOUT / 20

    def setUp(self):
        super().setUp()
        self.seen(1)
        self.manager.hang()

    def test_changes_exceed_their_deadline_and_reading_goes_on(self):
        text = "Openbox did not answer in time to maximize window 1."
        self.expect_error(Code.DEADLINE_EXCEEDED, text, self.windows.maximize, 1)
        self.assertFalse(self.windows.is_maximized(1))
        self.manager.go_on()
        # It comes to what it was asked for before anything else.
        self.observer.wait_until(self.seen(1).is_maximized, "what was asked for before")
        self.windows.minimize(2)
        self.assertTrue(self.windows.is_minimized(2))

    def test_a_window_closes_all_the_same(self):
        seen = self.seen(1)
        self.assertTrue(self.windows.close(1))
        self.assertFalse(seen.exists())


class Refused(BrowserTestCase):
    """What openbox refuses of a window that it was asked several things for."""

    arguments = ("--windows", "2")

    def all_seen(self):
        seen = self.seen(1)
        return (
            seen.bounds(),
            seen.wm_state(),
            seen.states() - {"_NET_WM_STATE_FOCUSED"},
            seen.window_types(),
            seen.is_active(),
            self.windows.get_window_style_flags(1),
        )

    def test_a_full_screen_window_stays_what_it_is_when_it_cannot_be_a_utility(self):
        self.windows.maximize(1)
        self.windows.enter_full_screen(1)
        text = "Openbox refused to show full screen window 1."
        utility = dict(titled=True, utility=True)
        for active in (2, 1):
            with self.subTest(active=active):
                self.windows.activate(active)
                before = self.all_seen()
                self.expect_error(
                    Code.FAILED_PRECONDITION,
                    text,
                    self.windows.set_window_style_flags,
                    1,
                    **utility,
                )
                self.assertEqual(self.all_seen(), before)
                self.assertTrue(self.seen(active).is_active())

    def test_a_hidden_window_stays_hidden_when_it_cannot_be_shown_as_it_is(self):
        self.windows.set_window_style_flags(1, titled=True, utility=True)
        self.windows.activate(2)
        seen = self.seen(1)
        self.windows.hide(1)
        self.windows.enter_full_screen(1)
        self.expect_error(
            Code.FAILED_PRECONDITION,
            "Openbox refused to show full screen window 1.",
            self.windows.show,
            1,
        )
        self.assertEqual(seen.wm_state(), WITHDRAWN)
        self.assertFalse(self.windows.is_visible(1))
        self.assertTrue(self.seen(2).is_active())
        self.windows.exit_full_screen(1)
        self.windows.show(1)
        self.assertTrue(seen.is_active())

    def expect_that_it_cannot_be_brought_back(self):
        self.expect_error(
            Code.FAILED_PRECONDITION,
            "Openbox refused to show full screen window 2.",
            self.windows.enter_full_screen,
            2,
        )
        self.assertEqual(self.seen(2).wm_state(), ICONIC)

    def test_the_active_window_stays_active_when_another_cannot_be_brought_back(self):
        self.windows.set_window_style_flags(2, titled=True, utility=True)
        for _ in range(100):
            self.windows.minimize(2)
            self.windows.activate(1)
            self.expect_that_it_cannot_be_brought_back()
            self.assertTrue(self.seen(1).is_active())

    def test_no_window_becomes_active_when_one_cannot_be_brought_back(self):
        self.windows.set_window_style_flags(2, titled=True, utility=True)
        self.windows.set_activation_independence_enabled(1, enabled=True)
        self.windows.minimize(2)
        for _ in range(5):
            self.expect_that_it_cannot_be_brought_back()
            self.assertNotIn(self.observer.active(), {self.seen(1).xid, self.seen(2).xid})


class ManyBehindAHangingWindowManager(BrowserTestCase):
    patience = TIMEOUT / 20

    def test_do_not_wait_for_one_after_the_other(self):
        self.manager.hang()
        # One after the other would take twice the time.
        with self.parallel() as start:
            calls = [start(self.windows.maximize, 1) for _ in range(40)]
            concurrent.futures.wait(calls, TIMEOUT)
            self.assertTrue(all(call.done() for call in calls))
            errors = [call.exception() for call in calls]
        self.assertEqual({error.code for error in errors}, {Code.DEADLINE_EXCEEDED})
        self.manager.go_on()
        self.windows.minimize(1)
        self.assertTrue(self.windows.is_minimized(1))


class EndBehindAHangingWindowManager(BrowserTestCase):
    arguments = ("--windows", "12")
    patience = TIMEOUT / 10

    def test_does_not_wait_for_one_window_after_the_other(self):
        self.manager.hang()
        self.addCleanup(self.manager.go_on)
        # One after the other would take longer than this waits.
        self.assertEqual(self.browser.kill(signal.SIGTERM), 0)


class ClosedMeanwhile(BrowserTestCase):
    arguments = ("--windows", "2")

    def test_a_change_behind_the_closing_finds_no_window(self):
        self.seen(2)
        self.manager.hang()
        asyncio.run(self.close_and_maximize())
        self.assertEqual(self.observer.numbers(), [1])

    async def close_and_maximize(self):
        async with await torvane.connect(self.browser.socket) as client:
            windows = client.windows
            # Waits for the window manager, and the others behind it.
            waiting = asyncio.ensure_future(windows.maximize(1))
            closing = asyncio.ensure_future(windows.close(2))
            # Nobody is asked, so the closing is one of them before the last reply.
            for _ in range(3):
                self.assertTrue(await windows.is_visible(2))
            changing = asyncio.ensure_future(windows.maximize(2))
            self.assertTrue(await windows.is_visible(2))
            self.manager.go_on()
            await waiting
            self.assertTrue(await closing)
            with self.assertRaises(torvane.RpcError) as caught:
                await changing
        error = caught.exception
        self.assertEqual((error.code, error.text), (Code.NOT_FOUND, "No window 2."))


if __name__ == "__main__":
    unittest.main()
