"""The unary calls of one connection."""

import asyncio
import math
from typing import Any, Dict, Optional

from torvane.connection import Connection, error_of
from torvane.contract import Method
from torvane.errors import Code, RpcError
from torvane.wire import KINDS, encode_frame

_CallFrame = KINDS["call"].message
_CancelFrame = KINDS["cancel"].message

# The first servers read 32 bits of timeout_ms.
_MAX_TIMEOUT_MS = (1 << 32) - 1


class CallTable:
    """Calls under way, by their ids. Ids are never used again.

    Belongs to its client, and to the client's loop.
    """

    def __init__(self, connection: Connection) -> None:
        self._connection = connection
        self._pending: Dict[int, "asyncio.Future[bytes]"] = {}
        self._last_id = 0

    async def call(self, method: Method, request: Any, timeout: Optional[float]) -> Any:
        """Calls a method and returns its response, as a Python value where the
        response is one. timeout is in seconds; None waits for ever.

        Raises RpcError. Cancelling the task that waits cancels the call.
        """
        try:
            response = await self._call(method, request, timeout)
        except RpcError as error:
            raise error.about(method.full_name) from None
        try:
            return method.plain(method.response_class.FromString(response))
        except Exception:  # protobuf's DecodeError; older versions raise others, too
            raise RpcError(
                Code.INTERNAL,
                "the response does not parse as a "
                + method.response_class.DESCRIPTOR.full_name,
                method.full_name,
            ) from None

    async def _call(self, method: Method, request: Any, timeout: Optional[float]) -> bytes:
        if timeout is not None and not timeout > 0:
            raise RpcError(Code.DEADLINE_EXCEEDED, "no time was left for the call")
        if self._connection.error is not None:
            raise self._connection.error
        self._last_id += 1
        call_id = self._last_id
        frame = encode_frame(
            "call",
            _CallFrame(
                call_id=call_id,
                method_id=self._connection.offered.id_of(method.service, method.name, False),
                timeout_ms=_on_wire(timeout),
                request=request.SerializeToString(),
            ),
        )
        self._connection.check_fits(frame, "the request")
        self._connection.write_frame(frame)
        return await self._reply(call_id, timeout)

    async def _reply(self, call_id: int, timeout: Optional[float]) -> bytes:
        loop = asyncio.get_running_loop()
        reply: "asyncio.Future[bytes]" = loop.create_future()
        self._pending[call_id] = reply
        timer = None
        if timeout is not None and timeout != math.inf:
            timer = loop.call_later(timeout, self._expire, call_id)
        try:
            return await reply
        except asyncio.CancelledError:
            self._connection.write("cancel", _CancelFrame(call_id=call_id))
            raise
        finally:
            self._pending.pop(call_id, None)
            if timer:
                timer.cancel()

    def _expire(self, call_id: int) -> None:
        reply = self._pending.pop(call_id, None)
        if reply is None or reply.done():
            return
        self._connection.write("cancel", _CancelFrame(call_id=call_id))
        reply.set_exception(
            RpcError(Code.DEADLINE_EXCEEDED, "the call was not answered in time")
        )

    def on_reply(self, body: Any) -> None:
        """A reply has come. One to a call that has ended already is ignored."""
        reply = self._pending.pop(body.call_id, None)
        if reply is None or reply.done():
            return
        error = error_of(body)
        if error:
            reply.set_exception(error)
        else:
            reply.set_result(body.response)

    def fail_all(self, error: RpcError) -> None:
        """The connection is over."""
        pending, self._pending = self._pending, {}
        for reply in pending.values():
            if not reply.done():
                reply.set_exception(error)


def _on_wire(timeout: Optional[float]) -> int:
    """Milliseconds, rounded up, since 0 stands for no deadline. So it does for one
    that is too long to be told: the client alone keeps it, and cancels the call."""
    if timeout is None or timeout * 1000 > _MAX_TIMEOUT_MS:
        return 0
    return math.ceil(timeout * 1000)
