"""The client that connects again, with a real host that is killed and restarted."""

import asyncio
import unittest
import unittest.mock

import torvane
from processes import TIMEOUT, Host
from support import FolderTestCase, start, until
from torvane import Code


class Reconnecting(FolderTestCase):
    def start_host(self, *flags):
        host = Host(self.path, *flags)
        self.addCleanup(host.stop)
        return host

    async def restart(self, host, client):
        """Kills the host and, when the client has noticed, starts another one."""
        loop = asyncio.get_running_loop()
        await loop.run_in_executor(None, host.kill)
        await until(lambda: not client.is_connected)
        return await loop.run_in_executor(None, self.start_host)

    async def enter(self, **options):
        client = torvane.Reconnecting(self.path, first_pause=0.001, longest_pause=0.01, **options)
        self.addAsyncCleanup(client.aclose)
        return await client.__aenter__()

    async def connected(self, client):
        await asyncio.wait_for(client.wait_connected(), TIMEOUT)

    async def next(self, stream):
        return await asyncio.wait_for(stream.__anext__(), TIMEOUT)

    async def test_waits_for_a_host_that_starts_later(self):
        with self.assertLogs("torvane", "WARNING") as logs:
            client = await self.enter()
            await self.expect_error(
                Code.UNAVAILABLE, "there is no connection now", client.windows.show(1)
            )
            with unittest.mock.patch("torvane.reconnecting.connect", wraps=torvane.connect) as tries:
                await until(lambda: tries.call_count > 3)
            self.start_host()
            await self.connected(client)
        self.assertTrue(await client.windows.is_visible(1))
        # The same reason is logged once, however often connecting has failed.
        self.assertEqual(sum("no server listens" in line for line in logs.output), 1)

    async def test_calls_go_on_with_the_next_host(self):
        host = self.start_host()
        client = await self.enter()
        await self.connected(client)
        with self.assertLogs("torvane", "WARNING"):
            await self.restart(host, client)
            await self.connected(client)
        self.assertTrue(await client.windows.is_visible(1))

    async def test_a_call_under_way_fails_and_is_not_repeated(self):
        host = self.start_host()
        client = await self.enter()
        await self.connected(client)
        asked = asyncio.Event()

        async def handler(question):
            asked.set()
            await asyncio.Event().wait()

        client.windows.on_close_window(1, handler=handler)
        closing = start(client.windows.close(1))
        await asked.wait()
        with self.assertLogs("torvane", "WARNING"):
            await self.restart(host, client)
            await self.expect_error(Code.UNAVAILABLE, "", closing)
            await self.connected(client)
        self.assertTrue(await client.windows.is_visible(1))

    async def test_events_say_what_may_have_been_missed_and_go_on(self):
        host = self.start_host()
        client = await self.enter()
        await self.connected(client)
        stream = client.windows.closed(1, 2, 3)
        stream.unsubscribe(3)
        await client.windows.close(1)
        self.assertEqual((await self.next(stream)).browser_id.value, 1)
        with self.assertLogs("torvane", "WARNING"):
            host = await self.restart(host, client)
            missed = await self.next(stream)
        self.assertIsInstance(missed, torvane.Missed)
        self.assertEqual(missed.error.code, Code.UNAVAILABLE)
        self.assertEqual(missed.windows, (1, 2))
        await client.windows.is_visible(1)
        host.say("close 3")
        host.say("close 2")
        self.assertEqual((await self.next(stream)).browser_id.value, 2)

    async def test_events_before_the_loss_come_before_what_was_missed(self):
        host = self.start_host()
        client = await self.enter()
        await self.connected(client)
        stream = client.windows.closed(1)
        await client.windows.close(1)
        with self.assertLogs("torvane", "WARNING"):
            await self.restart(host, client)
            self.assertEqual((await self.next(stream)).browser_id.value, 1)
            self.assertIsInstance(await self.next(stream), torvane.Missed)

    async def test_a_stream_that_was_made_without_connection_has_missed_nothing(self):
        with self.assertLogs("torvane", "WARNING") as logs:
            client = await self.enter()
            await until(lambda: len(logs.output) > 0)
            stream = client.windows.closed(1)
            reading = start(self.next(stream))
            host = self.start_host()
            await self.connected(client)
        await until(lambda: stream._stream is not None)
        await client.windows.is_visible(1)
        host.say("close 1")
        self.assertEqual((await reading).browser_id.value, 1)

    async def test_a_stream_that_the_host_ends_fails(self):
        self.start_host("--max-subscriptions", "1")
        client = await self.enter()
        await self.connected(client)
        stream = client.windows.closed(1, 2)
        await self.expect_error(Code.RESOURCE_EXHAUSTED, "max_subscriptions", self.next(stream))
        answerer = client.windows.on_close_window(1, 2)(lambda asked: True)
        with self.assertLogs("torvane", "WARNING"):
            await self.expect_error(
                Code.RESOURCE_EXHAUSTED, "max_subscriptions", answerer.wait_closed()
            )
        self.assertTrue(client.is_connected)

    async def test_questions_are_answered_again(self):
        host = self.start_host()
        client = await self.enter()

        @client.windows.on_close_window(1)
        def may_close(asked):
            return False

        may_close.subscribe(2)
        await self.connected(client)
        await client.windows.is_visible(1)
        for _ in range(2):
            for window in (1, 2):
                host.say(f"close {window}")
                await host.hears(
                    f"Window {window} stays open: its client does not allow that."
                )
            with self.assertLogs("torvane", "WARNING"):
                host = await self.restart(host, client)
                await self.connected(client)
            await client.windows.is_visible(1)
        await may_close.aclose()
        self.assertTrue(await client.windows.close(1))

    async def test_closing_ends_everything(self):
        self.start_host()
        client = await self.enter()
        await self.connected(client)
        stream = client.windows.closed(1)
        answerer = client.windows.on_close_window(1)(lambda asked: True)
        reading = start(self.next(stream))
        await asyncio.sleep(0)
        await client.aclose()
        await self.expect_error(Code.CANCELLED, "closed", reading)
        await self.expect_error(Code.CANCELLED, "closed", answerer.wait_closed())
        await self.expect_error(Code.CANCELLED, "closed", client.windows.show(1))
        await self.expect_error(Code.CANCELLED, "closed", client.wait_connected())
        with self.assertRaises(torvane.RpcError):
            client.windows.closed(1)

    async def test_closing_ends_waiting_for_a_host(self):
        with self.assertLogs("torvane", "WARNING") as logs:
            client = await self.enter()
            await until(lambda: len(logs.output) > 0)
            waiting = start(client.wait_connected())
            reading = start(self.next(client.windows.closed(1)))
            await asyncio.sleep(0)
            await client.aclose()
            await self.expect_error(Code.CANCELLED, "closed", waiting)
            await self.expect_error(Code.CANCELLED, "closed", reading)

    async def test_closing_works_at_every_turn_of_connecting(self):
        with self.assertLogs("torvane", "WARNING"):
            for turns in range(30):
                client = await self.enter()
                for _ in range(turns):
                    await asyncio.sleep(0)
                await asyncio.wait_for(client.aclose(), TIMEOUT)

    async def test_closing_a_stream_ends_its_iteration_without_connection(self):
        with self.assertLogs("torvane", "WARNING") as logs:
            client = await self.enter()
            await until(lambda: len(logs.output) > 0)
            stream = client.windows.closed(1)
            reading = start(self.next(stream))
            await asyncio.sleep(0)
            await stream.aclose()
            with self.assertRaises(StopAsyncIteration):
                await reading
            await client.aclose()

    async def test_closing_may_be_cancelled(self):
        self.start_host()
        client = await self.enter()
        await self.connected(client)
        answerer = client.windows.on_close_window(1)(lambda asked: True)
        closing = start(client.aclose())
        await asyncio.sleep(0)
        closing.cancel()
        with self.assertRaises(asyncio.CancelledError):
            await closing
        await self.expect_error(Code.CANCELLED, "closed", answerer.wait_closed())
        await until(lambda: not client.is_connected)

    def test_an_option_that_there_is_not_is_raised_in_place(self):
        with self.assertRaisesRegex(TypeError, "naem"):
            torvane.Reconnecting(self.path, naem="clock")
        with self.assertRaisesRegex(TypeError, "naem"):
            torvane.blocking.reconnecting(self.path, naem="clock")

    async def test_an_option_that_is_no_good_is_raised_to_whoever_waits(self):
        client = torvane.Reconnecting("\ud800")
        self.addAsyncCleanup(client.aclose)
        await client.__aenter__()
        for waiting in (client.wait_connected(), anext(client.windows.closed(1))):
            with self.assertRaisesRegex(ValueError, "surrogates"):
                await waiting
        with self.assertRaisesRegex(ValueError, "surrogates"):
            client.windows.on_close_window(1)(lambda asked: True)

    def test_pauses_must_make_sense(self):
        for pauses in ((0, 1), (2, 1)):
            with self.assertRaises(ValueError):
                torvane.Reconnecting(first_pause=pauses[0], longest_pause=pauses[1])


if __name__ == "__main__":
    unittest.main()
