"""Drives browser windows in another process, over a Unix socket.

    async with await torvane.connect() as client:
        await client.windows.set_title(1, title="Inbox")
        async for event in client.windows.closed(1, 2):
            print(event.title)

connect() gives a Client for asyncio, Reconnecting is a client that connects again
when the server comes back, and torvane.blocking has the same for programs without
asyncio. Failures are RpcError. Records go to the logger "torvane".
"""

from torvane import blocking
from torvane.client import Client, connect
from torvane.contract import Contract
from torvane.errors import Code, RpcError
from torvane.events import EventStream
from torvane.limits import Limits
from torvane.paths import default_socket_path
from torvane.questions import Answerer, Asked, Handler
from torvane.reconnecting import Missed, Reconnecting
from torvane.service import Service, Windows

__all__ = [
    "Answerer",
    "Asked",
    "Client",
    "Code",
    "Contract",
    "EventStream",
    "Handler",
    "Limits",
    "Missed",
    "Reconnecting",
    "RpcError",
    "Service",
    "Windows",
    "blocking",
    "connect",
    "default_socket_path",
]
