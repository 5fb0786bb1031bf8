"""The client without asyncio, with the real host."""

import os
import shutil
import signal
import tempfile
import threading
import unittest

import torvane.blocking
from processes import TIMEOUT, Host
from torvane import Code


class Blocking(unittest.TestCase):
    def setUp(self):
        self.folder = tempfile.mkdtemp(prefix="torvane-python-")
        self.addCleanup(shutil.rmtree, self.folder)
        # An exception that ends a thread fails the test.
        self.addCleanup(setattr, threading, "excepthook", threading.excepthook)
        self.ended = []
        threading.excepthook = self.ended.append
        self.addCleanup(lambda: self.assertEqual(self.ended, []))
        self.path = os.path.join(self.folder, "host.sock")

    def start(self, *flags):
        self.host = Host(self.path, *flags)
        self.addCleanup(self.host.stop)
        return self.host

    def connect(self, **options):
        self.start()
        client = torvane.blocking.connect(self.path, **options)
        self.addCleanup(client.close)
        return client

    def expect_error(self, code, function, *args):
        with self.assertRaises(torvane.RpcError) as caught:
            function(*args)
        self.assertEqual(caught.exception.code, code, caught.exception)

    def test_connecting_to_nobody_fails_and_leaves_no_thread(self):
        threads = threading.active_count()
        self.expect_error(Code.UNAVAILABLE, torvane.blocking.connect, self.path)
        self.assertEqual(threading.active_count(), threads)

    def test_calls_return_results(self):
        client = self.connect(name="clock")
        client.windows.set_title(1, title="Inbox")
        self.assertEqual(client.windows.get_title(1, timeout=TIMEOUT), "Inbox")
        self.expect_error(Code.NOT_FOUND, client.windows.show, 9)
        report = client.service("rpc.status.ServerStatus").get_status()
        self.assertEqual(report.connections[0].name, "clock")
        self.assertIn("rpc.BrowserWindow", client.offered_services)

    def test_wrong_arguments_are_raised_in_place(self):
        client = self.connect()
        with self.assertRaisesRegex(TypeError, "no field 'titl'"):
            client.windows.set_title(1, titl="x")

    def test_many_threads_may_use_one_client(self):
        client = self.connect()
        failures = []

        def work(window):
            for number in range(50):
                client.windows.set_title(window, title=str(number))
                if client.windows.get_title(window) != str(number):
                    failures.append((window, number))

        threads = [threading.Thread(target=work, args=(window,)) for window in (1, 2, 3)]
        for thread in threads:
            thread.start()
        for thread in threads:
            thread.join(TIMEOUT)
        self.assertEqual(failures, [])

    def test_events_are_read_by_for(self):
        client = self.connect()
        with client.windows.closed(1) as events:
            events.subscribe(2)
            client.windows.close(1)
            client.windows.close(2)
            got = []
            for event in events:
                got.append(event.browser_id.value)
                if len(got) == 2:
                    events.close()
        self.assertEqual(got, [1, 2])

    def test_waiting_for_an_event_may_have_an_end(self):
        client = self.connect()
        events = client.windows.closed(1)
        with self.assertRaises(TimeoutError):
            events.get(timeout=0.001)
        client.windows.close(1)
        self.assertEqual(events.get(timeout=TIMEOUT).browser_id.value, 1)
        events.close()
        with self.assertRaises(EOFError):
            events.get()

    def test_what_is_there_already_needs_no_time(self):
        client = self.connect()
        events = client.windows.closed(1, 2)
        for window, timeout in ((1, 0), (2, -1)):
            # Its reply comes behind the event.
            self.assertTrue(client.windows.close(window))
            self.assertTrue(client.windows.is_visible(3))
            self.assertEqual(events.get(timeout=timeout).browser_id.value, window)
            with self.assertRaises(TimeoutError):
                events.get(timeout=timeout)
        reconnecting = torvane.blocking.reconnecting(self.path)
        self.addCleanup(reconnecting.close)
        reconnecting.wait_connected(TIMEOUT)
        reconnecting.wait_connected(0)

    def test_handlers_answer_and_may_call_the_client(self):
        client = self.connect()

        @client.windows.on_close_window(1)
        def may_close(asked):
            """Looks first."""
            self.assertTrue(client.windows.is_visible(asked.window))
            return False

        self.assertEqual(may_close.__doc__, "Looks first.")
        self.assertFalse(client.windows.close(1))
        self.host.say("close 1")
        self.host.expect("Window 1 stays open: its client does not allow that.")
        may_close.unsubscribe(1)
        self.assertTrue(client.windows.close(1))
        may_close.close()
        may_close.wait_closed()

    def test_a_handler_that_blocks_holds_up_nobody(self):
        client = self.connect()
        gate = threading.Event()
        client.windows.on_close_window(1, handler=lambda asked: gate.wait(TIMEOUT))
        client.windows.is_visible(1)
        self.host.say("close 1")
        self.assertTrue(client.windows.is_visible(1))
        gate.set()
        self.host.expect("Window 1 is closed: its client allows that.")

    def test_whatever_a_handler_raises_declines_its_question_alone(self):
        client = self.connect()
        for window, exception in enumerate((SystemExit, StopIteration, KeyboardInterrupt), 1):

            def handler(asked, exception=exception):
                raise exception

            client.windows.on_close_window(window, handler=handler)
            client.windows.is_visible(window)
            with self.assertLogs("torvane", "ERROR") as logs:
                self.host.say(f"close {window}")
                self.host.expect(f"Window {window} is closed: its client could not answer.")
            self.assertIn(f"the handler raised {exception.__name__}", logs.output[0])

    def test_in_a_forked_process_calls_fail(self):
        client = self.connect()
        child = os.fork()
        if child == 0:
            # 1 unless all of it is as it should be.
            try:
                self.expect_error(Code.CANCELLED, client.windows.show, 1)
                client.close()
                os._exit(0)
            finally:
                os._exit(1)
        self.assertEqual(os.waitpid(child, 0)[1], 0)
        client.windows.show(1)

    def test_closing_fails_what_other_threads_wait_for(self):
        client = self.connect()
        events = client.windows.closed(1)
        failed = []

        def read():
            try:
                events.get()
            except torvane.RpcError as error:
                failed.append(error.code)

        thread = threading.Thread(target=read)
        thread.start()
        client.close()
        thread.join(TIMEOUT)
        self.assertEqual(failed, [Code.CANCELLED])
        self.expect_error(Code.CANCELLED, client.windows.show, 1)
        events.close()
        client.close()

    def test_reconnecting_goes_on_with_the_next_host(self):
        host = self.start()
        client = torvane.blocking.reconnecting(self.path, first_pause=0.001, longest_pause=0.01)
        self.addCleanup(client.close)
        client.wait_connected(TIMEOUT)
        events = client.windows.closed(1)
        client.windows.on_close_window(2)(lambda asked: False)
        with self.assertLogs("torvane", "WARNING"):
            host.kill(signal.SIGKILL)
            host = self.start()
            self.assertIsInstance(events.get(TIMEOUT), torvane.Missed)
        client.windows.is_visible(1)
        host.say("close 2")
        host.expect("Window 2 stays open: its client does not allow that.")
        host.say("close 1")
        self.assertEqual(events.get(TIMEOUT).browser_id.value, 1)


if __name__ == "__main__":
    unittest.main()
