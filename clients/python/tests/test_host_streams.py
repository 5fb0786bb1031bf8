"""Events and questions, with the real host; the test plays its user."""

import asyncio
import contextlib
import signal
import unittest

from support import HostTestCase
from torvane import Code

USER, CALL, SHUTDOWN = 1, 2, 3


class Events(HostTestCase):
    async def test_tell_which_window_has_closed_and_why(self):
        async with self.windows.closed(1, 2) as events:
            await self.windows.set_title(1, title="Inbox")
            self.host.say("close 1")
            event = await self.next_event(events)
            self.assertEqual(
                (event.browser_id.value, event.title, event.reason), (1, "Inbox", USER)
            )
            await self.windows.close(2)
            event = await self.next_event(events)
            self.assertEqual((event.browser_id.value, event.reason), (2, CALL))

    async def test_reach_all_streams_of_all_clients(self):
        other = await self.connect()
        streams = [self.windows.closed(1), self.windows.closed(1), other.windows.closed(1)]
        await other.windows.is_visible(1)
        await self.windows.close(1)
        for stream in streams:
            self.assertEqual((await self.next_event(stream)).browser_id.value, 1)

    async def test_stop_with_the_subscription(self):
        stream = self.windows.closed(1, 2)
        stream.unsubscribe(1)
        await self.windows.close(1)
        await self.windows.close(2)
        self.assertEqual((await self.next_event(stream)).browser_id.value, 2)

    async def test_come_before_the_reply_to_the_call_that_caused_them(self):
        stream = self.windows.closed(1)
        await self.windows.close(1)
        self.assertEqual(len(stream._unread), 1)

    async def test_an_ended_stream_is_gone_at_the_host(self):
        stream = self.windows.closed(1)
        self.assertEqual((await self.load()).streams, 1)
        await stream.aclose()
        self.assertEqual((await self.load()).streams, 0)

    async def test_a_host_that_stops_says_so_after_the_last_events(self):
        stream = self.windows.closed(1, 2, 3)
        await self.windows.is_visible(1)
        await asyncio.get_running_loop().run_in_executor(None, self.host.kill, signal.SIGTERM)
        reasons = [(await self.next_event(stream)).reason for _ in range(3)]
        self.assertEqual(reasons, [SHUTDOWN] * 3)
        await self.expect_error(Code.UNAVAILABLE, "", self.next_event(stream))
        self.assertEqual((await self.client.wait_closed()).code, Code.UNAVAILABLE)


class Limits(HostTestCase):
    flags = ("--max-subscriptions", "2", "--max-streams", "2")

    async def test_a_subscription_beyond_max_subscriptions_ends_its_stream(self):
        stream = self.windows.closed(1, 2, 3)
        await self.expect_error(
            Code.RESOURCE_EXHAUSTED, "max_subscriptions", self.next_event(stream)
        )
        self.assertTrue(await self.windows.is_visible(1))

    async def test_a_stream_beyond_max_streams_is_ended(self):
        streams = [self.windows.closed() for _ in range(3)]
        await self.expect_error(
            Code.RESOURCE_EXHAUSTED, "max_streams", self.next_event(streams[2])
        )
        self.assertEqual((await self.load()).streams, 2)


class Questions(HostTestCase):
    async def ready(self):
        """Returns when the host has all subscriptions."""
        await self.windows.is_visible(3)

    async def test_about_closing(self):
        reasons = []

        @self.windows.on_close_window(1, 2)
        def may_close(asked):
            reasons.append(asked.question.reason)
            return asked.window == 1

        await self.ready()
        self.host.say("close 2")
        await self.host.hears("Window 2 stays open: its client does not allow that.")
        self.host.say("close 1")
        await self.host.hears("Window 1 is closed: its client allows that.")
        self.assertFalse(await self.windows.close(2))
        self.assertEqual(reasons, [USER, USER, CALL])

    async def test_about_commands(self):
        @self.windows.on_can_execute_command(1)
        async def may_execute(asked):
            return asked.question.command.name != "reload"

        await self.ready()
        self.host.say("command 1 reload")
        await self.host.hears("Window 1 ignores reload: its client does not allow that.")
        self.host.say("command 1 copy")
        await self.host.hears("Window 1 executes copy: its client allows that.")

    async def test_about_menus(self):
        places = []

        @self.windows.on_show_context_menu(1, 2)
        def menu(asked):
            places.append((asked.question.x, asked.question.y))
            if asked.window == 2:
                return True
            first, *_ = asked.question.commands
            return asked.response(omitted_command_ids=[first.id])

        await self.ready()
        self.host.say("menu 2 10 20")
        await self.host.hears("Window 2 shows a menu of its client's.")
        self.host.say("menu 1 30 40")
        line = await asyncio.get_running_loop().run_in_executor(None, self.host._lines.next)
        self.assertRegex(line, r"^Window 1 shows the menu \[.+\]: its client allows that\.$")
        self.assertEqual(places, [(10, 20), (30, 40)])
        self.host.say("menu 3 0 0")
        whole = await asyncio.get_running_loop().run_in_executor(None, self.host._lines.next)
        self.assertEqual(line.count(",") + 1, whole.count(","))

    async def test_a_declined_one_is_a_client_that_could_not_answer(self):
        self.windows.on_close_window(1, handler=lambda asked: None)
        await self.ready()
        self.host.say("close 1")
        await self.host.hears("Window 1 is closed: its client could not answer.")

    async def test_a_failing_handler_is_a_client_that_could_not_answer(self):
        def handler(asked):
            raise KeyError("x")

        self.windows.on_close_window(1, handler=handler)
        await self.ready()
        with self.assertLogs("torvane", "ERROR"):
            self.host.say("close 1")
            await self.host.hears("Window 1 is closed: its client could not answer.")

    async def test_unsubscribing_cancels_what_is_pending(self):
        asked = asyncio.Event()

        async def handler(question):
            asked.set()
            await asyncio.Event().wait()

        answerer = self.windows.on_close_window(1, handler=handler)
        await self.ready()
        self.host.say("close 1")
        await asked.wait()
        answerer.unsubscribe(1)
        await self.host.hears("Window 1 is closed: its client has left.")

    async def test_ending_the_stream_cancels_what_is_pending(self):
        asked = asyncio.Event()

        async def handler(question):
            asked.set()
            await asyncio.Event().wait()

        answerer = self.windows.on_close_window(1, handler=handler)
        await self.ready()
        self.host.say("close 1")
        await asked.wait()
        self.assertEqual((await self.load()).pending_questions, 1)
        await answerer.aclose()
        await self.host.hears("Window 1 is closed: its client has left.")
        self.assertEqual((await self.load()).pending_questions, 0)

    async def test_a_client_that_goes_cancels_what_is_pending(self):
        asked = asyncio.Event()

        async def handler(question):
            asked.set()
            await asyncio.Event().wait()

        other = await self.connect()
        other.windows.on_close_window(1, handler=handler)
        await other.windows.is_visible(1)
        self.host.say("close 1")
        await asked.wait()
        await other.aclose()
        await self.host.hears("Window 1 is closed: its client has left.")

    async def test_the_newest_subscriber_is_asked(self):
        self.windows.on_close_window(1, handler=lambda asked: True)
        await self.ready()
        other = await self.connect()
        other.windows.on_close_window(1, handler=lambda asked: False)
        await other.windows.is_visible(1)
        self.assertFalse(await self.windows.close(1))

    async def test_a_handler_may_close_another_window(self):
        @self.windows.on_close_window(1)
        async def may_close(asked):
            return await self.windows.close(2)

        self.assertTrue(await self.windows.close(1))
        call = self.windows.is_visible(2)
        await self.expect_error(Code.NOT_FOUND, "No window 2.", call)


class ImpatientHost(HostTestCase):
    flags = ("--answer-timeout", "0.05")

    async def test_goes_on_without_a_late_answer_and_drops_it(self):
        gate = asyncio.Event()

        async def handler(asked):
            # Also where the host says for how long it waits, so that the client
            # cancels the handler: it answers late all the same.
            while not gate.is_set():
                with contextlib.suppress(asyncio.CancelledError):
                    await gate.wait()
            return False

        self.windows.on_close_window(1, handler=handler)
        await self.windows.is_visible(1)
        self.host.say("close 1")
        await self.host.hears("Window 1 is closed: its client did not answer in time.")
        gate.set()

        async def settled():
            while (await self.load()).pending_questions:
                pass

        await asyncio.wait_for(settled(), 60)


if __name__ == "__main__":
    unittest.main()
