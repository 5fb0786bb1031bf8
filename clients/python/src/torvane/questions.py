"""Questions of the server, and handlers that answer them."""

import asyncio
import dataclasses
import inspect
import logging
from types import TracebackType
from typing import Any, Callable, Optional, Sequence, Set, Type

from torvane.arguments import make_message, window_number
from torvane.contract import MessageClass, Method, full_name_of
from torvane.errors import Code, RpcError
from torvane.streams import StreamTable

_log = logging.getLogger("torvane")

# Gets an Asked and returns the answer, or an awaitable of the answer.
Handler = Callable[["Asked"], Any]


@dataclasses.dataclass(frozen=True)
class Asked:
    """One question, as its handler gets it.

    window: the number of the window that it is about.
    question: what is asked, a message such as rpc.CloseWindow.Question.
    message: the whole message, such as rpc.CloseWindow.
    """

    window: int
    question: Any
    message: Any

    @property
    def answer_within(self) -> Optional[float]:
        """For how long the server waits, in seconds from when it asked; None where
        it does not say."""
        fields = self.question.DESCRIPTOR.fields_by_name
        milliseconds = self.question.answer_within_ms if "answer_within_ms" in fields else 0
        return milliseconds / 1000 if milliseconds else None

    def response(self, **fields: Any) -> Any:
        """An answer with these fields, such as response(handled=True).

        Raises TypeError or ValueError for fields that it has not.
        """
        return make_message(response_class_of(type(self.message)), fields, "response()")


def response_class_of(message: MessageClass) -> MessageClass:
    """The class of the answers to the questions of this message's method."""
    return type(message().response)


class Answerer:
    """Answers the questions about the windows that it subscribes to.

        @client.windows.on_close_window(1, 2)
        async def may_close(asked: torvane.Asked) -> bool:
            return asked.window != 1

    makes `may_close` an Answerer, which can still be called as the function can.
    The handler gets an Asked and returns, or is a coroutine function that
    returns:
      - a bool, for an answer with exactly one bool field, such as `allowed`;
      - an answer, as asked.response() makes it;
      - None, to decline: the server hears that there will be no answer.

    If several clients answer for a window, the one that subscribed last is asked.
    Several questions may be open at a time; each has a task of its own.

    Ownership: the client holds it until it is over; aclose() or `async with` ends
    it. A handler that still runs then is cancelled.
    Loop: that of the client. A handler that is no coroutine function runs there,
    too, and must not block.
    Failure: a handler that raises, is cancelled, returns anything else, or takes
    longer than the server says that it waits, declines its question; all but the
    first of a cancelled handler is logged. A late answer is dropped by the
    server. wait_closed() tells how the stream has ended.
    """

    def __init__(
        self,
        table: StreamTable,
        method: Method,
        windows: Sequence[int],
        handler: Handler,
        max_questions: int,
    ) -> None:
        self._table = table
        self._method = method
        self._handler = handler
        self._max_questions = max_questions
        self._tasks: "Set[asyncio.Task[None]]" = set()
        self._closed: "asyncio.Future[Optional[RpcError]]"
        self._closed = asyncio.get_running_loop().create_future()
        self.__doc__ = handler.__doc__
        numbers = [self._number(window) for window in windows]
        self._id = table.open(method, self)
        try:
            for number in numbers:
                self.subscribe(number)
        except BaseException:
            table.end(self._id)
            raise

    def __call__(self, asked: Asked) -> Any:
        """Calls the handler, as for a test of it."""
        return self._handler(asked)

    @property
    def is_over(self) -> bool:
        """Whether the stream has ended."""
        return self._closed.done()

    def subscribe(self, window: int) -> None:
        """Answers for a window from here on.

        Raises RpcError: FAILED_PRECONDITION when the stream is over,
        RESOURCE_EXHAUSTED when too much waits to be written.
        """
        self._send(window, True)

    def unsubscribe(self, window: int) -> None:
        """No longer answers for a window; who waits for an answer about it hears
        that there will be none. Fails as subscribe() does."""
        self._send(window, False)

    async def aclose(self) -> None:
        """Ends the stream and cancels the handlers that run. May be called again."""
        self._table.end(self._id)
        self._finish(None)

    async def wait_closed(self) -> None:
        """Waits until the stream is over. Raises RpcError if it ended badly."""
        error = await asyncio.shield(self._closed)
        if error is not None:
            raise error.about(self._method.full_name)

    def when_closed(self, then: Callable[[Optional[RpcError]], None]) -> None:
        """Calls a function when the stream is over: with the error, if it ended
        badly. The function must not raise."""
        self._closed.add_done_callback(lambda closed: then(closed.result()))

    async def __aenter__(self) -> "Answerer":
        return self

    async def __aexit__(
        self,
        kind: Optional[Type[BaseException]],
        error: Optional[BaseException],
        traceback: Optional[TracebackType],
    ) -> None:
        await self.aclose()

    # What the stream table calls:

    def on_message(self, payload: bytes, call_id: int) -> None:
        """A question has come."""
        asked = self._read(payload)
        if asked is None:
            _log.warning("%s: declined what is no question", self._method.full_name)
            self._table.decline(self._id, b"", call_id)
        elif len(self._tasks) >= self._max_questions:
            _log.warning("%s: declined a question beyond max_questions", self._method.full_name)
            self._decline(asked.window, call_id)
        else:
            task = asyncio.get_running_loop().create_task(self._answer(asked, call_id))
            self._tasks.add(task)
            task.add_done_callback(self._tasks.discard)

    def on_end(self, error: Optional[RpcError]) -> None:
        """No more questions will come."""
        if error is not None and error.code not in (Code.UNAVAILABLE, Code.CANCELLED):
            _log.warning("%s: questions have ended: %s", self._method.full_name, error)
        self._finish(error)

    async def _answer(self, asked: Asked, call_id: int) -> None:
        try:
            payload = await self._payload(asked)
            if payload is not None:
                return self._table.send(self._id, payload, call_id)
        except asyncio.CancelledError:
            self._decline(asked.window, call_id)
            raise
        except asyncio.TimeoutError:
            self._log_declined(asked, "its handler took too long")
        except RpcError as error:
            # The answer itself could not be sent, or a call of the handler failed.
            self._log_declined(asked, error)
        except Exception:
            _log.exception("%s: the handler failed", self._method.full_name)
        self._decline(asked.window, call_id)

    async def _payload(self, asked: Asked) -> Optional[bytes]:
        """The answer of the handler, serialised; None to decline."""
        answer = self._handler(asked)
        if inspect.isawaitable(answer):
            answer = await asyncio.wait_for(answer, asked.answer_within)
        if answer is None:
            return None
        message = self._method.request_class()
        message.browser_id.value = asked.window
        message.response.CopyFrom(self._response(answer))
        return bytes(message.SerializeToString())

    def _response(self, answer: Any) -> Any:
        response = response_class_of(self._method.request_class)
        if full_name_of(answer) == response.DESCRIPTOR.full_name:
            return answer
        flags = [
            field.name
            for field in response.DESCRIPTOR.fields
            if field.type == field.TYPE_BOOL
        ]
        if isinstance(answer, bool) and len(flags) == 1:
            return response(**{flags[0]: answer})
        raise TypeError(
            f"{self._method.python_name}: the handler returned {answer!r}, which is no "
            f"answer: {response.DESCRIPTOR.full_name}, "
            + ("bool, " if len(flags) == 1 else "")
            + "or None"
        )

    def _read(self, payload: bytes) -> Optional[Asked]:
        try:
            message = self._method.request_class.FromString(payload)
        except Exception:  # protobuf's DecodeError; older versions raise others, too
            return None
        if message.WhichOneof("body") != "question":
            return None
        return Asked(message.browser_id.value, message.question, message)

    def _number(self, window: int) -> int:
        return window_number(window, f"{self._method.python_name}()")

    def _send(self, window: int, subscribe: bool) -> None:
        message = self._method.request_class(subscribe=subscribe)
        message.browser_id.value = self._number(window)
        try:
            self._table.send(self._id, message.SerializeToString())
        except RpcError as error:
            raise error.about(self._method.full_name) from None

    def _decline(self, window: int, call_id: int) -> None:
        message = self._method.request_class()
        message.browser_id.value = window
        self._table.decline(self._id, message.SerializeToString(), call_id)

    def _log_declined(self, asked: Asked, why: object) -> None:
        _log.warning(
            "%s: declined a question about window %s: %s",
            self._method.full_name,
            asked.window,
            why,
        )

    def _finish(self, error: Optional[RpcError]) -> None:
        if not self._closed.done():
            self._closed.set_result(error)
        for task in self._tasks:
            # A handler may end its own stream.
            if task is not asyncio.current_task():
                task.cancel()
