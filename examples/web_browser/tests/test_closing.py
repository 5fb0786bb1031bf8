"""Closing windows: the question, whoever wants it, and the event."""

import os
import queue
import unittest

from programs import TIMEOUT
from support import CALL, SHUTDOWN, UNSPECIFIED, USER, BrowserTestCase, PageTestCase
from torvane import Code


class Questions:
    """Answers whether a window may close, and keeps what was asked."""

    def __init__(self, case, *windows):
        self.allowed = True
        self.asked = queue.Queue()
        case.windows.on_close_window(*windows, handler=self._answer)
        # Its reply comes after the subscription.
        case.windows.is_visible(windows[0])

    def _answer(self, asked):
        # Before the test hears of it, and says what the next answer is.
        allowed = self.allowed
        self.asked.put((asked.window, asked.question.reason))
        return allowed

    def next(self):
        return self.asked.get(timeout=TIMEOUT)


class Closing(BrowserTestCase):
    arguments = ("--windows", "2")

    def close_by_window_manager(self, number):
        """As a task bar does."""
        self.observer.close_window(self.seen(number))

    def click_button(self, number, times=1):
        """The one in the header bar."""
        seen = self.seen(number)
        _, _, width, _ = seen.bounds()
        seen.click(width - 14, 15, times=times)

    def denied_then_allowed(self, wish):
        """Window 2 must stay open first, and then close."""
        questions = Questions(self, 2)
        events = self.windows.closed(2)
        seen = self.seen(2)
        questions.allowed = False
        wish(2)
        self.assertEqual(questions.next(), (2, USER))
        # Asked again: the first question has had its effect by then.
        questions.allowed = True
        wish(2)
        self.assertEqual(questions.next(), (2, USER))
        event = events.get(TIMEOUT)
        self.assertEqual((event.browser_id.value, event.reason), (2, USER))
        self.assertFalse(seen.exists())

    def test_by_the_button(self):
        self.denied_then_allowed(self.click_button)

    def test_a_double_click_on_the_button_is_two_clicks(self):
        questions = Questions(self, 2)
        questions.allowed = False
        seen = self.seen(2)
        before = seen.bounds()
        self.click_button(2, times=2)
        self.assertEqual([questions.next(), questions.next()], [(2, USER)] * 2)
        # Changes are made one after the other, so others would be over by then.
        self.windows.set_title(2, title="clicked")
        self.assertEqual(seen.bounds(), before)
        self.assertFalse(seen.is_maximized())

    def test_by_a_key(self):
        self.denied_then_allowed(lambda number: self.observer.key("alt+F4"))

    def test_by_the_window_manager(self):
        self.denied_then_allowed(self.close_by_window_manager)

    def test_the_service_is_not_held_up_by_an_unanswered_question(self):
        gate = queue.Queue()
        asked = queue.Queue()

        def answer(question):
            asked.put(question.window)
            return gate.get(timeout=TIMEOUT)

        self.windows.on_close_window(2, handler=answer)
        self.windows.is_visible(2)
        self.close_by_window_manager(2)
        self.assertEqual(asked.get(timeout=TIMEOUT), 2)
        self.windows.maximize(1)
        self.assertTrue(self.seen(1).is_maximized())
        gate.put(False)
        self.assertTrue(self.windows.is_visible(2))

    def test_nobody_answers(self):
        events = self.windows.closed(2)
        self.windows.is_visible(2)
        self.click_button(2)
        event = events.get(TIMEOUT)
        self.assertEqual((event.browser_id.value, event.reason), (2, USER))

    def test_a_window_whose_style_is_not_closable_ignores_the_user(self):
        questions = Questions(self, 1, 2)
        self.windows.set_window_style_flags(2, titled=True)
        self.close_by_window_manager(2)
        self.click_button(2)
        # A wish about another window comes after those.
        self.close_by_window_manager(1)
        self.assertEqual(questions.next(), (1, USER))
        self.assertTrue(questions.asked.empty())
        self.assertTrue(self.windows.is_visible(2))

    def test_by_the_service(self):
        questions = Questions(self, 2)
        events = self.windows.closed(2)
        questions.allowed = False
        self.assertFalse(self.windows.close(2))
        self.assertTrue(self.seen(2).exists())
        questions.allowed = True
        self.assertTrue(self.windows.close(2))
        self.assertEqual(self.observer.numbers(), [1])
        self.assertEqual(questions.next(), (2, CALL))
        self.assertEqual(events.get(TIMEOUT).reason, CALL)

    def test_the_end_of_the_browser(self):
        events = self.windows.closed(1, 2)
        self.windows.is_visible(1)
        self.assertEqual(self.browser.kill(15), 0)
        reasons = {events.get(TIMEOUT).browser_id.value: SHUTDOWN for _ in range(2)}
        self.assertEqual(reasons, {1: SHUTDOWN, 2: SHUTDOWN})
        self.expect_error(Code.UNAVAILABLE, "", events.get, TIMEOUT)

    def test_the_title_is_in_the_event(self):
        events = self.windows.closed(2)
        self.windows.set_title(2, title="Inbox")
        self.windows.close(2)
        self.assertEqual(events.get(TIMEOUT).title, "Inbox")


class LateLayout(BrowserTestCase):
    environment = {"GTK_MODULES": os.environ.get("LATE_LAYOUT", "")}

    def setUp(self):
        if not self.environment["GTK_MODULES"]:
            self.skipTest("LATE_LAYOUT does not name the module that makes it late")
        super().setUp()

    def test_a_window_that_is_open_has_its_buttons_in_place(self):
        events = self.windows.closed(1)
        self.windows.is_visible(1)
        _, _, width, _ = self.seen().bounds()
        self.seen().click(width - 14, 15)
        self.assertEqual(events.get(TIMEOUT).reason, USER)

    def test_a_window_is_listed_from_when_it_is_open(self):
        directory = self.client.service("rpc.directory.WindowDirectory")
        listed = set()
        with self.parallel() as start:
            opening = start(directory.open_window)
            while not opening.done():
                listed.add(len(directory.list_windows().windows))
        self.assertEqual(opening.result().browser_id.value, 2)
        self.assertLessEqual(listed, {1, 2})
        self.assertEqual(len(directory.list_windows().windows), 2)


class ByThePage(PageTestCase):
    page = "<title>page</title><script>onclick = () => window.close()</script>"

    def test_window_close_asks(self):
        self.wait_for_title("page")
        questions = Questions(self, 1)
        events = self.windows.closed(1)
        questions.allowed = False
        self.seen().click(200, 300)
        self.assertEqual(questions.next(), (1, USER))
        self.assertTrue(self.windows.is_visible(1))
        questions.allowed = True
        self.seen().click(200, 300)
        self.assertEqual(questions.next(), (1, USER))
        self.assertEqual(events.get(TIMEOUT).reason, USER)


# Painted all the time: what is drawn while nobody knows yet is drawn on nothing.
PAINTED = (
    "data:text/html,<title>page {}</title><style>body {{ animation: fade .1s infinite }}"
    "@keyframes fade {{ to {{ background: black }} }}</style>"
)


class ByAnotherProgram(BrowserTestCase):
    """One destroys the window, and asks nobody."""

    arguments = tuple(PAINTED.format(number) for number in range(1, 6))

    def test_its_clients_are_told_and_the_others_stay(self):
        events = self.windows.closed(*range(2, 6))
        for number in range(1, 6):
            seen = self.seen(number)
            self.observer.wait_until(
                lambda seen=seen, number=number: seen.title() == f"page {number}", "the pages"
            )
        for number in range(2, 6):
            with self.subTest(number):
                self.observer.destroy(self.seen(number))
                event = events.get(TIMEOUT)
                self.assertEqual((event.browser_id.value, event.reason), (number, UNSPECIFIED))
                self.assertEqual(event.title, f"page {number}")
                self.expect_error(Code.NOT_FOUND, "No window", self.windows.get_bounds, number)
        self.windows.maximize(1)
        self.assertTrue(self.seen(1).is_maximized())
        self.assertEqual(self.observer.numbers(), [1])
        # The toolkit has nothing to warn of.
        self.assertNotIn(" **: ", self.browser.records())

    def test_a_change_that_is_under_way_finds_no_window(self):
        self.seen(2)
        self.manager.hang()
        with self.parallel() as start:
            changing = start(self.windows.maximize, 2)
            # Its reply comes when the change has been begun.
            self.windows.is_visible(1)
            self.observer.destroy(self.seen(2))
            self.manager.go_on()
        error = changing.exception()
        self.assertEqual((error.code, error.text), (Code.NOT_FOUND, "No window 2."))
        self.windows.maximize(1)
        self.assertTrue(self.seen(1).is_maximized())


if __name__ == "__main__":
    unittest.main()
