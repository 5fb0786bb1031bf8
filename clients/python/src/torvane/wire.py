"""Frames to bytes and back.

      +----------------+-----------+----------------+------------------+
      | length, varint | body kind | length, varint | body             |
      +----------------+-----------+----------------+------------------+
                       |<-------------- length bytes ----------------->|

What follows the first length is a serialised rpc.transport.Frame. Its envelope
is taken apart by hand: protobuf would not tell a frame with two bodies, or of an
unknown kind, from a correct one.
"""

from typing import Any, Dict, Iterator, NamedTuple, Optional, Tuple

from torvane.contract import MessageClass, builtin_contract
from torvane.errors import Code, RpcError

PROTOCOL_VERSION = 1

# Bytes of a length that has 32 bits, seven of them in each byte.
_MAX_LENGTH_BYTES = 5

# In the tag of a field: it has a length and that many bytes.
_LENGTH_DELIMITED = 2

# Bytes of a status text: a person reads it, and it must fit in any frame.
_MAX_TEXT_BYTES = 4096


class FrameKind(NamedTuple):
    """One member of rpc.transport.Frame: its name, its number, its message."""

    name: str
    number: int
    message: MessageClass


def _frame_kinds() -> Dict[str, FrameKind]:
    contract = builtin_contract()
    frame = contract.message("rpc.transport.Frame").DESCRIPTOR
    return {
        field.name: FrameKind(
            field.name, field.number, contract.message(field.message_type.full_name)
        )
        for field in frame.oneofs_by_name["body"].fields
    }


KINDS = _frame_kinds()
KINDS_BY_NUMBER = {kind.number: kind for kind in KINDS.values()}
RpcStatus: MessageClass = builtin_contract().message("rpc.transport.RpcStatus")
StreamMessage: MessageClass = builtin_contract().message("rpc.transport.StreamMessage")


def encode_varint(value: int) -> bytes:
    """The bytes of a number that is not negative."""
    out = bytearray()
    while value > 0x7F:
        out.append(value & 0x7F | 0x80)
        value >>= 7
    out.append(value)
    return bytes(out)


def encode_frame(name: str, body: Any) -> bytes:
    """A frame without the length before it; body is a message of that kind."""
    data: bytes = body.SerializeToString()
    tag = KINDS[name].number << 3 | _LENGTH_DELIMITED
    return encode_varint(tag) + encode_varint(len(data)) + data


def with_length(frame: bytes) -> bytes:
    """A frame as it is written."""
    return encode_varint(len(frame)) + frame


class FrameDecoder:
    """Cuts a stream of bytes into frames.

    Its memory grows with the bytes that have come, never with a length that was
    only announced. Once it has raised an error its input is broken, and it must
    not be used any more.
    """

    def __init__(self, max_frame_bytes: int) -> None:
        self._max_frame_bytes = max_frame_bytes
        self._data = bytearray()

    def feed(self, data: bytes) -> None:
        """Takes bytes as they come."""
        self._data += data

    def frames(self) -> Iterator[Tuple[str, Any]]:
        """The complete frames that have come: the name of the kind, and the body.

        Raises RpcError: RESOURCE_EXHAUSTED for a frame that is too long,
        INVALID_ARGUMENT for what is no frame.
        """
        begin = 0
        try:
            while True:
                header = _read_varint(self._data, begin, len(self._data))
                if header is None:
                    return
                length, start = header
                if length > self._max_frame_bytes:
                    raise RpcError(
                        Code.RESOURCE_EXHAUSTED,
                        f"a frame of {length} bytes, more than max_frame_bytes, "
                        f"{self._max_frame_bytes}",
                    )
                end = start + length
                if end > len(self._data):
                    return
                begin = end
                yield _decode_frame(self._data, start, end)
        finally:
            del self._data[:begin]


def _read_varint(data: bytearray, at: int, end: int) -> Optional[Tuple[int, int]]:
    """A number of at most 32 bits, and where it ends; None if it is cut off."""
    value = 0
    for index in range(_MAX_LENGTH_BYTES):
        if at + index >= end:
            return None
        byte = data[at + index]
        value |= (byte & 0x7F) << (7 * index)
        if byte < 0x80:
            if value >> 32:
                break
            return value, at + index + 1
    raise RpcError(Code.INVALID_ARGUMENT, "a length of more than 32 bits")


def _decode_frame(data: bytearray, begin: int, end: int) -> Tuple[str, Any]:
    tag = _read_varint(data, begin, end)
    length = _read_varint(data, tag[1], end) if tag else None
    if tag is None or length is None or length[1] + length[0] != end:
        raise RpcError(Code.INVALID_ARGUMENT, "a frame that does not hold one body")
    kind = KINDS_BY_NUMBER.get(tag[0] >> 3)
    if kind is None or tag[0] & 7 != _LENGTH_DELIMITED:
        raise RpcError(Code.INVALID_ARGUMENT, f"a frame of the unknown kind {tag[0] >> 3}")
    try:
        return kind.name, kind.message.FromString(bytes(data[length[1] : end]))
    except Exception:  # protobuf's DecodeError; older versions raise others, too
        raise RpcError(
            Code.INVALID_ARGUMENT, f"a {kind.name} frame that does not parse"
        ) from None


def status_of(error: RpcError) -> Any:
    """An error as it is written."""
    text = error.text.encode("utf-8", "replace")[:_MAX_TEXT_BYTES]
    return RpcStatus(code=int(error.code), text=text)
