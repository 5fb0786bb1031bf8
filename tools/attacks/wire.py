"""A client of the wire protocol, as docs/wire-protocol.md describes it.

Knows that page and the .proto files, and nothing of the service's own code.
Functions named x_frame() make the bytes of one frame with its length, so that
thousands can be made in advance and sent in one write. A Connection sends them
and takes frames apart.

One thread uses a Connection. Times are in seconds.
"""

from __future__ import annotations

import enum
import select
import socket
import time
from typing import Callable

from google.protobuf.message import Message
from rpc.transport import frame_pb2

PROTOCOL_VERSION = 1

# What this client announces to take, unless a test wants otherwise.
MAX_FRAME_BYTES = 4 << 20

# How long to wait for what must come. Longer than any stall that is a finding
# of its own, so that the stall is measured instead of cut off.
PATIENCE = 30.0

Frame = frame_pb2.Frame


class Code(enum.IntEnum):
    """Canonical RPC status codes."""

    OK = 0
    CANCELLED = 1
    UNKNOWN = 2
    INVALID_ARGUMENT = 3
    DEADLINE_EXCEEDED = 4
    NOT_FOUND = 5
    ALREADY_EXISTS = 6
    PERMISSION_DENIED = 7
    RESOURCE_EXHAUSTED = 8
    FAILED_PRECONDITION = 9
    ABORTED = 10
    OUT_OF_RANGE = 11
    UNIMPLEMENTED = 12
    INTERNAL = 13
    UNAVAILABLE = 14
    DATA_LOSS = 15
    UNAUTHENTICATED = 16


class Silence(Exception):
    """Nothing has come within the time that was allowed for it."""


class Ended(Exception):
    """The connection has ended. `status` is the goodbye's, None without one."""

    def __init__(self, status: frame_pb2.RpcStatus | None):
        self.status = status
        said = "no goodbye"
        if status is not None:
            text = status.text.decode("utf-8", "backslashreplace")
            said = f"goodbye {Code(status.code).name}: {text}"
        super().__init__(f"the connection has ended, {said}")


def varint(number: int) -> bytes:
    """Encodes a number that is not negative, seven bits in each byte."""
    encoded = bytearray()
    while number > 0x7F:
        encoded.append(number & 0x7F | 0x80)
        number >>= 7
    encoded.append(number)
    return bytes(encoded)


def framed(content: bytes) -> bytes:
    """Puts the length in front of a serialised Frame."""
    return varint(len(content)) + content


def field(number: int, content: bytes) -> bytes:
    """One length-delimited field, such as a body within a Frame."""
    return varint(number << 3 | 2) + varint(len(content)) + content


def packed(**body: Message) -> bytes:
    """A Frame with this body, as packed(hello=...)."""
    return framed(Frame(**body).SerializeToString())


def hello_frame(name: str, max_frame_bytes: int) -> bytes:
    return packed(hello=frame_pb2.HelloFrame(
        protocol_version=PROTOCOL_VERSION, max_frame_bytes=max_frame_bytes,
        client_name=name.encode()))


def call_frame(call_id: int, method_id: int, request: bytes) -> bytes:
    return packed(call=frame_pb2.CallFrame(
        call_id=call_id, method_id=method_id, request=request))


def open_frame(stream_id: int, method_id: int) -> bytes:
    return packed(stream_open=frame_pb2.StreamOpenFrame(
        stream_id=stream_id, method_id=method_id))


def data_frame(stream_id: int, payload: bytes, call_id: int = 0) -> bytes:
    """One message on one stream; an answer repeats its question's call id."""
    data = frame_pb2.StreamDataFrame(stream_ids=[stream_id])
    data.message.payload = payload
    data.message.call_id = call_id
    return packed(stream_data=data)


def end_frame(stream_id: int) -> bytes:
    return packed(stream_end=frame_pb2.StreamEndFrame(stream_id=stream_id))


class Connection:
    """A client that has been welcomed. Closes its socket when it is left."""

    def __init__(self, path: str, name: str = "attacker",
                 max_frame_bytes: int = MAX_FRAME_BYTES):
        self._received = bytearray()
        self._next_call = 1
        self.socket = socket.socket(socket.AF_UNIX, socket.SOCK_STREAM)
        self.socket.settimeout(PATIENCE)
        try:
            self.socket.connect(path)
            self.send(hello_frame(name, max_frame_bytes))
            welcome = self.receive().welcome
        except BaseException:
            self.socket.close()
            raise
        self.server_takes = welcome.max_frame_bytes
        self._ids = {
            f"{service.full_name}.{method.name}": method.id
            for service in welcome.services for method in service.methods
        }

    def __enter__(self) -> Connection:
        return self

    def __exit__(self, *_: object) -> None:
        self.close()

    def close(self) -> None:
        self.socket.close()

    def method(self, full_name: str) -> int:
        """The id of a method on this connection."""
        return self._ids[full_name]

    def send(self, *frames: bytes) -> None:
        """Writes all frames in one go; waits until the socket has taken them.

        Ended if the server has closed the connection: with its goodbye if that
        has been received or can be.
        """
        try:
            self.socket.sendall(b"".join(frames))
        except TimeoutError as error:
            raise Silence(f"nothing read for {PATIENCE:g} s") from error
        except (BrokenPipeError, ConnectionResetError) as error:
            raise Ended(self._last_words()) from error

    def receive(self, patience: float = PATIENCE) -> Frame:
        """The next frame. Ended after the last one; Silence if none comes."""
        deadline = time.monotonic() + patience
        while (frame := self._take_frame()) is None:
            left = deadline - time.monotonic()
            if left <= 0 or not select.select([self.socket], [], [], left)[0]:
                raise Silence(f"no frame for {patience:g} s")
            try:
                chunk = self.socket.recv(1 << 16)
            except ConnectionResetError:
                chunk = b""
            if not chunk:
                raise Ended(None)
            self._received += chunk
        if frame.WhichOneof("body") == "goodbye":
            raise Ended(frame.goodbye.status)
        return frame

    def receive_until(self, wanted: Callable[[Frame], bool],
                      patience: float = PATIENCE) -> Frame:
        """The first frame that is wanted; drops those before it."""
        deadline = time.monotonic() + patience
        while True:
            frame = self.receive(deadline - time.monotonic())
            if wanted(frame):
                return frame

    def start_call(self, method: str, request: bytes) -> int:
        """Sends a call; returns its id."""
        call_id = self._next_call
        self._next_call += 1
        self.send(call_frame(call_id, self.method(method), request))
        return call_id

    def call(self, method: str, request: Message,
             patience: float = PATIENCE) -> frame_pb2.ReplyFrame:
        """Calls and waits for the reply; drops other frames that come first.

        A reply also says that the server has handled all earlier frames.
        """
        call_id = self.start_call(method, request.SerializeToString())
        return self.receive_until(
            lambda frame: frame.reply.call_id == call_id, patience).reply

    def await_end(self, patience: float = PATIENCE
                  ) -> frame_pb2.RpcStatus | None:
        """Drops frames until the end; returns the status of the goodbye."""
        try:
            self.receive_until(lambda _: False, patience)
        except Ended as end:
            return end.status
        raise AssertionError("unreachable")

    def _take_frame(self) -> Frame | None:
        """Takes a whole frame out of what has come, if there is one."""
        length = 0
        for position, byte in enumerate(self._received[:5]):
            length |= (byte & 0x7F) << 7 * position
            if byte > 0x7F:
                continue
            start = position + 1
            if len(self._received) < start + length:
                return None
            frame = Frame.FromString(bytes(
                self._received[start:start + length]))
            del self._received[:start + length]
            return frame
        return None

    def _last_words(self) -> frame_pb2.RpcStatus | None:
        try:
            return self.await_end(patience=1)
        except (Silence, OSError):
            return None
