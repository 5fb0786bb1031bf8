"""A client that does nothing wrong while others attack.

It runs in a process of its own: it calls one method after the other, hears of
the closing of its window, and answers whether that may close. Afterwards it
says how long it had to wait for replies, and what it has lost.
"""

from __future__ import annotations

import dataclasses
import multiprocessing
import time
from multiprocessing.connection import Connection as Pipe

from google.protobuf import wrappers_pb2
from messages import (CLOSE_QUESTIONS, CLOSED_EVENTS, IS_VISIBLE,
                      allow_closing, answer_for, subscribe_to, window)
from rpc.browser import browser_window_pb2
from wire import (PATIENCE, Code, Connection, Ended, Frame, Silence,
                  data_frame, open_frame)

# The window that is the innocent client's own; attackers leave it alone.
WINDOW = 2

EVENTS = 1
QUESTIONS = 2

# Between two calls, so that the client itself is no flood.
PAUSE = 0.001


@dataclasses.dataclass(frozen=True)
class Report:
    """What a client has seen. Times are in seconds."""

    calls: int
    longest: float
    p99: float
    lost: str  # What it has lost, for people; empty if nothing.


class _Client:
    """The client within its process."""

    def __init__(self, path: str):
        self._waits: list[float] = []
        self._connection = Connection(path, "innocent")
        method = self._connection.method
        self._connection.send(
            open_frame(EVENTS, method(CLOSED_EVENTS)),
            data_frame(EVENTS, subscribe_to(WINDOW)),
            open_frame(QUESTIONS, method(CLOSE_QUESTIONS)),
            data_frame(QUESTIONS, answer_for(WINDOW)))
        self.call()
        self.reset()

    def reset(self) -> None:
        self._waits.clear()

    def call(self) -> None:
        """Asks whether the window is visible, which it always is."""
        start = time.monotonic()
        call_id = self._connection.start_call(
            IS_VISIBLE, window(WINDOW).SerializeToString())
        reply = self._receive("reply").reply
        self._waits.append(time.monotonic() - start)
        visible = wrappers_pb2.BoolValue.FromString(reply.response)
        if (reply.call_id != call_id or reply.HasField("status") or
                not visible.value):
            raise Lost(f"a reply of another kind: {reply}")

    def call_times(self, count: int, most: float) -> None:
        """Calls so often, or for so long."""
        deadline = time.monotonic() + most
        while len(self._waits) < count and time.monotonic() < deadline:
            self.call()
            time.sleep(PAUSE)

    def be_asked(self) -> None:
        """Answers the question whether its window may close."""
        data = self._receive("stream_data").stream_data
        question = browser_window_pb2.CloseWindow.FromString(
            data.message.payload)
        if (list(data.stream_ids) != [QUESTIONS] or
                not question.HasField("question")):
            raise Lost(f"no question, but {data}")
        self._connection.send(data_frame(QUESTIONS, allow_closing(WINDOW),
                                         data.message.call_id))

    def hear_of_closing(self) -> None:
        data = self._receive("stream_data").stream_data
        event = browser_window_pb2.BrowserWindowClosed.FromString(
            data.message.payload)
        if (list(data.stream_ids) != [EVENTS] or
                event.browser_id.value != WINDOW):
            raise Lost(f"no event, but {data}")

    def hear_goodbye(self) -> None:
        try:
            frame = self._connection.receive()
        except Ended as end:
            if end.status is not None and end.status.code == Code.UNAVAILABLE:
                return
            raise
        raise Lost(f"no goodbye, but {frame}")

    def report(self, lost: str = "") -> Report:
        waits = sorted(self._waits) or [0.0]
        return Report(len(self._waits), waits[-1],
                      waits[len(waits) * 99 // 100], lost)

    def _receive(self, kind: str) -> Frame:
        """The next frame, which must be of this kind: there is no other due."""
        frame = self._connection.receive()
        if frame.WhichOneof("body") != kind:
            raise Lost(f"no {kind}, but {frame}")
        return frame


class Lost(Exception):
    """Something else has come than what was due."""


def _run(path: str, pipe: Pipe) -> None:
    """Calls until the pipe says otherwise, and reports what it asks for."""
    try:
        client = _Client(path)
    except (Ended, Silence, OSError) as error:
        return pipe.send(Report(0, 0, 0, f"no welcome: {error}"))
    pipe.send(client.report())
    try:
        while _obey(client, pipe):
            client.call()
    except (Ended, Silence, Lost, OSError) as error:
        pipe.send(client.report(str(error)))


def _obey(client: _Client, pipe: Pipe) -> bool:
    """Does what the pipe says, if anything. False when that was the last."""
    if not pipe.poll(PAUSE):
        return True
    match pipe.recv():
        case "measure", count, most:
            client.reset()
            client.call_times(count, most)
            pipe.send(client.report())
            return True
        case "close":
            pipe.send(client.report())
            client.be_asked()
            client.hear_of_closing()
        case "stop":
            pipe.send(client.report())
            client.hear_of_closing()
            client.hear_goodbye()
    pipe.send(client.report())
    return False


class Innocent:
    """The process of a client, seen from the attackers' side.

    Start it before the attackers connect: it inherits their sockets otherwise,
    which then stay open when they leave.
    """

    def __init__(self, path: str):
        context = multiprocessing.get_context("fork")
        self._pipe, other_end = context.Pipe()
        self._process = context.Process(target=_run, args=(path, other_end),
                                        daemon=True)
        self._process.start()
        other_end.close()
        self._hear()

    def __enter__(self) -> Innocent:
        return self

    def __exit__(self, *_: object) -> None:
        self._process.kill()
        self._process.join()

    def measure(self, calls: int, most: float) -> Report:
        """What it has seen during so many calls, or so many seconds."""
        return self._tell(("measure", calls, most))

    def begin(self, last: str) -> Report:
        """Ends the calls; `last` comes next: "close" or "stop".

        After "close" it is to be asked whether its window may close, and to
        hear that it has; after "stop" it is to hear of the closing and of the
        end of the host. Returns what it has seen until now.
        """
        return self._tell(last)

    def end(self) -> Report:
        """What it has seen in all, when what it waits for has come."""
        return self._hear()

    def _tell(self, command: object) -> Report:
        try:
            self._pipe.send(command)
        except BrokenPipeError:
            pass  # It has ended, and has said why.
        return self._hear()

    def _hear(self) -> Report:
        if not self._pipe.poll(2 * PATIENCE):
            return Report(0, 0, 0, "the innocent client says nothing")
        try:
            return self._pipe.recv()
        except EOFError:
            return Report(0, 0, 0, "the innocent client has ended")
