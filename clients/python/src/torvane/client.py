"""A client of one connection, for asyncio."""

import asyncio
import os
import sys
from types import TracebackType
from typing import Any, Optional, Sequence, Tuple, Type

from torvane.calls import CallTable
from torvane.connection import Connection
from torvane.contract import Contract, Method, builtin_contract
from torvane.errors import Code, RpcError
from torvane.events import EventStream
from torvane.limits import Limits
from torvane.paths import check_folder, default_socket_path
from torvane.questions import Answerer, Handler
from torvane.service import Service, Timeout, Windows
from torvane.streams import StreamTable

# From connecting to the end of the handshake, in seconds. A server on the same
# machine needs less than a millisecond; this is for one that swaps.
HANDSHAKE_TIMEOUT = 5.0


async def connect(
    path: Optional[str] = None,
    *,
    name: Optional[str] = None,
    timeout: Optional[float] = None,
    handshake_timeout: float = HANDSHAKE_TIMEOUT,
    limits: Limits = Limits(),
    contract: Optional[Contract] = None,
) -> "Client":
    """Connects to the server that listens at a path.

        async with await torvane.connect() as client:
            await client.windows.show(1)

    path: the socket; default: ${XDG_RUNTIME_DIR:-/tmp/torvane-UID}/window_host.sock
    name: what the client calls itself, which the server reports; default: the
        name of the program.
    timeout: the default deadline of calls in seconds; None for none.
    handshake_timeout: how long the server may take to welcome the client, in
        seconds.
    limits: what the connection may hold in memory.
    contract: the services that are known; default: those of this package.

    Ownership: the caller's, who closes the client.
    Loop: the client belongs to the running loop, and is used nowhere else.
    Failure: RpcError: UNAVAILABLE where no server listens, PERMISSION_DENIED
    where the socket's folder is another user's, DEADLINE_EXCEEDED where the
    server does not welcome the client in time, else what the server says.
    """
    path = default_socket_path() if path is None else path
    check_folder(path)
    client = Client(name or _program_name(), timeout, limits, contract or builtin_contract())
    late = RpcError(
        Code.DEADLINE_EXCEEDED,
        f"the server at {path} has not welcomed this client within {handshake_timeout} s",
    )
    # No asyncio.wait_for(): before Python 3.12 it may swallow a cancellation.
    timer = asyncio.get_running_loop().call_later(
        handshake_timeout, client._connection.close, late
    )
    try:
        await client._open(path)
    finally:
        timer.cancel()
    return client


class Client:
    """A connection, and the services at its other end. Made by connect().

    Loop: everything here belongs to the loop that connect() ran on.
    Failure: when the connection is over, everything open on it fails with the
    reason: what the server has said in its goodbye, or UNAVAILABLE. Calls then
    fail at once. It is not opened again: see Reconnecting.
    """

    def __init__(
        self, name: str, timeout: Optional[float], limits: Limits, contract: Contract
    ) -> None:
        self._timeout = timeout
        self._contract = contract
        self._windows: Optional[Windows] = None
        self._connection = Connection(limits, name, self._on_frame, self._on_closed)
        self._calls = CallTable(self._connection)
        self._streams = StreamTable(self._connection)

    @property
    def windows(self) -> Windows:
        """The windows: the service rpc.BrowserWindow."""
        if self._windows is None:
            self._windows = Windows(self, self._contract)
        return self._windows

    def service(self, full_name: str) -> Service:
        """A service by its full name, such as "rpc.status.ServerStatus".

        Raises KeyError if the contract does not have it. If the server does not,
        its methods fail with UNIMPLEMENTED.
        """
        return Service(self, self._contract.service(full_name))

    @property
    def offered_services(self) -> Tuple[str, ...]:
        """The full names of the services that the server offers."""
        return tuple(self._connection.offered.services)

    @property
    def contract(self) -> Contract:
        """The services and messages that are known here."""
        return self._contract

    @property
    def error(self) -> Optional[RpcError]:
        """None while connected, then why the connection is over."""
        return self._connection.error

    async def wait_closed(self) -> RpcError:
        """Waits until the connection is over, and returns why."""
        await asyncio.shield(self._connection.lost)
        assert self._connection.error is not None
        return self._connection.error

    async def aclose(self) -> None:
        """Closes the connection: what is open fails with CANCELLED.

        What still waits to be written is dropped. May be called again.
        """
        self._connection.close(RpcError(Code.CANCELLED, "the client was closed"))
        await asyncio.shield(self._connection.lost)

    async def __aenter__(self) -> "Client":
        return self

    async def __aexit__(
        self,
        kind: Optional[Type[BaseException]],
        error: Optional[BaseException],
        traceback: Optional[TracebackType],
    ) -> None:
        await self.aclose()

    # What a service's functions call:

    def call(self, method: Method, request: Any, timeout: Timeout) -> Any:
        """Calls a unary method; a coroutine of what it returns."""
        chosen: Any = self._timeout if timeout is ... else timeout
        return self._calls.call(method, request, chosen)

    def open_events(self, method: Method, windows: Sequence[int]) -> EventStream[Any]:
        """Opens a stream of events."""
        limit = self._connection.limits.max_unread_bytes
        return EventStream(self._streams, method, windows, limit)

    def open_questions(
        self, method: Method, windows: Sequence[int], handler: Handler
    ) -> Answerer:
        """Opens a stream of questions."""
        limit = self._connection.limits.max_questions
        return Answerer(self._streams, method, windows, handler, limit)

    async def _open(self, path: str) -> None:
        """Connects and shakes hands; closes what it has opened if that fails."""
        loop = asyncio.get_running_loop()
        try:
            await loop.create_unix_connection(lambda: self._connection, path)
        except OSError as error:
            raise RpcError(Code.UNAVAILABLE, f"no server listens at {path}: {error}") from None
        try:
            await asyncio.shield(self._connection.welcomed)
        except BaseException:
            self._connection.close(RpcError(Code.CANCELLED, "connecting was given up"))
            raise

    def _on_frame(self, name: str, body: Any) -> None:
        if name == "reply":
            self._calls.on_reply(body)
        elif name == "stream_data":
            self._streams.on_data(body)
        elif name == "stream_end":
            self._streams.on_end(body)

    def _on_closed(self, error: RpcError) -> None:
        self._calls.fail_all(error)
        self._streams.fail_all(error)


def _program_name() -> str:
    return os.path.basename(sys.argv[0] or "python")
