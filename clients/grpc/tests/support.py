"""What the tests share: a host with a gateway in front of it, and programs that are
run with both.

gRPC does not say when a subscription counts. So the tests repeat what the user does
until the client has noticed, or answered.
"""

import os
import shutil
import subprocess
import sys
import tempfile
import time
import unittest
from typing import Any, List, Sequence

import grpc
from clients_page import HOST_PRINTS, HOST_PROMPT, section
from processes import TIMEOUT, Host, Lines
from watching import Metadata

PROGRAMS = os.path.join(os.path.dirname(__file__), "programs")
NOBODY_ANSWERS = ": nobody answers for it."
PROBE = "about:probe"
SERVING = b"\x08\x01"


# What the programs of that name do, in any language.
QUESTIONS = """\
host> command 1 reload
host: Window 1 executes reload: its client allows that.
host> command 1 copy
host> command 1 paste
asked copy
asked paste
host: Window 1 executes paste: its client allows that.
host: Window 1 ignores copy: its client does not allow that.
"""
DEADLINE = """\
DEADLINE_EXCEEDED
asked
"""


class Deadline:
    """For loops that wait for something: fails where it does not come."""

    def __init__(self) -> None:
        self._end = time.monotonic() + TIMEOUT

    def check(self) -> None:
        if time.monotonic() > self._end:
            raise AssertionError("what is waited for does not come")


class Gateway:
    """A rpc_gateway as a process, that listens."""

    def __init__(self, socket: str, listen: str, *flags: str, prefix: Sequence[str] = ()) -> None:
        self._process = subprocess.Popen(
            [*prefix, os.environ["RPC_GATEWAY"], "--socket", socket, "--listen", listen, *flags],
            stdout=subprocess.PIPE,
            text=True,
        )
        ready = "rpc_gateway: ready at "
        line = Lines(self._process.stdout).next()
        if not line.startswith(ready):
            raise AssertionError(line)
        self.address = line[len(ready) :]

    @property
    def pid(self) -> int:
        return self._process.pid

    def stop(self) -> None:
        self._process.terminate()
        code = self._process.wait(TIMEOUT)
        if code != 0:
            raise AssertionError(f"the gateway has ended with {code}")

    def kill(self) -> None:
        self._process.kill()
        self._process.wait(TIMEOUT)


def await_serving(channel: grpc.Channel, metadata: Metadata = ()) -> None:
    """Returns when the gateway has learned what the host offers."""
    watch = channel.unary_stream("/grpc.health.v1.Health/Watch")
    health = watch(b"", timeout=TIMEOUT, metadata=metadata)
    while next(health) != SERVING:
        pass
    health.cancel()


def new_folder(test: Any) -> str:
    """A folder that goes with the class of tests."""
    folder = tempfile.mkdtemp(prefix="torvane-grpc-")
    test.addClassCleanup(shutil.rmtree, folder)
    return folder


def make_stubs(test: Any) -> str:
    """A folder with the contract and the stubs, made as the page says, which the tests
    of the class can import."""
    folder = new_folder(test)
    shutil.copytree(os.environ["GRPC_CONTRACT"], os.path.join(folder, "contract"))
    commands = section("Python with gRPC", 3).split("```sh\n")[1].split("```\n")[0]
    subprocess.run(["bash", "-euc", commands], cwd=folder, check=True)
    sys.path.insert(0, folder)
    test.addClassCleanup(sys.path.remove, folder)
    return folder


class GatewayTestCase(unittest.TestCase):
    """A host and a gateway, and stubs for both sides of a test."""

    folder: str

    @classmethod
    def setUpClass(cls) -> None:
        cls.folder = make_stubs(cls)

    def setUp(self) -> None:
        folder = tempfile.mkdtemp(prefix="torvane-grpc-")
        self.addCleanup(shutil.rmtree, folder)
        socket = os.path.join(folder, "window_host.sock")
        self.host = Host(socket)
        self.addCleanup(self.host.stop)
        gateway = Gateway(socket, "127.0.0.1:0")
        self.addCleanup(gateway.stop)
        self.address = gateway.address
        channel = grpc.insecure_channel(self.address)
        self.addCleanup(channel.close)
        await_serving(channel)
        # The stubs are there only now.
        from rpc.browser import browser_window_pb2_grpc as browser_grpc
        from rpc.directory import window_directory_pb2_grpc as directory_grpc

        self.windows = browser_grpc.BrowserWindowStub(channel)
        self.directory = directory_grpc.WindowDirectoryStub(channel)

    def open_window(self) -> Any:
        """Opens a window that is titled PROBE; returns its id."""
        from rpc.directory.window_directory_pb2 import OpenWindowRequest

        opened = self.directory.OpenWindow(OpenWindowRequest(url=PROBE), timeout=TIMEOUT)
        return opened.browser_id

    def type(self, line: str, printed: str) -> None:
        """Has the user type a line until the host prints that, not that nobody answers."""
        deadline = Deadline()
        while True:
            self.host.say(line)
            got = self.host.next()
            if got == printed or not got.endswith(NOBODY_ANSWERS):
                break
            deadline.check()
        self.assertEqual(got, printed)

    def close_windows_until_noticed(self, program: "RunningProgram") -> None:
        """Closes windows until the program prints that."""
        deadline = Deadline()
        while not program.lines.waiting():
            self.windows.Close(self.open_window(), timeout=TIMEOUT)
            deadline.check()

    def run_program(self, command: List[str], folder: str, transcript: str) -> None:
        """Runs the command, with the gateway's address, and compares with the transcript."""
        program = RunningProgram([*command, self.address], folder)
        self.addCleanup(program.kill)
        lines = transcript.splitlines()
        while lines:
            line = lines.pop(0)
            if line.startswith(HOST_PRINTS):
                self.host.expect(line[len(HOST_PRINTS) :])
                continue
            if not line.startswith(HOST_PROMPT):
                self.assertEqual(program.next(), line)
                continue
            typed = line[len(HOST_PROMPT) :]
            if typed.startswith("close "):
                self.close_windows_until_noticed(program)
            if lines and lines[0].startswith(HOST_PRINTS):
                self.type(typed, lines.pop(0)[len(HOST_PRINTS) :])
            else:
                self.host.say(typed)
        self.assertEqual(program.wait(), 0)
        self.assertEqual(program.rest(), [])


class RunningProgram:
    """A client as a process."""

    def __init__(self, command: List[str], folder: str) -> None:
        self._process = subprocess.Popen(command, cwd=folder, stdout=subprocess.PIPE, text=True)
        self.lines = Lines(self._process.stdout)

    def next(self) -> str:
        """The next line that is not about a window of close_windows_until_noticed()."""
        while True:
            line = self.lines.next()
            if line != f"{PROBE} has closed":
                return line

    def rest(self) -> List[str]:
        """What it has printed besides, when it has ended."""
        return [line for line in self.lines.rest() if line != f"{PROBE} has closed"]

    def wait(self) -> int:
        return self._process.wait(TIMEOUT)

    def kill(self) -> None:
        self._process.kill()
        self._process.wait()
