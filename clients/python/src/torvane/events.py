"""Streams of events."""

import asyncio
import collections
import logging
from types import TracebackType
from typing import Any, Deque, Generic, Optional, Sequence, Type, TypeVar

from torvane.arguments import window_number
from torvane.contract import Method
from torvane.errors import Code, RpcError
from torvane.limits import EVENT_OVERHEAD_BYTES
from torvane.streams import StreamTable

_log = logging.getLogger("torvane")

_Event = TypeVar("_Event")


class EventStream(Generic[_Event]):
    """The events about the windows that it subscribes to.

        async with client.windows.closed(1, 2) as events:
            async for event in events:
                print(event.browser_id.value, event.title)

    The server sends events from when the stream was made; they wait until they
    are read. A subscription is in force for whatever the server does after it:
    the reply to any later call of the same client proves that it has arrived.

    Ownership: the client holds it until it is over, so end it with `async with`
    or aclose(): leaving an `async for` ends nothing.
    Loop: that of the client. One task at a time may read.
    Failure: reading raises RpcError once all events that came before have been
    read: RESOURCE_EXHAUSTED when more than max_unread_bytes wait (nothing is
    dropped before that, and the stream then ends), UNAVAILABLE when the server
    has gone, CANCELLED when the client was closed. Iteration stops where the
    stream was ended by aclose(), which drops what was not read, or by the server
    without an error. An event that does not parse is logged and left out.
    """

    def __init__(
        self,
        table: StreamTable,
        method: Method,
        windows: Sequence[int],
        max_unread_bytes: int,
    ) -> None:
        self._table = table
        self._method = method
        self._max_unread_bytes = max_unread_bytes
        self._unread: Deque[bytes] = collections.deque()
        self._unread_bytes = 0
        self._wakeup: "Optional[asyncio.Future[None]]" = None
        self._over = False
        self._error: Optional[RpcError] = None
        numbers = [self._number(window) for window in windows]
        self._id = table.open(method, self)
        try:
            for number in numbers:
                self.subscribe(number)
        except BaseException:
            table.end(self._id)
            raise

    @property
    def error(self) -> Optional[RpcError]:
        """Why the stream is over; None while it is open or if it ended well."""
        return self._error

    def subscribe(self, window: int) -> None:
        """Asks for the events about a window, from here on.

        Raises RpcError: FAILED_PRECONDITION when the stream is over,
        RESOURCE_EXHAUSTED when too much waits to be written.
        """
        self._send(subscribe_to={"value": self._number(window)})

    def unsubscribe(self, window: int) -> None:
        """Asks for no more events about a window. Fails as subscribe() does."""
        self._send(unsubscribe_from={"value": self._number(window)})

    async def aclose(self) -> None:
        """Ends the stream and drops what was not read. May be called again."""
        self._table.end(self._id)
        self._drop_unread()
        self._finish(None)

    async def __aenter__(self) -> "EventStream[_Event]":
        return self

    async def __aexit__(
        self,
        kind: Optional[Type[BaseException]],
        error: Optional[BaseException],
        traceback: Optional[TracebackType],
    ) -> None:
        await self.aclose()

    def __aiter__(self) -> "EventStream[_Event]":
        return self

    async def __anext__(self) -> _Event:
        while True:
            payload = await self._next_payload()
            try:
                event: _Event = self._method.response_class.FromString(payload)
                return event
            except Exception:  # protobuf's DecodeError; older versions raise others
                _log.warning("%s: left out an event that does not parse", self._method.full_name)

    async def _next_payload(self) -> bytes:
        while not self._unread:
            if self._error is not None:
                raise self._error.about(self._method.full_name)
            if self._over:
                raise StopAsyncIteration
            if self._wakeup is not None:
                raise RuntimeError("another task is reading this stream")
            self._wakeup = asyncio.get_running_loop().create_future()
            try:
                await self._wakeup
            finally:
                self._wakeup = None
        payload = self._unread.popleft()
        self._unread_bytes -= len(payload) + EVENT_OVERHEAD_BYTES
        return payload

    # What the stream table calls:

    def on_message(self, payload: bytes, call_id: int) -> None:
        """An event has come."""
        size = len(payload) + EVENT_OVERHEAD_BYTES
        if self._unread_bytes + size > self._max_unread_bytes:
            self._table.end(self._id)
            self._finish(
                RpcError(
                    Code.RESOURCE_EXHAUSTED,
                    f"{len(self._unread)} events of {self._unread_bytes} bytes were "
                    f"not read, and one more would exceed max_unread_bytes, "
                    f"{self._max_unread_bytes}",
                )
            )
            return
        self._unread.append(payload)
        self._unread_bytes += size
        self._wake()

    def on_end(self, error: Optional[RpcError]) -> None:
        """No more events will come."""
        self._finish(error)

    def _number(self, window: int) -> int:
        return window_number(window, f"{self._method.python_name}()")

    def _send(self, **fields: Any) -> None:
        message = self._method.request_class(**fields)
        try:
            self._table.send(self._id, message.SerializeToString())
        except RpcError as error:
            raise error.about(self._method.full_name) from None

    def _drop_unread(self) -> None:
        self._unread.clear()
        self._unread_bytes = 0

    def _finish(self, error: Optional[RpcError]) -> None:
        if self._over:
            return
        self._over = True
        self._error = error
        self._wake()

    def _wake(self) -> None:
        if self._wakeup is not None and not self._wakeup.done():
            self._wakeup.set_result(None)
