"""Streams of events, against a server that is scripted here."""

import asyncio
import unittest

import torvane
from support import FakeServerTestCase, message, start
from torvane import Code
from torvane.limits import EVENT_OVERHEAD_BYTES


class Events(FakeServerTestCase):
    async def open(self, *windows, **options):
        self.client, self.peer = await self.connect(**options)
        self.stream = self.client.windows.closed(*windows)
        opened = await self.peer.expect("stream_open")
        self.assertEqual(self.peer.method_of(opened), "WhenBrowserWindowClosed")
        self.id = opened.stream_id
        return self.stream

    async def expect_subscription(self, **expected):
        data = await self.peer.expect("stream_data")
        self.assertEqual((list(data.stream_ids), data.message.call_id), ([self.id], 0))
        subscription = message("rpc.EventSubscription")
        subscription.ParseFromString(data.message.payload)
        self.assertEqual(subscription, message("rpc.EventSubscription", **expected))

    async def test_subscribes_to_its_windows_when_it_is_made(self):
        await self.open(4, 5)
        await self.expect_subscription(subscribe_to={"value": 4})
        await self.expect_subscription(subscribe_to={"value": 5})

    async def test_subscribes_and_unsubscribes_later(self):
        stream = await self.open()
        stream.subscribe(6)
        await self.expect_subscription(subscribe_to={"value": 6})
        stream.unsubscribe(6)
        await self.expect_subscription(unsubscribe_from={"value": 6})

    async def test_a_wrong_window_opens_nothing(self):
        client, peer = await self.connect()
        with self.assertRaisesRegex(TypeError, "when_browser_window_closed.*int, not str"):
            client.windows.closed(1, "2")
        start(client.windows.show(1)).add_done_callback(lambda call: call.exception())
        await peer.expect("call")

    async def test_yields_events_in_their_order(self):
        stream = await self.open()
        for number in (3, 1, 2):
            self.peer.send_event(self.id, window=number)
        self.peer.send("stream_end", stream_id=self.id)
        self.assertEqual([event.browser_id.value async for event in stream], [3, 1, 2])
        self.assertEqual((await self.peer.expect("stream_end")).stream_id, self.id)

    async def test_one_message_may_go_to_many_streams(self):
        stream = await self.open()
        other = self.client.windows.closed()
        opened = await self.peer.expect("stream_open")
        self.peer.send_event(self.id, 999, opened.stream_id, title="both")
        self.assertEqual((await stream.__anext__()).title, "both")
        self.assertEqual((await other.__anext__()).title, "both")

    async def test_a_bad_end_is_raised_after_the_events_before_it(self):
        stream = await self.open()
        self.peer.send_event(self.id, title="last")
        status = {"code": 8, "text": b"max_subscriptions"}
        self.peer.send("stream_end", stream_id=self.id, status=status)
        await self.peer.expect("stream_end")
        self.assertEqual((await stream.__anext__()).title, "last")
        for _ in range(2):
            error = await self.expect_error(
                Code.RESOURCE_EXHAUSTED, "max_subscriptions", stream.__anext__()
            )
            self.assertEqual(error.method, "rpc.BrowserWindow.WhenBrowserWindowClosed")
        with self.assertRaisesRegex(torvane.RpcError, "FAILED_PRECONDITION: the stream is over"):
            stream.subscribe(1)

    async def test_closing_ends_the_stream_and_ignores_late_events(self):
        async with await self.open() as stream:
            self.peer.send_event(self.id, title="unread")
        self.assertEqual((await self.peer.expect("stream_end")).stream_id, self.id)
        self.peer.send_event(self.id, title="late")
        self.peer.send("stream_end", stream_id=self.id)
        self.assertEqual([event async for event in stream], [])
        await stream.aclose()
        # One end was sent, and the connection goes on.
        other = self.client.windows.closed()
        await self.peer.expect("stream_open")
        await other.aclose()

    async def test_closing_ends_the_iteration_of_another_task(self):
        stream = await self.open()

        async def read():
            return [event async for event in stream]

        reading = start(read())
        await asyncio.sleep(0)
        await stream.aclose()
        self.assertEqual(await reading, [])

    async def test_a_cancelled_reader_loses_nothing(self):
        stream = await self.open()
        reading = start(stream.__anext__())
        await asyncio.sleep(0)
        reading.cancel()
        with self.assertRaises(asyncio.CancelledError):
            await reading
        self.peer.send_event(self.id, title="kept")
        self.assertEqual((await stream.__anext__()).title, "kept")

    async def test_two_tasks_must_not_read_at_the_same_time(self):
        stream = await self.open()
        reading = start(stream.__anext__())
        await asyncio.sleep(0)
        with self.assertRaisesRegex(RuntimeError, "another task"):
            await stream.__anext__()
        self.peer.send_event(self.id)
        await reading

    async def test_an_event_that_does_not_parse_is_logged_and_left_out(self):
        stream = await self.open()
        self.peer.send_payload(b"\xff", self.id)
        self.peer.send_event(self.id, title="next")
        with self.assertLogs("torvane", "WARNING") as logs:
            self.assertEqual((await stream.__anext__()).title, "next")
        self.assertIn("left out an event", logs.output[0])

    async def test_as_many_unread_events_as_the_limit_are_kept_and_one_more_ends_the_stream(self):
        one = len(message("rpc.BrowserWindowClosed", browser_id={"value": 1}).SerializeToString())
        room = 3 * (one + EVENT_OVERHEAD_BYTES)
        stream = await self.open(limits=torvane.Limits(max_unread_bytes=room))
        for _ in range(3):
            self.peer.send_event(self.id)
        call = start(self.client.windows.show(1))
        self.peer.reply(await self.peer.expect("call"), message("google.protobuf.Empty"))
        await call
        self.assertIsNone(stream.error)
        self.peer.send_event(self.id)
        self.assertEqual((await self.peer.expect("stream_end")).stream_id, self.id)
        for _ in range(3):
            await stream.__anext__()
        text = f"3 events of {room} bytes were not read"
        await self.expect_error(Code.RESOURCE_EXHAUSTED, text, stream.__anext__())

    async def test_events_that_are_read_make_room_for_others(self):
        stream = await self.open(limits=torvane.Limits(max_unread_bytes=200))
        for _ in range(5):
            self.peer.send_event(self.id)
            await stream.__anext__()


if __name__ == "__main__":
    unittest.main()
