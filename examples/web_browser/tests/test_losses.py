"""What breaks: a page's process, the network's, the display. The rest goes on."""

import contextlib
import os
import queue
import select
import signal
import subprocess
import unittest

from programs import TIMEOUT
from support import SHUTDOWN, BrowserTestCase, PageTestCase
from torvane import Code

CRASHED = "This page has crashed."
TOO_LARGE = "This page has used too much memory."
# A page may have 2 GiB.
IS_LITTLE_MEMORY = os.sysconf("SC_PHYS_PAGES") * os.sysconf("SC_PAGE_SIZE") < 6 << 30


class PageProcesses(PageTestCase):
    page = """
      <script>
        const load = (history.state || 0) + 1;
        history.replaceState(load, '');
        document.title = `load ${load}`;
        const kept = [];
        const grow = () => {
          if (kept.length < 40)
            kept.push(new Uint8Array(64 << 20).fill(1));
        };
        addEventListener('keydown', event => {
          if (event.key == 'h') for (;;);
          if (event.key == 'm') setInterval(grow, 10);
        });
      </script>"""

    def setUp(self):
        super().setUp()
        self.wait_for_title("load 1")

    def page_processes(self):
        return self.browser.children("WebKitWebProcess")

    def test_each_window_has_its_own(self):
        (first,) = self.page_processes()
        directory = self.client.service("rpc.directory.WindowDirectory")
        directory.open_window(url=f"file://{self.path}")
        self.wait_for_title("load 1", 2)
        self.assertEqual(len(self.page_processes()), 2)
        self.assertIn(first, self.page_processes())

    def test_a_crash_costs_the_page_which_can_be_reloaded(self):
        (process,) = self.page_processes()
        os.kill(process, signal.SIGKILL)
        self.wait_for_title(CRASHED)
        self.windows.maximize(1)
        self.assertTrue(self.seen().is_maximized())
        self.browser.say("command 1 reload")
        self.wait_for_title("load 1")

    @unittest.skipIf(IS_LITTLE_MEMORY, "there is little memory")
    def test_one_that_eats_memory_loses_its_page_which_can_be_reloaded(self):
        self.windows.focus(1)
        self.observer.key("m")
        self.wait_for_title(TOO_LARGE)
        self.windows.maximize(1)
        self.assertTrue(self.seen().is_maximized())
        self.browser.say("command 1 reload")
        self.wait_for_title("load 1")

    def test_after_a_crash_closing_asks_and_tells(self):
        asked = queue.Queue()
        events = self.windows.closed(1)
        self.windows.on_close_window(1, handler=lambda question: asked.put(1) or True)
        self.windows.is_visible(1)
        (process,) = self.page_processes()
        os.kill(process, signal.SIGKILL)
        self.wait_for_title(CRASHED)
        self.observer.close_window(self.seen())
        self.assertEqual(asked.get(timeout=TIMEOUT), 1)
        event = events.get(TIMEOUT)
        self.assertEqual((event.browser_id.value, event.title), (1, CRASHED))

    def test_a_page_that_hangs_holds_nobody_up(self):
        self.windows.focus(1)
        self.observer.key("h")
        # Keys that the page does not take come to the window afterwards, and it
        # takes none now. But the browser's own do.
        self.set_bounds(1, (10, 20, 500, 400))
        self.assertEqual(self.seen().bounds(), (10, 20, 500, 400))
        self.assertTrue(self.windows.close(1))

    def test_reload_ends_a_page_that_hangs(self):
        (process,) = self.page_processes()
        end = os.pidfd_open(process)
        self.addCleanup(os.close, end)
        self.windows.focus(1)
        self.observer.key("h")
        # Until WebKit has noticed that it does not respond, the user tries again.
        for _ in range(60):
            self.browser.say("command 1 reload")
            if select.select([end], [], [], TIMEOUT / 60)[0]:
                break
        self.observer.wait_until(lambda: process not in self.page_processes(), "its end")
        # Once, or again for what the user has tried meanwhile.
        loaded = self.seen()
        self.observer.wait_until(
            lambda: loaded.title().startswith("load ") and loaded.title() != "load 1",
            "the page, loaded again",
        )

    def test_the_network_process_comes_again(self):
        (process,) = self.browser.children("WebKitNetworkProcess")
        os.kill(process, signal.SIGKILL)
        # Nothing tells when the browser has noticed. What it loads until then is
        # lost, so the user tries again.
        for _ in range(10):
            self.browser.say("command 1 reload")
            with contextlib.suppress(AssertionError):
                return self.wait_for_title("load 2", patience=TIMEOUT / 20)
        self.fail("the page was never loaded again")


# Painted all the time: now and then it is the toolkit that finds the display gone.
PAGE = (
    "data:text/html,<title>page {}</title><p>.</p><style>p {{ animation: fade 1s infinite }}"
    "@keyframes fade {{ to {{ opacity: 0 }} }}</style>"
)


class Display(BrowserTestCase):
    arguments = tuple(PAGE.format(number) for number in (1, 2, 3))

    @classmethod
    def setUpClass(cls):
        """Each test has a display of its own, since it kills it."""

    def setUp(self):
        super().setUpClass()
        super().setUp()
        # WebKit aborts the browser when a page's process ends while it starts.
        for number in (1, 2, 3):
            seen = self.seen(number)
            self.observer.wait_until(
                lambda seen=seen, number=number: seen.title() == f"page {number}", "the pages"
            )

    def tearDown(self):
        self.doClassCleanups()

    def test_its_loss_closes_all_windows_and_ends_the_browser(self):
        events = self.windows.closed(1, 2, 3)
        self.windows.is_visible(1)
        self.screen.kill()
        closed = [events.get(TIMEOUT) for _ in range(3)]
        self.assertEqual(sorted(event.browser_id.value for event in closed), [1, 2, 3])
        self.assertEqual({event.reason for event in closed}, {SHUTDOWN})
        self.expect_error(Code.UNAVAILABLE, "", events.get, TIMEOUT)
        self.assertEqual(self.browser.wait(), 0)
        self.assertFalse(os.path.exists(self.browser.socket))

    def test_its_loss_settles_a_question(self):
        asked = queue.Queue()
        gate = queue.Queue()

        def answer(question):
            asked.put(question.window)
            return gate.get(timeout=TIMEOUT)

        self.windows.on_close_window(1, handler=answer)
        events = self.windows.closed(1)
        self.windows.is_visible(1)
        self.observer.close_window(self.seen(1))
        self.assertEqual(asked.get(timeout=TIMEOUT), 1)
        self.screen.kill()
        self.assertEqual(events.get(TIMEOUT).reason, SHUTDOWN)
        self.assertEqual(self.browser.wait(), 0)
        gate.put(True)

    def test_its_loss_fails_a_change_that_waits(self):
        self.manager.hang()
        with self.parallel() as start:
            changing = start(self.windows.maximize, 1)
            # Its reply comes when the change has been begun.
            self.windows.is_visible(1)
            self.screen.kill()
        error = changing.exception()
        self.assertEqual((error.code, error.text), (Code.NOT_FOUND, "No window 1."))
        self.assertEqual(self.browser.wait(), 0)


class NoDisplay(unittest.TestCase):
    def test_is_said(self):
        environment = {**os.environ, "DISPLAY": ""}
        done = subprocess.run(
            [os.environ["WEB_BROWSER"], "--socket", "/nowhere/browser.sock"],
            env=environment,
            capture_output=True,
            text=True,
            timeout=TIMEOUT,
        )
        self.assertEqual(done.returncode, 1)
        self.assertEqual(
            done.stderr, "web_browser: There is no X11 display: is $DISPLAY set?\n"
        )


if __name__ == "__main__":
    unittest.main()
