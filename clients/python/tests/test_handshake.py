"""How a connection begins and ends, against a server that is scripted here."""

import asyncio
import os
import socket
import unittest

import torvane
from support import WINDOWS, FakeServerTestCase, FolderTestCase, offered_service, start
from torvane import Code
from torvane.wire import KINDS, encode_frame, encode_varint, with_length


class Connecting(FolderTestCase):
    async def test_to_nobody_is_unavailable(self):
        text = f"no server listens at {self.path}"
        await self.expect_error(Code.UNAVAILABLE, text, torvane.connect(self.path))

    def test_looks_in_the_session_folder_first(self):
        saved = dict(os.environ)
        self.addCleanup(os.environ.update, saved)
        os.environ["XDG_RUNTIME_DIR"] = "/run/user/7"
        self.assertEqual(torvane.default_socket_path(), "/run/user/7/window_host.sock")
        os.environ["XDG_RUNTIME_DIR"] = ""
        path = f"/tmp/torvane-{os.getuid()}/window_host.sock"
        self.assertEqual(torvane.default_socket_path(), path)

    @unittest.skipUnless(os.getuid() == 0, "only root can give a folder away")
    async def test_to_another_users_folder_is_refused(self):
        os.chown(self.folder, 12345, 12345)
        text = f"The folder {self.folder} belongs to another user"
        await self.expect_error(Code.PERMISSION_DENIED, text, torvane.connect(self.path))


class Handshake(FakeServerTestCase):
    async def begin(self, **options):
        connecting = start(torvane.connect(self.path, **options))
        return connecting, await self.server.accept()

    async def test_tells_version_name_and_longest_frame(self):
        limits = torvane.Limits(max_frame_bytes=10_000)
        connecting, peer = await self.begin(name="clock", limits=limits)
        hello = await peer.welcome()
        self.assertEqual(
            (hello.protocol_version, hello.client_name, hello.max_frame_bytes),
            (1, b"clock", 10_000),
        )
        client = await connecting
        self.assertEqual(client.offered_services, ("rpc.BrowserWindow",))
        await client.aclose()
        await peer.expect_end()

    async def test_a_refusal_is_passed_on(self):
        connecting, peer = await self.begin()
        peer.send("goodbye", status={"code": 8, "text": b"max_connections"})
        await self.expect_error(Code.RESOURCE_EXHAUSTED, "max_connections", connecting)

    async def test_another_version_is_named(self):
        connecting, peer = await self.begin()
        await peer.welcome(version=2)
        text = "the server speaks protocol version 2, this client version 1"
        await self.expect_error(Code.FAILED_PRECONDITION, text, connecting)
        goodbye = await peer.expect("goodbye")
        self.assertIn(b"protocol version 2", goodbye.status.text)

    async def test_a_server_that_takes_the_shortest_frames_is_fine(self):
        connecting, peer = await self.begin()
        await peer.welcome(max_frame_bytes=8192)
        await (await connecting).aclose()

    async def test_a_server_that_takes_too_short_frames_is_left(self):
        connecting, peer = await self.begin()
        await peer.welcome(max_frame_bytes=8191)
        await self.expect_error(
            Code.FAILED_PRECONDITION, "the server's max_frame_bytes, 8191", connecting
        )

    async def test_what_speaks_no_frames_is_left(self):
        connecting, peer = await self.begin()
        peer.send_bytes(b"HTTP/1.1 400 Bad Request\r\n\r\n" * 10)
        await self.expect_error(
            Code.FAILED_PRECONDITION, "the other side does not speak this protocol", connecting
        )

    async def test_a_first_frame_that_is_no_welcome_is_refused(self):
        connecting, peer = await self.begin()
        peer.send("reply", call_id=1)
        await self.expect_error(
            Code.FAILED_PRECONDITION, "the first frame is not a welcome", connecting
        )

    async def test_a_server_that_hangs_up_is_unavailable(self):
        connecting, peer = await self.begin()
        await peer.expect("hello")
        peer.close()
        await self.expect_error(
            Code.UNAVAILABLE, "the server has closed the connection", connecting
        )

    async def test_a_server_that_keeps_silent_is_left_when_its_time_is_up(self):
        connecting, peer = await self.begin(handshake_timeout=0.01)
        await self.expect_error(Code.DEADLINE_EXCEEDED, "has not welcomed", connecting)
        await peer.read_to_end()

    async def test_giving_up_closes_the_connection(self):
        connecting, peer = await self.begin()
        await peer.expect("hello")
        connecting.cancel()
        with self.assertRaises(asyncio.CancelledError):
            await connecting
        await peer.expect_end()

    async def test_the_welcome_may_come_byte_by_byte(self):
        connecting, peer = await self.begin()
        sent = bytearray()
        peer.send_bytes = sent.extend
        await peer.welcome()
        del peer.send_bytes
        for byte in bytes(sent):
            peer.send_bytes(bytes([byte]))
            await asyncio.sleep(0)
        await (await connecting).aclose()


class End(FakeServerTestCase):
    async def test_a_goodbye_fails_all_that_is_open_with_its_text(self):
        client, peer = await self.connect()
        call = start(client.windows.show(1))
        events = client.windows.closed(1)
        answerer = client.windows.on_close_window(1)(lambda asked: True)
        await peer.expect("stream_open")
        peer.send("goodbye", status={"code": 14, "text": b"the server stops"})
        await self.expect_error(Code.UNAVAILABLE, "the server stops", call)
        await self.expect_error(Code.UNAVAILABLE, "the server stops", events.__anext__())
        await self.expect_error(Code.UNAVAILABLE, "the server stops", answerer.wait_closed())
        self.assertEqual((await client.wait_closed()).text, "the server stops")
        await self.expect_error(Code.UNAVAILABLE, "the server stops", client.windows.show(1))
        with self.assertRaises(torvane.RpcError):
            client.windows.closed(1)

    async def test_a_goodbye_keeps_its_code(self):
        client, peer = await self.connect()
        peer.send("goodbye", status={"code": 8, "text": b"max_outbox_bytes"})
        self.assertEqual((await client.wait_closed()).code, Code.RESOURCE_EXHAUSTED)

    async def test_a_lost_connection_is_unavailable(self):
        client, peer = await self.connect()
        call = start(client.windows.show(1))
        await peer.expect("call")
        peer.close()
        error = await self.expect_error(Code.UNAVAILABLE, "closed the connection", call)
        self.assertEqual(error.method, "rpc.BrowserWindow.Show")

    async def test_a_goodbye_is_read_although_writing_fails_first(self):
        loop = asyncio.get_running_loop()
        path = self.path + "2"
        with socket.socket(socket.AF_UNIX) as listener:
            listener.bind(path)
            listener.listen()
            listener.setblocking(False)
            connecting = start(torvane.connect(path))
            server, _ = await loop.sock_accept(listener)
        server.setblocking(False)
        welcome = KINDS["welcome"].message(
            protocol_version=1, max_frame_bytes=8192, services=[offered_service(WINDOWS)]
        )
        await loop.sock_sendall(server, with_length(encode_frame("welcome", welcome)))
        client = await connecting
        self.addAsyncCleanup(client.aclose)
        goodbye = KINDS["goodbye"].message(status={"code": 8, "text": b"too many"})
        server.send(with_length(encode_frame("goodbye", goodbye)))
        server.close()
        # Writes to the closed socket before the loop can read the goodbye.
        await self.expect_error(Code.RESOURCE_EXHAUSTED, "too many", client.windows.show(1))

    async def test_closing_the_client_cancels_all_that_is_open(self):
        client, peer = await self.connect()
        call = start(client.windows.show(1))
        events = client.windows.closed(1)
        await peer.expect("stream_open")
        await client.aclose()
        await self.expect_error(Code.CANCELLED, "the client was closed", call)
        await self.expect_error(Code.CANCELLED, "the client was closed", events.__anext__())
        await client.aclose()

    async def expect_violation(self, code, text, violate):
        client, peer = await self.connect()
        violate(peer)
        goodbye = await peer.expect("goodbye")
        self.assertEqual(goodbye.status.code, code)
        self.assertIn(text, goodbye.status.text.decode())
        self.assertIn(text, (await client.wait_closed()).text)

    async def test_a_second_welcome_breaks_the_protocol(self):
        await self.expect_violation(
            3, "a server sends no welcome frame now", lambda peer: peer.send("welcome")
        )

    async def test_a_frame_of_the_wrong_side_breaks_the_protocol(self):
        for kind in ("hello", "call", "cancel", "stream_open", "stream_error"):
            with self.subTest(kind):
                await self.expect_violation(
                    3, f"a server sends no {kind} frame", lambda peer: peer.send(kind)
                )

    async def test_an_unknown_kind_breaks_the_protocol(self):
        await self.expect_violation(
            3, "unknown kind 11", lambda peer: peer.send_bytes(with_length(b"\x5a\x00"))
        )

    async def test_a_frame_beyond_our_max_frame_bytes_is_refused_by_its_length(self):
        length = torvane.Limits().max_frame_bytes + 1
        await self.expect_violation(
            8,
            f"a frame of {length} bytes",
            lambda peer: peer.send_bytes(encode_varint(length)),
        )

    async def test_frames_after_a_goodbye_are_ignored(self):
        client, peer = await self.connect()
        peer.send("goodbye", status={"code": 14, "text": b"first"})
        peer.send("welcome")
        self.assertEqual((await client.wait_closed()).text, "first")

    async def test_an_error_of_an_unknown_code_is_unknown(self):
        client, peer = await self.connect()
        peer.send("goodbye", status={"code": 99, "text": b"\xff"})
        error = await client.wait_closed()
        self.assertEqual((error.code, error.text), (Code.UNKNOWN, "\ufffd"))


if __name__ == "__main__":
    unittest.main()
