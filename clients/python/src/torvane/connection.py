"""One connection to a server: bytes, the handshake, and the end.

It never stops reading, whatever waits to be written. What is to be written is
handed to the socket at once; what the socket does not take waits in an outbox
that is bounded by max_outbox_bytes.

Ownership: the client's. Everything happens on the loop that it was made on.
Failure: when the connection is over, `error` says why, and whoever watches is
told once.
"""

import asyncio
import contextlib
import os
from typing import Any, Callable, Dict, List, Optional, cast

from torvane.errors import Code, RpcError, code_from_wire
from torvane.limits import MIN_FRAME_BYTES, Limits
from torvane.wire import (
    KINDS,
    PROTOCOL_VERSION,
    FrameDecoder,
    encode_frame,
    status_of,
    with_length,
)

# What waits in the socket's own buffer before the outbox is used.
_SOCKET_BUFFER_BYTES = 64 << 10


class Connection(asyncio.Protocol):
    """Implements what asyncio calls; the rest of the package uses what follows it.

    on_frame is called with the kind and the body of each frame after the
    welcome, on_closed once, with the reason, after which neither is called.
    """

    def __init__(
        self,
        limits: Limits,
        name: str,
        on_frame: Callable[[str, Any], None],
        on_closed: Callable[[RpcError], None],
    ) -> None:
        self.limits = limits
        self.error: Optional[RpcError] = None
        # Done when the socket is closed, and nothing will be called any more.
        self.lost: "asyncio.Future[None]" = asyncio.get_running_loop().create_future()
        # Done when the server has welcomed this client; fails if it does not.
        self.welcomed: "asyncio.Future[None]" = asyncio.get_running_loop().create_future()
        self.offered = OfferedMethods()
        self._name = name
        self._on_frame = on_frame
        self._on_closed = on_closed
        self._decoder = FrameDecoder(limits.max_frame_bytes)
        self._transport: Optional[asyncio.Transport] = None
        self._peer_max_frame_bytes = MIN_FRAME_BYTES
        self._socket_is_full = False
        self._outbox: List[bytes] = []
        self._outbox_bytes = 0

    # What asyncio calls:

    def connection_made(self, transport: asyncio.BaseTransport) -> None:
        self._transport = cast(asyncio.Transport, transport)
        if self.error is not None:
            # Connecting took longer than the handshake may.
            return self._transport.abort()
        self._transport.set_write_buffer_limits(high=_SOCKET_BUFFER_BYTES)
        self.write(
            "hello",
            KINDS["hello"].message(
                protocol_version=PROTOCOL_VERSION,
                max_frame_bytes=self.limits.max_frame_bytes,
                client_name=self._name.encode("utf-8", "replace"),
            ),
        )

    def data_received(self, data: bytes) -> None:
        self._decoder.feed(data)
        try:
            for name, body in self._decoder.frames():
                self._handle(name, body)
        except RpcError as violation:
            self._on_violation(violation)

    def connection_lost(self, error: Optional[Exception]) -> None:
        self._read_rest()
        text = "the server has closed the connection"
        if error is not None:
            text = f"the connection was lost: {error}"
        self._finish(RpcError(Code.UNAVAILABLE, text))
        self.lost.set_result(None)

    def pause_writing(self) -> None:
        self._socket_is_full = True

    def resume_writing(self) -> None:
        self._socket_is_full = False
        waiting, self._outbox, self._outbox_bytes = b"".join(self._outbox), [], 0
        if waiting and self._transport:
            self._transport.write(waiting)

    # What the rest of the package calls:

    def check_fits(self, frame: bytes, what: str) -> None:
        """Raises RESOURCE_EXHAUSTED if the server would not take the frame, or
        too much waits to be written; UNAVAILABLE or such if all is over."""
        if self.error is not None:
            raise self.error
        if len(frame) > self._peer_max_frame_bytes:
            raise RpcError(
                Code.RESOURCE_EXHAUSTED,
                f"{what} takes a frame of {len(frame)} bytes, more than the "
                f"server's max_frame_bytes, {self._peer_max_frame_bytes}",
            )
        if not self._socket_is_full:
            return
        waiting = self._waiting_bytes()
        if waiting + len(frame) > self.limits.max_outbox_bytes:
            raise RpcError(
                Code.RESOURCE_EXHAUSTED,
                f"{waiting} bytes wait to be written, and {what} would exceed "
                f"max_outbox_bytes, {self.limits.max_outbox_bytes}",
            )

    def write_frame(self, frame: bytes) -> None:
        """Writes a frame, whatever waits. Does nothing when all is over."""
        if self.error is not None or self._transport is None:
            return
        data = with_length(frame)
        if self._socket_is_full:
            self._outbox.append(data)
            self._outbox_bytes += len(data)
        else:
            self._transport.write(data)

    def write(self, name: str, body: Any) -> None:
        """Writes a frame with that body, as write_frame() does."""
        self.write_frame(encode_frame(name, body))

    def fail(self, error: RpcError) -> None:
        """Says goodbye with the error, if the socket takes it, and closes."""
        if self.error is None and self._transport is not None:
            if self._transport.get_write_buffer_size() == 0:
                goodbye = KINDS["goodbye"].message(status=status_of(error))
                self.write("goodbye", goodbye)
            self.close(error)

    def close(self, error: RpcError) -> None:
        """Closes without goodbye; what still waits to be written is dropped."""
        self._finish(error)
        if self._transport is not None:
            self._transport.abort()

    # The protocol:

    def _read_rest(self) -> None:
        """Reads what has come when the connection ends.

        A write that fails makes asyncio give up the socket. The goodbye that says
        why the server has closed it may be there, unread.
        """
        socket = self._transport.get_extra_info("socket") if self._transport else None
        with contextlib.suppress(OSError):
            while socket is not None and self.error is None:
                data = os.read(socket.fileno(), _SOCKET_BUFFER_BYTES)
                if not data:
                    return
                self.data_received(data)

    def _waiting_bytes(self) -> int:
        in_socket = self._transport.get_write_buffer_size() if self._transport else 0
        return self._outbox_bytes + in_socket

    def _finish(self, error: RpcError) -> None:
        if self.error is not None:
            return
        self.error = error
        self._outbox, self._outbox_bytes = [], 0
        if not self.welcomed.done():
            self.welcomed.set_exception(error)
            # connect() may have given up waiting for it.
            self.welcomed.exception()
        self._on_closed(error)

    def _handle(self, name: str, body: Any) -> None:
        if name == "goodbye":
            return self._on_goodbye(body)
        if not self.welcomed.done():
            return self._on_welcome(name, body)
        if name not in _FROM_SERVERS:
            raise RpcError(Code.INVALID_ARGUMENT, f"a server sends no {name} frame now")
        self._on_frame(name, body)

    def _on_violation(self, violation: RpcError) -> None:
        if not self.welcomed.done() and violation.code == Code.INVALID_ARGUMENT:
            violation = RpcError(
                Code.FAILED_PRECONDITION,
                f"the other side does not speak this protocol: {violation.text}",
            )
        self.fail(violation)

    def _on_welcome(self, name: str, body: Any) -> None:
        if name != "welcome":
            raise RpcError(Code.INVALID_ARGUMENT, "the first frame is not a welcome")
        if body.protocol_version != PROTOCOL_VERSION:
            raise RpcError(
                Code.FAILED_PRECONDITION,
                f"the server speaks protocol version {body.protocol_version}, this "
                f"client version {PROTOCOL_VERSION}",
            )
        if body.max_frame_bytes < MIN_FRAME_BYTES:
            raise RpcError(
                Code.INVALID_ARGUMENT,
                f"the server's max_frame_bytes, {body.max_frame_bytes}, is less "
                f"than the least that is allowed, {MIN_FRAME_BYTES}",
            )
        self._peer_max_frame_bytes = body.max_frame_bytes
        self.offered.set(body)
        self.welcomed.set_result(None)

    def _on_goodbye(self, body: Any) -> None:
        error = error_of(body)
        self.close(error or RpcError(Code.UNAVAILABLE, "the server said goodbye"))


# What a server may send after its welcome, except for the goodbye.
_FROM_SERVERS = frozenset(("reply", "stream_data", "stream_end"))


def error_of(body: Any) -> Optional[RpcError]:
    """The failure that a frame with a status tells of; None for success."""
    if not body.HasField("status") or body.status.code == 0:
        return None
    return RpcError(
        code_from_wire(body.status.code), body.status.text.decode("utf-8", "replace")
    )


class OfferedMethods:
    """What a server has said it offers, by name."""

    def __init__(self) -> None:
        self._methods: Dict[str, Dict[str, Any]] = {}

    def set(self, welcome: Any) -> None:
        """Takes over what the welcome says."""
        self._methods = {
            service.full_name: {method.name: method for method in service.methods}
            for service in welcome.services
        }

    @property
    def services(self) -> List[str]:
        """The full names of the services."""
        return list(self._methods)

    def id_of(self, service: str, name: str, streaming: bool) -> int:
        """The id of a method on this connection. Raises UNIMPLEMENTED."""
        method = self._methods.get(service, {}).get(name)
        if method is not None and method.streaming == streaming:
            return int(method.id)
        full_name = f"{service}.{name}"
        if method is not None:
            text = f"it is {'no' if streaming else 'a'} stream on the server"
        elif service in self._methods:
            text = "the server has no such method"
        else:
            text = f"the server has no service {service}"
        raise RpcError(Code.UNIMPLEMENTED, text, full_name)
