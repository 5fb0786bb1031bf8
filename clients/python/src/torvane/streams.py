"""The streams of one connection: their ids, and who gets what arrives."""

from typing import Any, Dict, Optional, Protocol

from torvane.connection import Connection, error_of
from torvane.contract import Method
from torvane.errors import Code, RpcError
from torvane.wire import KINDS, StreamMessage, encode_frame

_OpenFrame = KINDS["stream_open"].message
_DataFrame = KINDS["stream_data"].message
_ErrorFrame = KINDS["stream_error"].message
_EndFrame = KINDS["stream_end"].message


class StreamReader(Protocol):
    """Who opened a stream."""

    def on_message(self, payload: bytes, call_id: int) -> None:
        """A message has come."""

    def on_end(self, error: Optional[RpcError]) -> None:
        """The stream is over, without an error if both sides have ended it."""


class StreamTable:
    """Open streams, by their ids. Ids are never used again.

    Belongs to its client, and to the client's loop.
    """

    def __init__(self, connection: Connection) -> None:
        self._connection = connection
        self._readers: Dict[int, StreamReader] = {}
        self._last_id = 0

    def open(self, method: Method, reader: StreamReader) -> int:
        """Opens a stream and returns its id. Raises RpcError, and then nothing is
        open."""
        try:
            if self._connection.error is not None:
                raise self._connection.error
            method_id = self._connection.offered.id_of(method.service, method.name, True)
            stream_id = self._last_id + 1
            frame = encode_frame(
                "stream_open", _OpenFrame(stream_id=stream_id, method_id=method_id)
            )
            self._connection.check_fits(frame, "the stream")
        except RpcError as error:
            raise error.about(method.full_name) from None
        self._last_id = stream_id
        self._readers[stream_id] = reader
        self._connection.write_frame(frame)
        return stream_id

    def send(self, stream_id: int, payload: bytes, call_id: int = 0) -> None:
        """Sends a message on an open stream. Raises RpcError if that is impossible:
        FAILED_PRECONDITION for a stream that is over."""
        if stream_id not in self._readers:
            raise RpcError(Code.FAILED_PRECONDITION, "the stream is over")
        message = StreamMessage(payload=payload, call_id=call_id)
        frame = encode_frame(
            "stream_data", _DataFrame(stream_ids=[stream_id], message=message)
        )
        self._connection.check_fits(frame, "the message")
        self._connection.write_frame(frame)

    def decline(self, stream_id: int, payload: bytes, call_id: int) -> None:
        """Says that a question will not be answered, unless the stream is over.

        Closes the connection where that does not fit: whoever asked would wait
        for ever.
        """
        if stream_id not in self._readers:
            return
        message = StreamMessage(payload=payload, call_id=call_id)
        frame = encode_frame(
            "stream_error", _ErrorFrame(stream_id=stream_id, message=message)
        )
        try:
            self._connection.check_fits(frame, "the refusal of a question")
        except RpcError as error:
            self._connection.fail(error)
        else:
            self._connection.write_frame(frame)

    def end(self, stream_id: int) -> None:
        """Ends a stream: its reader hears no more of it. What the server sends
        before it hears of this is ignored."""
        if self._readers.pop(stream_id, None) is not None:
            self._connection.write("stream_end", _EndFrame(stream_id=stream_id))

    def on_data(self, body: Any) -> None:
        """A message has come, for one stream or many."""
        for stream_id in body.stream_ids:
            reader = self._readers.get(stream_id)
            if reader is not None:
                reader.on_message(body.message.payload, body.message.call_id)

    def on_end(self, body: Any) -> None:
        """The server has ended a stream, by itself or in reply to end()."""
        reader = self._readers.get(body.stream_id)
        if reader is not None:
            self.end(body.stream_id)
            reader.on_end(error_of(body))

    def fail_all(self, error: RpcError) -> None:
        """The connection is over."""
        readers, self._readers = self._readers, {}
        for reader in readers.values():
            reader.on_end(error)
