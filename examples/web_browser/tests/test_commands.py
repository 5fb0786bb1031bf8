"""Commands: asked about when the user presses keys or picks from a menu, and then
really executed on the page."""

import queue
import signal
import unittest

from programs import TIMEOUT
from support import PageTestCase


class Answers:
    """Answers whether commands may be executed, and keeps their names."""

    def __init__(self, case, number=1):
        self.allowed = True
        self.asked = queue.Queue()
        case.windows.on_can_execute_command(number, handler=self._answer)
        case.windows.is_visible(number)

    def _answer(self, asked):
        # Before the test hears of it, and says what the next answer is.
        allowed = self.allowed
        self.asked.put(asked.question.command.name)
        return allowed

    def next(self):
        return self.asked.get(timeout=TIMEOUT)


class Commands(PageTestCase):
    # Each thing that happens to the page is the title's next part.
    page = """
      <body style="width: 400px">some text to find
      <script>
        const load = (history.state || 0) + 1;
        history.replaceState(load, '');
        document.title = `load ${load} width ${innerWidth}`;
        addEventListener('resize', () => document.title = `load ${load} width ${innerWidth}`);
        addEventListener('copy', () => document.title = 'copied');
        addEventListener('paste', () => document.title = 'pasted');
        addEventListener('hashchange', () => document.title = `at [${location.hash}]`);
        addEventListener('click', () => location.hash = '#clicked');
        document.addEventListener('selectionchange',
            () => document.title = 'selected ' + getSelection());
      </script>"""

    def setUp(self):
        super().setUp()
        self.set_bounds(1, (0, 0, 800, 600))
        self.wait_for_title("load 1 width 800")
        self.windows.focus(1)
        self.answers = Answers(self)

    def press(self, keys, command):
        self.observer.key(keys)
        self.assertEqual(self.answers.next(), command)

    def shows_the_page_below_the_header(self):
        """Where the page is white, and the bar for finding text covers it."""
        return self.seen().pixels((700, 45, 1, 1))[:3] == b"\xff\xff\xff"

    def test_a_denied_reload_loads_nothing_and_an_allowed_one_does(self):
        self.answers.allowed = False
        self.press("ctrl+r", "reload")
        self.answers.allowed = True
        self.press("F5", "reload")
        # Not 3: the first one has loaded nothing.
        self.wait_for_title("load 2 width 800")

    def test_zoom(self):
        self.press("ctrl+plus", "zoom_in")
        self.wait_for_title("load 1 width 727")
        self.press("ctrl+0", "zoom_reset")
        self.wait_for_title("load 1 width 800")
        self.press("ctrl+minus", "zoom_out")
        self.wait_for_title("load 1 width 880")

    def test_back_and_forward(self):
        self.seen().click(300, 300)
        self.wait_for_title("at [#clicked]")
        self.press("alt+Left", "back")
        self.wait_for_title("at []")
        self.press("alt+Right", "forward")
        self.wait_for_title("at [#clicked]")

    def test_find(self):
        self.observer.wait_until_pixels(self.shows_the_page_below_the_header)
        self.press("ctrl+f", "find")
        # What is typed before the bar is there is the page's.
        self.observer.wait_until_pixels(lambda: not self.shows_the_page_below_the_header())
        self.observer.xdotool("type", "to find")
        self.wait_for_title("selected to find")
        self.observer.key("Escape")

    def test_copy_and_paste(self):
        self.press("ctrl+a ctrl+c".split()[1], "copy")
        self.wait_for_title("copied")
        self.press("ctrl+v", "paste")
        self.wait_for_title("pasted")

    def test_new_window(self):
        self.press("ctrl+n", "new_window")
        self.observer.wait_until(lambda: self.observer.numbers() == [1, 2], "another window")

    def test_close_window_asks_both_questions(self):
        reasons = queue.Queue()

        def may_close(asked):
            reasons.put(asked.question.reason)
            return True

        self.windows.on_close_window(1, handler=may_close)
        events = self.windows.closed(1)
        self.windows.is_visible(1)
        self.press("ctrl+w", "close_window")
        self.assertEqual(events.get(TIMEOUT).browser_id.value, 1)
        self.assertEqual(reasons.get(timeout=TIMEOUT), 1)

    def open_print_dialog(self):
        self.press("ctrl+p", "print")
        self.observer.wait_until(lambda: "Print" in self.observer.titles(), "the dialog")

    def test_print_opens_the_dialog_which_holds_nobody_up(self):
        self.open_print_dialog()
        self.windows.maximize(1)
        self.assertTrue(self.seen().is_maximized())
        self.observer.key("Escape")
        self.observer.wait_until(lambda: "Print" not in self.observer.titles(), "its end")

    def test_the_print_dialog_goes_with_its_window(self):
        self.open_print_dialog()
        self.assertTrue(self.windows.close(1))
        self.assertEqual(self.observer.titles(), [])

    def test_the_print_dialog_does_not_hold_up_the_end(self):
        self.open_print_dialog()
        self.assertEqual(self.browser.kill(signal.SIGTERM), 0)

    def test_from_the_menu_button(self):
        self.seen().click(15, 15)
        self.observer.wait_until(self.observer.menus, "the menu")
        self.observer.key("Down")
        self.observer.key("Down")
        self.observer.key("Down")
        self.observer.key("Return")
        self.assertEqual(self.answers.next(), "reload")
        self.wait_for_title("load 2 width 800")

    def test_by_the_console(self):
        self.browser.say("command 1 reload")
        self.assertEqual(self.answers.next(), "reload")
        self.wait_for_title("load 2 width 800")


class WindowsOfPages(PageTestCase):
    page = "<title>page</title><script>onclick = () => open('about:blank')</script>"

    def test_open_by_a_click(self):
        self.wait_for_title("page")
        directory = self.client.service("rpc.directory.WindowDirectory")
        opened = directory.when_window_opened(0)
        self.windows.is_visible(1)
        self.seen().click(200, 300)
        self.assertEqual(opened.get(TIMEOUT).window.browser_id.value, 2)
        self.assertEqual(self.observer.numbers(), [1, 2])


class PageThatOpensMany(PageTestCase):
    page = """
      <title>page</title>
      <script>
        let clicks = 0;
        onclick = () => {
          for (let i = 0; i < 5; ++i) open('about:blank');
          document.title = `clicks ${++clicks}`;
        };
      </script>"""

    def test_opens_one_for_each_click(self):
        self.wait_for_title("page")
        directory = self.client.service("rpc.directory.WindowDirectory")
        opened = directory.when_window_opened(0)
        self.windows.is_visible(1)
        for click in (1, 2):
            self.windows.activate(1)
            self.seen().click(20, 300)
            self.wait_for_title(f"clicks {click}")
            # All that it wants is in the queue by now, and this is behind it.
            directory.open_window()
            ids = [opened.get(TIMEOUT).window.browser_id.value for _ in range(2)]
            self.assertEqual(ids, [2 * click, 2 * click + 1])
            self.assertEqual(self.observer.numbers(), list(range(1, 2 * click + 2)))


class ContextMenu(PageTestCase):
    page = """
      <title>first</title>
      <script>
        const load = (history.state || 0) + 1;
        history.replaceState(load, '');
        document.title = `load ${load}`;
      </script>"""

    def setUp(self):
        super().setUp()
        self.wait_for_title("load 1")
        self.asked = queue.Queue()
        self.answer = queue.Queue()
        self.windows.on_show_context_menu(1, handler=self._answer)
        self.windows.is_visible(1)

    def _answer(self, asked):
        self.asked.put(asked)
        return self.answer.get(timeout=TIMEOUT)

    def test_opens_when_the_answer_comes_without_what_was_left_out(self):
        self.seen().click(210, 320, button=3)
        asked = self.asked.get(timeout=TIMEOUT)
        self.assertEqual((asked.question.x, asked.question.y), (210, 320))
        # Until then there is none, and the service goes on.
        self.windows.set_title(1, title="load ?")
        self.assertEqual(self.observer.menus(), [])
        names = {command.name: command.id for command in asked.question.commands}
        self.assertEqual(list(names), ["back", "forward", "reload", "copy", "paste", "print"])
        self.answer.put(asked.response(omitted_command_ids=[names["back"], names["forward"]]))
        self.observer.wait_until(self.observer.menus, "the menu")
        events = queue.Queue()
        self.windows.on_can_execute_command(
            1, handler=lambda asked: events.put(asked.question.command.name) or True
        )
        self.windows.is_visible(1)
        # The first item is the third of the whole menu.
        self.observer.key("Down")
        self.observer.key("Return")
        self.assertEqual(events.get(timeout=TIMEOUT), "reload")
        self.observer.wait_until(lambda: not self.observer.menus(), "the end of the menu")

    def test_is_the_clients(self):
        self.seen().click(210, 320, button=3)
        asked = self.asked.get(timeout=TIMEOUT)
        self.answer.put(True)
        # The answer to a second one comes after that.
        self.seen().click(220, 330, button=3)
        asked = self.asked.get(timeout=TIMEOUT)
        self.assertEqual((asked.question.x, asked.question.y), (220, 330))
        self.assertEqual(self.observer.menus(), [])
        self.answer.put(True)

    def test_nobody_answers(self):
        self.client.close()
        self.seen().click(210, 320, button=3)
        self.observer.wait_until(self.observer.menus, "the menu")
        for _ in range(3):
            self.observer.key("Down")
        self.observer.key("Return")
        self.wait_for_title("load 2")


if __name__ == "__main__":
    unittest.main()
