"""Questions and their handlers, against a server that is scripted here."""

import asyncio
import importlib.resources
import unittest

from google.protobuf import descriptor_pb2

import torvane
from support import FakeServerTestCase, message, start, until
from torvane import Code

CLOSE = "rpc.CloseWindow"


class Questions(FakeServerTestCase):
    async def answer(self, handler, *windows, method="on_close_window", **options):
        self.client, self.peer = await self.connect(**options)
        answerer = getattr(self.client.windows, method)(*windows)(handler)
        self.id = (await self.peer.expect("stream_open")).stream_id
        for _ in windows:
            await self.peer.expect("stream_data")
        return answerer

    def ask(self, call_id=1, window=7, kind=CLOSE, **question):
        whole = message(kind, browser_id={"value": window}, question=question)
        self.peer.send_payload(whole, self.id, call_id=call_id)

    async def expect_answer(self, kind=CLOSE, call_id=1, window=7, **response):
        data = await self.peer.expect("stream_data")
        self.assertEqual((list(data.stream_ids), data.message.call_id), ([self.id], call_id))
        expected = message(kind, browser_id={"value": window}, response=response)
        self.assertEqual(message(kind).FromString(data.message.payload), expected)

    async def expect_refusal(self, call_id=1, window=7):
        refusal = await self.peer.expect("stream_error")
        self.assertEqual((refusal.stream_id, refusal.message.call_id), (self.id, call_id))
        whole = message(CLOSE).FromString(refusal.message.payload)
        self.assertEqual(whole, message(CLOSE, browser_id={"value": window}))

    async def test_are_subscribed_to_by_window(self):
        self.client, self.peer = await self.connect()
        answerer = self.client.windows.on_close_window(4)(print)
        await self.peer.expect("stream_open")
        answerer.unsubscribe(4)
        for subscribe in (True, False):
            data = await self.peer.expect("stream_data")
            expected = message(CLOSE, browser_id={"value": 4}, subscribe=subscribe)
            self.assertEqual(message(CLOSE).FromString(data.message.payload), expected)

    async def test_a_function_may_answer_with_a_bool(self):
        await self.answer(lambda asked: asked.window == 7 and asked.question.reason == 1)
        self.ask(reason=1)
        await self.expect_answer(allowed=True)
        self.ask(call_id=2, reason=2)
        await self.expect_answer(call_id=2, allowed=False)

    async def test_a_coroutine_function_may_answer(self):
        async def handler(asked):
            await asyncio.sleep(0)
            return True

        await self.answer(handler)
        self.ask()
        await self.expect_answer(allowed=True)

    async def test_an_answer_may_be_a_message(self):
        kind = "rpc.ShowContextMenu"
        await self.answer(
            lambda asked: asked.response(
                omitted_command_ids=[command.id for command in asked.question.commands]
            ),
            method="on_show_context_menu",
        )
        self.ask(kind=kind, commands=[{"id": 3}, {"id": 4}])
        await self.expect_answer(kind=kind, omitted_command_ids=[3, 4])

    async def test_a_bool_fills_the_only_bool_of_any_answer(self):
        kind = "rpc.ShowContextMenu"
        await self.answer(lambda asked: True, method="on_show_context_menu")
        self.ask(kind=kind)
        await self.expect_answer(kind=kind, handled=True)

    async def test_none_declines(self):
        await self.answer(lambda asked: None)
        self.ask()
        await self.expect_refusal()

    async def test_a_handler_that_raises_declines_and_is_logged(self):
        def handler(asked):
            raise OSError("no screen")

        await self.answer(handler)
        with self.assertLogs("torvane", "ERROR") as logs:
            self.ask()
            await self.expect_refusal()
        self.assertIn("no screen", logs.output[0])

    async def test_what_is_no_answer_declines_and_is_logged(self):
        await self.answer(lambda asked: "yes")
        with self.assertLogs("torvane", "ERROR") as logs:
            self.ask()
            await self.expect_refusal()
        self.assertIn("'yes', which is no answer: rpc.CloseWindow.Response", logs.output[0])

    async def test_a_wrong_field_of_an_answer_is_named(self):
        await self.answer(lambda asked: asked.response(alowed=True))
        with self.assertLogs("torvane", "ERROR") as logs:
            self.ask()
            await self.expect_refusal()
        self.assertIn("response() has no field 'alowed'", logs.output[0])

    async def test_a_cancelled_handler_declines(self):
        async def handler(asked):
            asyncio.current_task().cancel()
            await asyncio.sleep(0)

        await self.answer(handler)
        self.ask()
        await self.expect_refusal()

    async def test_answers_may_come_in_any_order(self):
        gates = {1: asyncio.Event(), 2: asyncio.Event()}

        async def handler(asked):
            await gates[asked.window].wait()
            return True

        await self.answer(handler)
        self.ask(call_id=11, window=1)
        self.ask(call_id=12, window=2)
        gates[2].set()
        await self.expect_answer(call_id=12, window=2, allowed=True)
        gates[1].set()
        await self.expect_answer(call_id=11, window=1, allowed=True)

    async def test_what_is_no_question_is_declined(self):
        await self.answer(lambda asked: True)
        for payload in (b"\xff", message(CLOSE, subscribe=True)):
            with self.assertLogs("torvane", "WARNING") as logs:
                self.peer.send_payload(payload, self.id, call_id=3)
                refusal = await self.peer.expect("stream_error")
            self.assertEqual(refusal.message.call_id, 3)
            self.assertIn("declined what is no question", logs.output[0])

    async def test_a_question_may_have_unknown_fields(self):
        await self.answer(lambda asked: True)
        whole = message(CLOSE, browser_id={"value": 7}, question={}).SerializeToString()
        self.peer.send_payload(whole + b"\x78\x01", self.id, call_id=1)
        await self.expect_answer(allowed=True)

    async def test_a_handler_may_call_the_server(self):
        async def handler(asked):
            return await self.client.windows.is_visible(asked.window)

        await self.answer(handler)
        self.ask()
        call = await self.peer.expect("call")
        self.peer.reply(call, message("google.protobuf.BoolValue", value=True))
        await self.expect_answer(allowed=True)

    async def test_ending_the_stream_cancels_its_handlers(self):
        cancelled = asyncio.get_running_loop().create_future()

        async def handler(asked):
            try:
                await asyncio.Event().wait()
            except asyncio.CancelledError:
                cancelled.set_result(True)
                raise

        answerer = await self.answer(handler)
        self.ask()
        await until(lambda: bool(answerer._tasks))
        await asyncio.sleep(0)
        async with answerer:
            pass
        self.assertTrue(await cancelled)
        # No refusal follows the end.
        await self.peer.expect("stream_end")
        start(self.client.windows.show(1)).add_done_callback(lambda call: call.exception())
        await self.peer.expect("call")
        await answerer.wait_closed()

    async def test_a_handler_may_end_its_own_stream(self):
        async def handler(asked):
            await answerer.aclose()
            await asyncio.sleep(0)
            done.set_result(True)

        done = asyncio.get_running_loop().create_future()
        answerer = await self.answer(handler)
        self.ask()
        self.assertTrue(await done)
        await self.peer.expect("stream_end")

    async def test_a_stream_that_the_server_ends_badly_is_logged_and_raised(self):
        answerer = await self.answer(lambda asked: True)
        with self.assertLogs("torvane", "WARNING") as logs:
            status = {"code": 3, "text": b"neither subscribes nor answers"}
            self.peer.send("stream_end", stream_id=self.id, status=status)
            text = "neither subscribes nor answers"
            await self.expect_error(Code.INVALID_ARGUMENT, text, answerer.wait_closed())
        self.assertIn("questions have ended", logs.output[0])
        with self.assertRaisesRegex(torvane.RpcError, "the stream is over"):
            answerer.subscribe(1)

    async def test_as_many_handlers_as_max_questions_run_and_one_more_question_is_declined(self):
        gate = asyncio.Event()

        async def handler(asked):
            await gate.wait()
            return True

        await self.answer(handler, limits=torvane.Limits(max_questions=2))
        with self.assertLogs("torvane", "WARNING") as logs:
            for call_id in (1, 2, 3):
                self.ask(call_id=call_id)
            await self.expect_refusal(call_id=3)
        self.assertIn("beyond max_questions", logs.output[0])
        gate.set()
        await self.expect_answer(call_id=1, allowed=True)
        await self.expect_answer(call_id=2, allowed=True)

    async def test_an_answer_that_is_too_long_for_the_server_is_a_refusal(self):
        await self.answer(
            lambda asked: asked.response(omitted_command_ids=[1 << 30] * 5000),
            method="on_show_context_menu",
            max_frame_bytes=8192,
        )
        with self.assertLogs("torvane", "WARNING") as logs:
            self.ask(kind="rpc.ShowContextMenu")
            await self.expect_refusal()
        self.assertIn("max_frame_bytes, 8192", logs.output[0])

    async def test_a_refusal_that_does_not_fit_closes_the_connection(self):
        self.client, self.peer = await self.connect(limits=torvane.Limits(max_outbox_bytes=1000))
        answerer = self.client.windows.on_close_window()(lambda asked: None)
        self.id = (await self.peer.expect("stream_open")).stream_id
        calls = []
        while not (calls and calls[-1].done()):
            calls.append(start(self.client.windows.set_title(1, title="x" * 100_000)))
            await asyncio.sleep(0)
        self.ask()
        text = "the refusal of a question would exceed max_outbox_bytes"
        await self.expect_error(Code.RESOURCE_EXHAUSTED, text, answerer.wait_closed())
        await asyncio.gather(*calls, return_exceptions=True)

    async def test_the_decorated_function_can_still_be_called(self):
        def handler(asked):
            """Says yes."""
            return asked

        answerer = await self.answer(handler)
        self.assertEqual((answerer(5), answerer.__doc__), (5, "Says yes."))


def contract_with_patience():
    """The contract, whose questions about closing say for how long the server waits."""
    data = (importlib.resources.files("torvane") / "contract.binpb").read_bytes()
    files = descriptor_pb2.FileDescriptorSet.FromString(data)
    for file in files.file:
        for kind in file.message_type:
            if kind.name == "CloseWindow":
                question = next(inner for inner in kind.nested_type if inner.name == "Question")
                if not any(field.name == "answer_within_ms" for field in question.field):
                    question.field.add(
                        name="answer_within_ms",
                        number=2,
                        type=descriptor_pb2.FieldDescriptorProto.TYPE_UINT32,
                        label=descriptor_pb2.FieldDescriptorProto.LABEL_OPTIONAL,
                    )
    return torvane.Contract(files.SerializeToString())


class Patience(Questions):
    """Of a server that says for how long it waits. Also runs everything above with
    a contract that is not that of the package."""

    async def answer(self, handler, *windows, **options):
        return await super().answer(handler, *windows, contract=contract_with_patience(), **options)

    def ask_within(self, milliseconds):
        kind = self.client.contract.message(CLOSE)
        question = {"answer_within_ms": milliseconds} if milliseconds else {}
        whole = kind(browser_id={"value": 7}, question=question)
        self.peer.send_payload(whole, self.id, call_id=1)

    async def test_is_told_to_the_handler_in_seconds(self):
        told = []

        def handler(asked):
            told.append(asked.answer_within)
            return True

        await self.answer(handler)
        for milliseconds in (2500, 0):
            self.ask_within(milliseconds)
            await self.expect_answer(allowed=True)
        self.assertEqual(told, [2.5, None])

    async def test_a_handler_that_takes_longer_is_cancelled_and_declines(self):
        cancelled = []

        async def handler(asked):
            try:
                await asyncio.Event().wait()
            except asyncio.CancelledError:
                cancelled.append(asked.window)
                raise

        await self.answer(handler)
        with self.assertLogs("torvane", "WARNING") as logs:
            self.ask_within(1)
            await self.expect_refusal()
        self.assertEqual(cancelled, [7])
        self.assertIn("its handler took too long", logs.output[0])


if __name__ == "__main__":
    unittest.main()
