"""A client that connects again when the server comes back."""

import asyncio
import dataclasses
import inspect
import logging
import random
from types import TracebackType
from typing import Any, Dict, Generic, Optional, Sequence, Set, Tuple, Type, TypeVar, Union

from torvane.arguments import window_number
from torvane.client import Client, connect
from torvane.contract import Contract, Method, builtin_contract
from torvane.errors import Code, RpcError
from torvane.events import EventStream
from torvane.questions import Answerer, Asked, Handler
from torvane.service import ReconnectingWindows, Service, Timeout

_log = logging.getLogger("torvane")

_Event = TypeVar("_Event")

# Pauses between attempts to connect, in seconds: each is twice as long as the one
# before it. The first is what a host needs to start, the last what a person
# waits without wondering.
FIRST_PAUSE = 0.05
LONGEST_PAUSE = 5.0


@dataclasses.dataclass(frozen=True)
class Missed:
    """Stands in a stream of events where some may have been lost: the connection
    was, and streams do not resume.

    The stream has subscribed to its windows again, so whoever now asks the server
    for what matters has all of it, together with the events that follow.

    error: why the connection was lost.
    windows: the windows that the stream subscribes to.
    """

    error: RpcError
    windows: Tuple[int, ...]


class Reconnecting:
    """Like a Client, but connects again whenever the connection is lost.

        async with torvane.Reconnecting() as client:
            async for event in client.windows.closed(1):
                if isinstance(event, torvane.Missed):
                    ...  # look at the windows anew
                else:
                    print(event.title)

    Calls are not repeated, since the server may have done what they ask for:
    they fail when the connection is lost, and at once, with UNAVAILABLE, while
    there is none. wait_connected() waits until there is one.

    Streams of events yield a Missed for each connection that was lost, then go
    on. Answerers subscribe to their windows again; what was asked meanwhile was
    decided without them.

    Ownership: entering it begins to connect, leaving it closes everything.
    Loop: that on which it is entered.
    Failure: every failure to connect is taken for a passing one, and logged once
    for each reason. A stream that the server itself ends fails as one of a Client.
    """

    def __init__(
        self,
        path: Optional[str] = None,
        *,
        first_pause: float = FIRST_PAUSE,
        longest_pause: float = LONGEST_PAUSE,
        contract: Optional[Contract] = None,
        **options: Any,
    ) -> None:
        """Takes what connect() takes, and how long to pause between attempts, in
        seconds. Raises TypeError for an option that connect() has not."""
        if not 0 < first_pause <= longest_pause:
            raise ValueError("first_pause must be positive and at most longest_pause")
        # Else only the task that connects would hear of it.
        inspect.signature(connect).bind(path, **options)
        self._path = path
        self._first_pause = first_pause
        self._longest_pause = longest_pause
        self._contract = contract or builtin_contract()
        self._options = options
        self._client: Optional[Client] = None
        self._windows: Optional[ReconnectingWindows] = None
        self._answerers: "Set[ReconnectingAnswerer]" = set()
        self._changed: "asyncio.Event"
        self._task: "Optional[asyncio.Task[None]]" = None

    @property
    def windows(self) -> ReconnectingWindows:
        """The windows: the service rpc.BrowserWindow."""
        if self._windows is None:
            self._windows = ReconnectingWindows(self, self._contract)
        return self._windows

    def service(self, full_name: str) -> Service:
        """A service by its full name. Raises KeyError if the contract does not
        have it."""
        return Service(self, self._contract.service(full_name))

    @property
    def contract(self) -> Contract:
        """The services and messages that are known here."""
        return self._contract

    @property
    def is_connected(self) -> bool:
        """Whether there is a connection now."""
        return self._client is not None and self._client.error is None

    async def wait_connected(self) -> None:
        """Waits until there is a connection. Raises CANCELLED once this is closed,
        and what is wrong with the options if connect() cannot be called with them."""
        while not self.is_connected:
            self.check_running()
            await self.wait_changed()

    async def aclose(self) -> None:
        """Closes the connection and stops connecting. May be called again."""
        task, self._task = self._task, None
        if task is None:
            return
        task.cancel()
        try:
            # Not the task itself: its cancellation would pass for one of the caller's.
            await asyncio.wait((task,))
        finally:
            for answerer in list(self._answerers):
                answerer.finish(RpcError(Code.CANCELLED, "the client is closed"))
            self.notify()

    async def __aenter__(self) -> "Reconnecting":
        if self._task is None:
            self._changed = asyncio.Event()
            self._task = asyncio.get_running_loop().create_task(self._run())
            self._task.add_done_callback(lambda task: self.notify())
        return self

    async def __aexit__(
        self,
        kind: Optional[Type[BaseException]],
        error: Optional[BaseException],
        traceback: Optional[TracebackType],
    ) -> None:
        await self.aclose()

    # What a service's functions call:

    async def call(self, method: Method, request: Any, timeout: Timeout) -> Any:
        """Calls a unary method, as a Client does."""
        return await self.current(method).call(method, request, timeout)

    def open_events(self, method: Method, windows: Sequence[int]) -> "ReconnectingEvents[Any]":
        """Opens a stream of events, now or when there is a connection."""
        self.check_running()
        return ReconnectingEvents(self, method, windows)

    def open_questions(
        self, method: Method, windows: Sequence[int], handler: Handler
    ) -> "ReconnectingAnswerer":
        """Opens a stream of questions, now or when there is a connection."""
        self.check_running()
        answerer = ReconnectingAnswerer(self, method, windows, handler)
        self._answerers.add(answerer)
        return answerer

    # What its streams call:

    def current(self, method: Method) -> Client:
        """The client of the connection. Raises UNAVAILABLE while there is none."""
        if self._client is None:
            self.check_running()
            raise RpcError(Code.UNAVAILABLE, "there is no connection now", method.full_name)
        return self._client

    def forget(self, answerer: "ReconnectingAnswerer") -> None:
        """The answerer is closed."""
        self._answerers.discard(answerer)

    def check_running(self) -> None:
        """Raises CANCELLED once this is closed, and what is wrong with the options
        if connect() cannot be called with them."""
        if self._task is None:
            raise RpcError(Code.CANCELLED, "the client is closed")
        if self._task.done():
            self._task.result()

    async def wait_changed(self) -> None:
        """Waits until notify() is called."""
        await self._changed.wait()

    def notify(self) -> None:
        """Lets all who wait look again whether what they wait for is there."""
        self._changed.set()
        self._changed = asyncio.Event()

    async def _run(self) -> None:
        while True:
            client = await self._connect()
            try:
                self._client = client
                self._reopen(client)
                self.notify()
                error = await client.wait_closed()
            finally:
                self._client = None
                await client.aclose()
            _log.warning("the connection was lost: %s", error)

    def _reopen(self, client: Client) -> None:
        for answerer in list(self._answerers):
            answerer.reopen(client)

    async def _connect(self) -> Client:
        pause = self._first_pause
        logged = ""
        while True:
            try:
                return await connect(self._path, contract=self._contract, **self._options)
            except RpcError as error:
                if str(error) != logged:
                    logged = str(error)
                    _log.warning("there is no connection: %s", logged)
            # Not all clients of a server that has gone come back at the same moment.
            await asyncio.sleep(pause * random.uniform(0.5, 1))
            pause = min(2 * pause, self._longest_pause)


class ReconnectingEvents(Generic[_Event]):
    """An EventStream that goes on with the next connection: see there, and Missed.

    It begins when there is a connection. It subscribes again when it is read, and
    an event between the two is among those that Missed stands for.
    """

    def __init__(self, owner: Reconnecting, method: Method, windows: Sequence[int]) -> None:
        self._owner = owner
        self._method = method
        self._windows = _numbers(method, windows)
        self._client: Optional[Client] = None
        self._stream: Optional[EventStream[_Event]] = None
        self._lost: Optional[RpcError] = None
        self._closed = False
        if owner.is_connected:
            self._open()

    def subscribe(self, window: int) -> None:
        """Asks for the events about a window, on this connection and later ones."""
        self._windows.update(_numbers(self._method, (window,)))
        if self._stream is not None and not self._is_lost():
            self._stream.subscribe(window)

    def unsubscribe(self, window: int) -> None:
        """Asks for no more events about a window."""
        for number in _numbers(self._method, (window,)):
            self._windows.pop(number, None)
        if self._stream is not None and not self._is_lost():
            self._stream.unsubscribe(window)

    async def aclose(self) -> None:
        """Ends the stream and drops what was not read. May be called again."""
        self._closed = True
        if self._stream is not None:
            await self._stream.aclose()
        self._owner.notify()

    async def __aenter__(self) -> "ReconnectingEvents[_Event]":
        return self

    async def __aexit__(
        self,
        kind: Optional[Type[BaseException]],
        error: Optional[BaseException],
        traceback: Optional[TracebackType],
    ) -> None:
        await self.aclose()

    def __aiter__(self) -> "ReconnectingEvents[_Event]":
        return self

    async def __anext__(self) -> Union[_Event, Missed]:
        while not self._closed:
            if self._stream is not None:
                try:
                    return await self._stream.__anext__()
                except RpcError:
                    if not self._is_lost():
                        raise
                self._lost, self._stream = self._stream.error, None
            elif not self._owner.is_connected:
                self._owner.check_running()
                await self._owner.wait_changed()
            else:
                self._open()
                lost, self._lost = self._lost, None
                if lost is not None:
                    return Missed(lost, tuple(self._windows))
        raise StopAsyncIteration

    def _open(self) -> None:
        self._client = self._owner.current(self._method)
        self._stream = self._client.open_events(self._method, tuple(self._windows))

    def _is_lost(self) -> bool:
        """Whether the stream has ended because its connection has."""
        assert self._client is not None and self._stream is not None
        return self._stream.error is not None and self._stream.error is self._client.error


class ReconnectingAnswerer:
    """An Answerer that goes on with the next connection: see there.

    What is asked while there is no connection is decided without it.
    """

    def __init__(
        self, owner: Reconnecting, method: Method, windows: Sequence[int], handler: Handler
    ) -> None:
        self._owner = owner
        self._method = method
        self._windows = _numbers(method, windows)
        self._handler = handler
        self._answerer: Optional[Answerer] = None
        self._closed: "asyncio.Future[Optional[RpcError]]"
        self._closed = asyncio.get_running_loop().create_future()
        self.__doc__ = handler.__doc__
        if owner.is_connected:
            self._open(owner.current(method))

    def __call__(self, asked: Asked) -> Any:
        """Calls the handler, as for a test of it."""
        return self._handler(asked)

    def subscribe(self, window: int) -> None:
        """Answers for a window, on this connection and later ones."""
        self._windows.update(_numbers(self._method, (window,)))
        if self._answerer is not None and not self._answerer.is_over:
            self._answerer.subscribe(window)

    def unsubscribe(self, window: int) -> None:
        """No longer answers for a window."""
        for number in _numbers(self._method, (window,)):
            self._windows.pop(number, None)
        if self._answerer is not None and not self._answerer.is_over:
            self._answerer.unsubscribe(window)

    async def aclose(self) -> None:
        """Ends the stream and cancels the handlers that run. May be called again."""
        self._finish(None)
        if self._answerer is not None:
            await self._answerer.aclose()

    async def wait_closed(self) -> None:
        """Waits until the server or aclose() has ended the stream, or the client is
        closed. Raises RpcError if it ended badly."""
        error = await asyncio.shield(self._closed)
        if error is not None:
            raise error.about(self._method.full_name)

    async def __aenter__(self) -> "ReconnectingAnswerer":
        return self

    async def __aexit__(
        self,
        kind: Optional[Type[BaseException]],
        error: Optional[BaseException],
        traceback: Optional[TracebackType],
    ) -> None:
        await self.aclose()

    # What Reconnecting calls:

    def reopen(self, client: Client) -> None:
        """There is a new connection."""
        try:
            self._open(client)
        except RpcError as error:
            if error.code == Code.UNIMPLEMENTED:
                _log.warning("no more questions: %s", error)
                self._finish(error)

    def finish(self, error: RpcError) -> None:
        """There will be no more connections."""
        self._finish(error)

    def _open(self, client: Client) -> None:
        answerer = client.open_questions(self._method, tuple(self._windows), self._handler)
        self._answerer = answerer

        def on_end(error: Optional[RpcError]) -> None:
            self._answerer = None
            if error is None or error is not client.error:
                self._finish(error)

        answerer.when_closed(on_end)

    def _finish(self, error: Optional[RpcError]) -> None:
        self._owner.forget(self)
        if not self._closed.done():
            self._closed.set_result(error)


def _numbers(method: Method, windows: Sequence[int]) -> Dict[int, None]:
    """A set of windows that keeps their order."""
    what = f"{method.python_name}()"
    return dict.fromkeys(window_number(window, what) for window in windows)
