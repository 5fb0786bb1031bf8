"""Unary calls, against a server that is scripted here."""

import asyncio
import datetime
import math
import sys
import unittest

import torvane
from support import FakeServerTestCase, message, start
from torvane import Code


class Calls(FakeServerTestCase):
    async def test_replies_may_come_in_any_order(self):
        client, peer = await self.connect()
        first = start(client.windows.is_visible(1))
        second = start(client.windows.get_title(2))
        calls = [await peer.expect("call"), await peer.expect("call")]
        self.assertEqual([peer.method_of(call) for call in calls], ["IsVisible", "GetTitle"])
        peer.reply(calls[1], message("google.protobuf.StringValue", value="Inbox"))
        peer.reply(calls[0], message("google.protobuf.BoolValue", value=True))
        self.assertEqual((await first, await second), (True, "Inbox"))

    async def test_a_failure_has_code_text_and_method(self):
        client, peer = await self.connect()
        showing = start(client.windows.show(9))
        peer.reply(await peer.expect("call"), code=5, text="No window 9.")
        error = await self.expect_error(Code.NOT_FOUND, "No window 9.", showing)
        self.assertEqual(error.method, "rpc.BrowserWindow.Show")

    async def test_a_response_that_does_not_parse_is_internal(self):
        client, peer = await self.connect()
        reading = start(client.windows.get_bounds(1))
        call = await peer.expect("call")
        peer.send("reply", call_id=call.call_id, response=b"\xff")
        await self.expect_error(Code.INTERNAL, "does not parse as a rpc.Rect", reading)

    async def test_a_response_may_have_unknown_fields(self):
        client, peer = await self.connect()
        reading = start(client.windows.get_bounds(1))
        call = await peer.expect("call")
        peer.send("reply", call_id=call.call_id, response=b"\x08\x05\x78\x01")
        self.assertEqual((await reading).x, 5)

    async def test_a_method_that_the_server_does_not_have_is_named(self):
        connecting = start(torvane.connect(self.path))
        peer = await self.server.accept()
        peer.service["methods"] = [
            dict(name="Hide", id=1, streaming=True),
            dict(name="OnCloseWindow", id=2, streaming=False),
        ]
        await peer.welcome()
        client = await connecting
        self.addAsyncCleanup(client.aclose)
        text = "the server has no such method"
        await self.expect_error(Code.UNIMPLEMENTED, text, client.windows.show(1))
        await self.expect_error(Code.UNIMPLEMENTED, "a stream on", client.windows.hide(1))
        with self.assertRaisesRegex(torvane.RpcError, "WhenBrowserWindowClosed: UNIMPLEMENTED"):
            client.windows.closed(1)
        with self.assertRaisesRegex(torvane.RpcError, "no stream on the server"):
            client.windows.on_close_window(1)(print)
        status = client.service("rpc.status.ServerStatus")
        text = "the server has no service rpc.status.ServerStatus"
        await self.expect_error(Code.UNIMPLEMENTED, text, status.get_status())

    async def test_methods_are_found_by_name_whatever_their_ids_are(self):
        connecting = start(torvane.connect(self.path))
        peer = await self.server.accept()
        peer.service["methods"].reverse()
        for number, method in enumerate(peer.service["methods"]):
            method["id"] = 1000 + number
        await peer.welcome()
        client = await connecting
        self.addAsyncCleanup(client.aclose)
        showing = start(client.windows.show(1))
        call = await peer.expect("call")
        self.assertEqual((call.method_id, peer.method_of(call)), (1040, "Show"))
        peer.reply(call, message("google.protobuf.Empty"))
        self.assertIsNone(await showing)

    async def test_a_reply_to_nothing_is_ignored(self):
        client, peer = await self.connect()
        peer.send("reply", call_id=77)
        showing = start(client.windows.show(1))
        peer.reply(await peer.expect("call"), message("google.protobuf.Empty"))
        await showing


class Deadlines(FakeServerTestCase):
    async def timeout_ms(self, expected, **options):
        client, peer = await self.connect(timeout=options.pop("default", None))
        call = start(client.windows.show(1, **options))
        self.assertEqual((await peer.expect("call")).timeout_ms, expected)
        call.cancel()

    async def test_are_told_to_the_server_in_milliseconds_rounded_up(self):
        await self.timeout_ms(0)
        await self.timeout_ms(0, timeout=None)
        await self.timeout_ms(0, timeout=math.inf)
        await self.timeout_ms(2500, timeout=2.5)
        await self.timeout_ms(10_001, timeout=10.0001)

    async def test_that_are_too_long_to_be_told_are_kept_by_the_client_alone(self):
        longest = (1 << 32) - 1
        await self.timeout_ms(longest, timeout=longest / 1000)
        await self.timeout_ms(0, timeout=(longest + 1) / 1000)
        await self.timeout_ms(0, timeout=sys.float_info.max)

    async def test_have_a_default_of_the_client(self):
        await self.timeout_ms(3000, default=3)
        await self.timeout_ms(4000, default=3, timeout=4)
        await self.timeout_ms(0, default=3, timeout=None)

    async def test_a_late_call_fails_and_is_cancelled(self):
        client, peer = await self.connect()
        late = start(client.windows.show(1, timeout=0.001))
        call = await peer.expect("call")
        await self.expect_error(Code.DEADLINE_EXCEEDED, "not answered in time", late)
        self.assertEqual((await peer.expect("cancel")).call_id, call.call_id)
        # Its late reply is ignored, and the connection goes on.
        peer.reply(call, message("google.protobuf.Empty"))
        showing = start(client.windows.show(1))
        peer.reply(await peer.expect("call"), message("google.protobuf.Empty"))
        await showing

    async def test_a_timeout_is_a_number(self):
        client, _ = await self.connect()
        for timeout in ("1", datetime.timedelta(seconds=1)):
            with self.assertRaises(TypeError):
                await client.windows.show(1, timeout=timeout)

    async def test_without_time_nothing_is_sent(self):
        client, peer = await self.connect()
        for timeout in (0, -1, math.nan):
            text = "no time was left"
            call = client.windows.show(1, timeout=timeout)
            await self.expect_error(Code.DEADLINE_EXCEEDED, text, call)
        hiding = start(client.windows.hide(1))
        call = await peer.expect("call")
        self.assertEqual(peer.method_of(call), "Hide")
        peer.reply(call, message("google.protobuf.Empty"))
        await hiding


class Cancelling(FakeServerTestCase):
    async def test_the_task_that_waits_cancels_the_call(self):
        client, peer = await self.connect()
        waiting = start(client.windows.show(1))
        call = await peer.expect("call")
        waiting.cancel()
        with self.assertRaises(asyncio.CancelledError):
            await waiting
        self.assertEqual((await peer.expect("cancel")).call_id, call.call_id)
        peer.reply(call, code=1, text="cancelled")
        other = start(client.windows.show(1))
        peer.reply(await peer.expect("call"), message("google.protobuf.Empty"))
        await other

    async def test_wait_for_cancels_the_call(self):
        client, peer = await self.connect()
        waiting = start(asyncio.wait_for(client.windows.show(1), 0.01))
        call = await peer.expect("call")
        with self.assertRaises(asyncio.TimeoutError):
            await waiting
        self.assertEqual((await peer.expect("cancel")).call_id, call.call_id)


class Limits(FakeServerTestCase):
    async def test_a_request_may_fill_the_servers_max_frame_bytes_and_no_more(self):
        client, peer = await self.connect(max_frame_bytes=8192)
        # What a frame needs beside a title of this length.
        room = 8192
        while True:
            title = start(client.windows.set_title(1, title="x" * room))
            await asyncio.sleep(0)
            if not title.done():
                break
            text = "more than the server's max_frame_bytes, 8192"
            await self.expect_error(Code.RESOURCE_EXHAUSTED, text, title)
            room -= 1
        call = await peer.expect("call")
        size = len(torvane.wire.encode_frame("call", call))
        self.assertEqual(size, 8192)
        peer.reply(call, message("google.protobuf.Empty"))
        await title

    async def test_beyond_max_outbox_bytes_new_calls_fail_and_old_ones_go_on(self):
        client, peer = await self.connect(limits=torvane.Limits(max_outbox_bytes=300_000))
        calls = []
        # The peer does not read: the socket fills up, then the outbox.
        while not (calls and calls[-1].done()):
            calls.append(start(client.windows.set_title(1, title="x" * 100_000)))
            await asyncio.sleep(0)
        refused = calls.pop()
        await self.expect_error(Code.RESOURCE_EXHAUSTED, "max_outbox_bytes, 300000", refused)
        with self.assertRaisesRegex(torvane.RpcError, "max_outbox_bytes"):
            while True:
                client.windows.closed(*range(1000))
        for _ in calls:
            call = await self.next_call(peer)
            peer.reply(call, message("google.protobuf.Empty"))
        await asyncio.gather(*calls)

    async def next_call(self, peer):
        """The next call, beyond frames of streams."""
        while True:
            try:
                return await peer.expect("call")
            except AssertionError as error:
                if "got stream" not in str(error):
                    raise

    async def test_replies_are_read_while_nothing_can_be_written(self):
        client, peer = await self.connect()
        first = start(client.windows.show(1))
        call = await peer.expect("call")
        calls = [
            start(client.windows.set_title(1, title="x" * 100_000)) for _ in range(40)
        ]
        await asyncio.sleep(0)
        self.assertTrue(client._connection._socket_is_full)
        peer.reply(call, message("google.protobuf.Empty"))
        await first
        for _ in calls:
            peer.reply(await peer.expect("call"), message("google.protobuf.Empty"))
        await asyncio.gather(*calls)


if __name__ == "__main__":
    unittest.main()
