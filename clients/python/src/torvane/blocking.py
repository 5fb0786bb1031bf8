"""The client without asyncio: the same methods, which block.

    with torvane.blocking.connect() as client:
        client.windows.set_title(1, title="Inbox")
        for event in client.windows.closed(1, 2):
            print(event.title)

A thread of the client's own runs the loop that the connection lives on, and goes
on reading whatever the program does. Everything here may be used from any thread
but one: not from within that of the loop, which runs no code of the program.
Handlers of questions run in a pool of threads, and may call the client.

Interrupting a call (KeyboardInterrupt) cancels it.

A client stays with the process that has made it. After a fork its calls fail with
CANCELLED in the child, which needs one of its own.
"""

import asyncio
import concurrent.futures
import os
import threading
from types import TracebackType
from typing import Any, Callable, Coroutine, Generic, Optional, Sequence, Tuple, Type, TypeVar

import torvane.client
import torvane.reconnecting
from torvane.contract import Contract, Method
from torvane.errors import Code, RpcError
from torvane.questions import Asked, Handler
from torvane.service import BlockingReconnectingWindows, BlockingWindows, Service, Timeout, Windows

# Handlers that run at the same time. More questions wait for a free thread.
HANDLER_THREADS = 16

# asyncio gives up a wait of 0 seconds before it looks whether there is anything to
# wait for, and one of a nanosecond after that.
_LEAST_WAIT = 1e-9

_Result = TypeVar("_Result")
_Event = TypeVar("_Event")


class _LoopThread:
    """A loop and the thread that runs it."""

    def __init__(self) -> None:
        self.loop = asyncio.new_event_loop()
        self.handlers = concurrent.futures.ThreadPoolExecutor(
            HANDLER_THREADS, thread_name_prefix="torvane-handler"
        )
        self._thread = threading.Thread(target=self._run, name="torvane", daemon=True)
        self._process = os.getpid()
        self._closing = threading.Lock()
        self._closed = False
        self._thread.start()

    def run(self, coroutine: Coroutine[Any, Any, _Result]) -> _Result:
        """Runs a coroutine on the loop and returns its result."""
        if self._is_of_the_parent():
            coroutine.close()
            raise RpcError(Code.CANCELLED, "the client is that of the parent process")
        with self._closing:
            if self._closed:
                coroutine.close()
                raise RpcError(Code.CANCELLED, "the client was closed")
            future = asyncio.run_coroutine_threadsafe(coroutine, self.loop)
        try:
            return future.result()
        except concurrent.futures.CancelledError:
            raise RpcError(Code.CANCELLED, "the client was closed") from None
        except BaseException:
            future.cancel()
            raise

    def call(self, function: Callable[..., _Result], *args: Any) -> _Result:
        """Calls a function on the loop and returns its result."""

        async def call() -> _Result:
            return function(*args)

        return self.run(call())

    def stop(self) -> None:
        """Cancels what still runs on the loop, and ends the thread."""
        if self._is_of_the_parent():
            return
        with self._closing:
            if self._closed:
                return
            self._closed = True
        self.loop.call_soon_threadsafe(self.loop.stop)
        self._thread.join()
        self.handlers.shutdown(wait=False)

    def _is_of_the_parent(self) -> bool:
        """Whether this is a copy that fork() has made, which has no thread."""
        return os.getpid() != self._process

    def _run(self) -> None:
        self.loop.run_forever()
        self.loop.run_until_complete(_cancel_others())
        self.loop.close()


async def _cancel_others() -> None:
    """Cancels all other tasks of the loop, and waits until they have ended."""
    tasks = asyncio.all_tasks() - {asyncio.current_task()}
    for task in tasks:
        task.cancel()
    await asyncio.gather(*tasks, return_exceptions=True)


class Events(Generic[_Event]):
    """A stream of events, to be read by `for`: a torvane.EventStream that blocks,
    or that of a Reconnecting."""

    def __init__(self, thread: _LoopThread, stream: Any) -> None:
        self._thread = thread
        self._stream = stream

    def subscribe(self, window: int) -> None:
        """Asks for the events about a window, from here on. Raises RpcError."""
        self._thread.call(self._stream.subscribe, window)

    def unsubscribe(self, window: int) -> None:
        """Asks for no more events about a window. Raises RpcError."""
        self._thread.call(self._stream.unsubscribe, window)

    def get(self, timeout: Optional[float] = None) -> _Event:
        """The next event. timeout is in seconds; None waits for ever, 0 takes one
        that has come already.

        Raises TimeoutError when the time is up, EOFError when the stream has been
        closed, RpcError when it has failed.
        """
        try:
            return self._thread.run(_within(timeout, self._next))
        except asyncio.TimeoutError:
            raise TimeoutError(f"no event within {timeout} s") from None

    def close(self) -> None:
        """Ends the stream and drops what was not read. May be called again."""
        _unless_closed(self._thread, self._stream.aclose())

    def __iter__(self) -> "Events[_Event]":
        return self

    def __next__(self) -> _Event:
        try:
            return self.get()
        except EOFError:
            raise StopIteration from None

    def __enter__(self) -> "Events[_Event]":
        return self

    def __exit__(
        self,
        kind: Optional[Type[BaseException]],
        error: Optional[BaseException],
        traceback: Optional[TracebackType],
    ) -> None:
        self.close()

    async def _next(self) -> _Event:
        try:
            event: _Event = await self._stream.__anext__()
            return event
        except StopAsyncIteration:
            raise EOFError("the stream has been closed") from None


class Answerer:
    """Answers questions, in threads: a torvane.Answerer that blocks, or that of a
    Reconnecting. The handler is an ordinary function."""

    def __init__(self, thread: _LoopThread, answerer: Any, handler: Handler) -> None:
        self._thread = thread
        self._answerer = answerer
        self._handler = handler
        self.__doc__ = handler.__doc__

    def __call__(self, asked: Asked) -> Any:
        """Calls the handler, as for a test of it."""
        return self._handler(asked)

    def subscribe(self, window: int) -> None:
        """Answers for a window from here on. Raises RpcError."""
        self._thread.call(self._answerer.subscribe, window)

    def unsubscribe(self, window: int) -> None:
        """No longer answers for a window. Raises RpcError."""
        self._thread.call(self._answerer.unsubscribe, window)

    def wait_closed(self) -> None:
        """Waits until the stream is over. Raises RpcError if it ended badly."""
        self._thread.run(self._answerer.wait_closed())

    def close(self) -> None:
        """Ends the stream. Answers that handlers are still working out are
        dropped. May be called again."""
        _unless_closed(self._thread, self._answerer.aclose())

    def __enter__(self) -> "Answerer":
        return self

    def __exit__(
        self,
        kind: Optional[Type[BaseException]],
        error: Optional[BaseException],
        traceback: Optional[TracebackType],
    ) -> None:
        self.close()


_Inner = TypeVar("_Inner", torvane.client.Client, torvane.reconnecting.Reconnecting)
_Windows = TypeVar("_Windows", BlockingWindows, BlockingReconnectingWindows)


class BlockingClient(Generic[_Inner, _Windows]):
    """A client whose methods block. Made by connect() and reconnecting().

    Ownership: the caller's, who closes it: that ends the thread, and fails what
    other threads wait for with CANCELLED.
    Thread: any.
    Failure: as that of torvane.Client and torvane.Reconnecting.
    """

    def __init__(self, thread: _LoopThread, client: _Inner) -> None:
        self._thread = thread
        self._client: _Inner = client
        # Its type is that of the subclass.
        windows: Any = Windows(self, client.contract)
        self._windows: _Windows = windows

    @property
    def windows(self) -> _Windows:
        """The windows: the service rpc.BrowserWindow."""
        return self._windows

    def service(self, full_name: str) -> Service:
        """A service by its full name. Raises KeyError if the contract does not
        have it."""
        return Service(self, self._client.contract.service(full_name))

    @property
    def contract(self) -> Contract:
        """The services and messages that are known here."""
        return self._client.contract

    def close(self) -> None:
        """Closes the connection and ends the thread. May be called again."""
        _unless_closed(self._thread, self._client.aclose())
        self._thread.stop()

    def __enter__(self: "_Self") -> "_Self":
        return self

    def __exit__(
        self,
        kind: Optional[Type[BaseException]],
        error: Optional[BaseException],
        traceback: Optional[TracebackType],
    ) -> None:
        self.close()

    # What a service's functions call:

    def call(self, method: Method, request: Any, timeout: Timeout) -> Any:
        """Calls a unary method, and returns what it returns."""
        return self._thread.run(self._client.call(method, request, timeout))

    def open_events(self, method: Method, windows: Sequence[int]) -> Events[Any]:
        """Opens a stream of events."""
        stream = self._thread.call(self._client.open_events, method, windows)
        return Events(self._thread, stream)

    def open_questions(
        self, method: Method, windows: Sequence[int], handler: Handler
    ) -> Answerer:
        """Opens a stream of questions."""
        thread = self._thread

        async def answer(asked: Asked) -> Any:
            return await thread.loop.run_in_executor(thread.handlers, _handle, handler, asked)

        answerer = thread.call(self._client.open_questions, method, windows, answer)
        return Answerer(thread, answerer, handler)


_Self = TypeVar("_Self", bound=BlockingClient[Any, Any])


class Client(BlockingClient[torvane.client.Client, BlockingWindows]):
    """A connection, and the services at its other end. Made by connect()."""

    @property
    def offered_services(self) -> Tuple[str, ...]:
        """The full names of the services that the server offers."""
        return self._client.offered_services

    @property
    def error(self) -> Optional[RpcError]:
        """None while connected, then why the connection is over."""
        return self._client.error


class ReconnectingClient(
    BlockingClient[torvane.reconnecting.Reconnecting, BlockingReconnectingWindows]
):
    """Connects again when the server comes back. Made by reconnecting()."""

    @property
    def is_connected(self) -> bool:
        """Whether there is a connection now."""
        return self._client.is_connected

    def wait_connected(self, timeout: Optional[float] = None) -> None:
        """Waits until there is a connection. timeout is in seconds; None waits for
        ever. Raises TimeoutError when the time is up."""
        try:
            self._thread.run(_within(timeout, self._client.wait_connected))
        except asyncio.TimeoutError:
            raise TimeoutError(f"no connection within {timeout} s") from None


def connect(path: Optional[str] = None, **options: Any) -> Client:
    """Connects to a server, as torvane.connect() does, with the same arguments."""
    thread = _LoopThread()
    try:
        return Client(thread, thread.run(torvane.client.connect(path, **options)))
    except BaseException:
        thread.stop()
        raise


def reconnecting(path: Optional[str] = None, **options: Any) -> ReconnectingClient:
    """Begins to connect to a server, as torvane.Reconnecting does, with the same
    arguments, and does not wait for it."""
    thread = _LoopThread()

    async def enter() -> torvane.reconnecting.Reconnecting:
        client = torvane.reconnecting.Reconnecting(path, **options)
        return await client.__aenter__()

    try:
        return ReconnectingClient(thread, thread.run(enter()))
    except BaseException:
        thread.stop()
        raise


async def _within(
    timeout: Optional[float], wait: Callable[[], Coroutine[Any, Any, _Result]]
) -> _Result:
    """What a coroutine function returns. Raises asyncio.TimeoutError when the time
    is up."""
    if timeout is not None:
        timeout = max(timeout, _LEAST_WAIT)
    return await asyncio.wait_for(wait(), timeout)


def _handle(handler: Handler, asked: Asked) -> Any:
    """Calls a handler. An exception that would end the loop, such as SystemExit, or
    that asyncio does not pass on, StopIteration, becomes a RuntimeError."""
    try:
        return handler(asked)
    except BaseException as error:
        if isinstance(error, Exception) and not isinstance(error, StopIteration):
            raise
        raise RuntimeError(f"the handler raised {type(error).__name__}") from error


def _unless_closed(thread: _LoopThread, coroutine: Coroutine[Any, Any, None]) -> None:
    """Runs it unless the client has been closed, which has done the same."""
    try:
        thread.run(coroutine)
    except RpcError as error:
        if error.code != Code.CANCELLED:
            raise
