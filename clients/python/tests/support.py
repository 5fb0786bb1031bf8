"""What the tests share: a server that is scripted by the test, and a real host.

Nothing here waits for time.
"""

import asyncio
import os
import shutil
import tempfile
import unittest
from typing import Any, Callable, Coroutine, Dict, List, Optional, Sequence

import torvane
from processes import TIMEOUT, Host
from torvane.connection import error_of
from torvane.wire import KINDS, FrameDecoder, encode_frame, with_length

WINDOWS = "rpc.BrowserWindow"


def message(full_name: str, **fields: Any) -> Any:
    """A message of the contract."""
    return torvane.contract.builtin_contract().message(full_name)(**fields)


def offered_service(full_name: str) -> Any:
    """What a welcome says of a service: its methods with ids from 1."""
    service = torvane.contract.builtin_contract().service(full_name)
    methods = [
        dict(name=method.name, id=number, streaming=method.kind.value != "unary")
        for number, method in enumerate(service.methods, 1)
    ]
    return dict(full_name=full_name, methods=methods)


class Peer:
    """One client of a FakeServer, seen from the server."""

    def __init__(self, reader: asyncio.StreamReader, writer: asyncio.StreamWriter) -> None:
        self._reader = reader
        self._writer = writer
        self._decoder = FrameDecoder(1 << 30)
        self._frames: List[Any] = []
        self.service = offered_service(WINDOWS)

    async def expect(self, kind: str) -> Any:
        """The body of the next frame, which must be of this kind."""
        while not self._frames:
            data = await asyncio.wait_for(self._reader.read(1 << 16), TIMEOUT)
            if not data:
                raise AssertionError(f"the client has closed the connection, not sent {kind}")
            self._decoder.feed(data)
            self._frames += self._decoder.frames()
        name, body = self._frames.pop(0)
        if name != kind:
            raise AssertionError(f"expected {kind}, got {name}: {body}")
        return body

    async def expect_end(self) -> None:
        """Waits until the client has closed the connection."""
        try:
            data = await asyncio.wait_for(self._reader.read(1), TIMEOUT)
        except ConnectionResetError:
            return
        if data or self._frames:
            raise AssertionError("the client has sent more")

    async def read_to_end(self) -> None:
        """Reads and drops what the client sends until it closes the connection."""
        while await asyncio.wait_for(self._reader.read(1 << 16), TIMEOUT):
            pass

    def send(self, kind: str, **fields: Any) -> None:
        """Sends a frame."""
        self.send_bytes(with_length(encode_frame(kind, KINDS[kind].message(**fields))))

    def send_bytes(self, data: bytes) -> None:
        """Sends anything."""
        self._writer.write(data)

    def send_event(self, *streams: int, window: int = 1, title: str = "") -> None:
        """Sends an event that a window has closed."""
        event = message("rpc.BrowserWindowClosed", browser_id={"value": window}, title=title)
        self.send_payload(event, *streams)

    def send_payload(self, payload: Any, *streams: int, call_id: int = 0) -> None:
        """Sends a message on streams."""
        data = payload if isinstance(payload, bytes) else payload.SerializeToString()
        self.send("stream_data", stream_ids=streams, message={"payload": data, "call_id": call_id})

    def reply(self, call: Any, response: Any = None, code: int = 0, text: str = "") -> None:
        """Answers a call."""
        fields: Dict[str, Any] = {"call_id": call.call_id}
        if code:
            fields["status"] = {"code": code, "text": text.encode()}
        else:
            fields["response"] = response.SerializeToString()
        self.send("reply", **fields)

    async def welcome(self, max_frame_bytes: int = 1 << 20, version: int = 1) -> Any:
        """Shakes hands; returns the client's hello."""
        hello = await self.expect("hello")
        self.send(
            "welcome",
            protocol_version=version,
            max_frame_bytes=max_frame_bytes,
            services=[self.service],
        )
        return hello

    def method_of(self, body: Any) -> str:
        """The name of the method that a call or a stream is about."""
        names = {method["id"]: method["name"] for method in self.service["methods"]}
        return names[body.method_id]

    def close(self) -> None:
        """Closes the connection without a goodbye."""
        self._writer.close()


class FakeServer:
    """Listens at a path; the test says what it answers."""

    def __init__(self, path: str) -> None:
        self.path = path
        self._peers: "asyncio.Queue[Peer]" = asyncio.Queue()
        self._made: List[Peer] = []

    async def start(self) -> None:
        self._server = await asyncio.start_unix_server(self._on_peer, self.path)

    async def accept(self) -> Peer:
        """The next client that connects."""
        return await asyncio.wait_for(self._peers.get(), TIMEOUT)

    async def stop(self) -> None:
        self._server.close()
        for peer in self._made:
            peer.close()
        # What closing has scheduled runs before the loop of the test ends.
        await asyncio.sleep(0)

    async def _on_peer(self, reader: asyncio.StreamReader, writer: asyncio.StreamWriter) -> None:
        peer = Peer(reader, writer)
        self._made.append(peer)
        self._peers.put_nowait(peer)


class FolderTestCase(unittest.IsolatedAsyncioTestCase):
    """A folder of its own for sockets."""

    def setUp(self) -> None:
        self.folder = tempfile.mkdtemp(prefix="torvane-python-")
        self.addCleanup(shutil.rmtree, self.folder)
        self.path = os.path.join(self.folder, "host.sock")

    async def expect_error(self, code: torvane.Code, text: str, awaitable: Any) -> torvane.RpcError:
        """Awaits what must fail with this code, and a text that contains `text`."""
        with self.assertRaises(torvane.RpcError) as caught:
            await asyncio.wait_for(awaitable, TIMEOUT)
        self.assertEqual(caught.exception.code, code, caught.exception)
        self.assertIn(text, caught.exception.text)
        return caught.exception


class FakeServerTestCase(FolderTestCase):
    """A scripted server, and a client that is connected to it."""

    async def asyncSetUp(self) -> None:
        self.server = FakeServer(self.path)
        await self.server.start()
        self.addAsyncCleanup(self.server.stop)

    async def connect(self, max_frame_bytes: int = 1 << 20, **options: Any) -> Any:
        """A connected client and its peer. The options are those of connect()."""
        connecting = asyncio.ensure_future(torvane.connect(self.path, **options))
        peer = await self.server.accept()
        await peer.welcome(max_frame_bytes)
        client = await asyncio.wait_for(connecting, TIMEOUT)
        self.addAsyncCleanup(client.aclose)
        return client, peer


def start(coroutine: Coroutine[Any, Any, Any]) -> "asyncio.Task[Any]":
    """Runs it beside the test."""
    return asyncio.get_running_loop().create_task(coroutine)


async def until(condition: Callable[[], bool]) -> None:
    """Lets the loop turn until something that only it can bring about is there."""

    async def turn() -> None:
        while not condition():
            await asyncio.sleep(0)

    await asyncio.wait_for(turn(), TIMEOUT)


class HostTestCase(FolderTestCase):
    """A real host, and a client that is connected to it."""

    flags: Sequence[str] = ()

    def setUp(self) -> None:
        super().setUp()
        self.host = self.start_host(*self.flags)

    async def asyncSetUp(self) -> None:
        self.client = await self.connect()
        self.windows = self.client.windows

    def start_host(self, *flags: str) -> Host:
        host = Host(self.path, *flags)
        self.addCleanup(host.stop)
        return host

    async def connect(self, **options: Any) -> torvane.Client:
        client = await torvane.connect(self.path, **options)
        self.addAsyncCleanup(client.aclose)
        return client

    async def next_event(self, stream: Any) -> Any:
        return await asyncio.wait_for(stream.__anext__(), TIMEOUT)

    async def load(self) -> Any:
        """What the host has under way for all its clients."""
        status = await self.client.service("rpc.status.ServerStatus").get_status()
        return status.total
