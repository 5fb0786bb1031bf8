"""Attacks on time: much work for the host in few bytes, within the limits."""

from __future__ import annotations

import contextlib
import multiprocessing
import selectors
import socket
from typing import Callable, Iterable, Iterator, MutableSequence

from arena import (FLOOD_P99_GOAL, STOP_GOAL, Arena, Finding, attack, check,
                   judge)
from host import Limits
from messages import (CLOSE_QUESTIONS, CLOSED_EVENTS, FAR_WINDOW, IS_VISIBLE,
                      Refused, await_turn, subscribe_to, window)
from status import GET_STATUS, Report, await_gone
from wire import (Code, Connection, call_frame, data_frame, end_frame,
                  open_frame)

# How many clients are at their limits, where the host's own limits allow that.
CROWD = 4

# What the whole server takes, if it does not say.
UNBOUNDED_SUBSCRIPTIONS = 100_000

# Subscriptions that the attackers leave to the innocent client.
LEFT_TO_OTHERS = 16

# A host that answers them all before it turns to others takes seconds.
STATUS_CALLS = 1_000

FLOODERS = 16
FLOOD_CALLS = 200  # Of the innocent client.
FLOOD_SECONDS = 20.0  # At most, where the host hardly gets to it.


class Crowd:
    """Clients with as many event streams and subscriptions as they may have.

    Every subscription is to a window of its own, so that a stream that ends
    has as many windows to look at as possible.
    """

    def __init__(self, path: str, limits: Limits, subscriptions: int):
        streams = limits["max_streams"]
        per_client = limits["max_subscriptions"]
        self._path = path
        windows = iter(range(FAR_WINDOW, FAR_WINDOW + subscriptions))
        self.clients = []
        for _ in range(max(CROWD, -(-subscriptions // per_client))):
            client = Connection(path, f"crowd {len(self.clients)}")
            self.clients.append(client)
            method = client.method(CLOSED_EVENTS)
            client.send(*(open_frame(stream, method)
                          for stream in range(streams)))
            client.send(*(data_frame(count % streams, subscribe_to(number))
                          for count, number in zip(range(per_client), windows)))
            await_turn(client)

    def let_one_leave(self) -> None:
        """Returns when all streams of one client have ended."""
        self.clients.pop().close()
        await_gone(self._path, f"crowd {len(self.clients)}")

    def __enter__(self) -> Crowd:
        return self

    def __exit__(self, *_: object) -> None:
        for client in self.clients:
            client.close()


def usual_crowd(path: str, limits: Limits) -> Crowd:
    """A few clients that have all that each of them may have."""
    return Crowd(path, limits, min(CROWD * limits["max_subscriptions"],
                                   server_bound(limits)))


def full_crowd(path: str, limits: Limits) -> Crowd:
    """So many clients that the server takes no more subscriptions."""
    return Crowd(path, limits, server_bound(limits))


def server_bound(limits: Limits) -> int:
    """How many subscriptions attackers can have in all."""
    return limits.get("max_server_subscriptions",
                      UNBOUNDED_SUBSCRIPTIONS) - LEFT_TO_OTHERS


@attack()
def leave(arena: Arena) -> Iterable[Finding]:
    """One of several clients with all the streams that they may have leaves."""
    with usual_crowd(arena.host.path, arena.limits) as crowd:
        crowd.let_one_leave()
    return ()


@attack(stops_host=True)
def stop(arena: Arena) -> Iterator[Finding]:
    """The host is asked to stop while clients have all that they may have."""
    with usual_crowd(arena.host.path, arena.limits) as crowd:
        before = arena.innocent.begin("stop")
        yield arena.waited("the host is gone after", arena.host.stop(),
                           STOP_GOAL)
        yield from judge(arena, before, arena.innocent.end())
        for client in crowd.clients:
            goodbye = client.await_end()
            if goodbye is None or goodbye.code != Code.UNAVAILABLE:
                yield Finding(f"a client got {goodbye} for a goodbye", False)
                return
        yield Finding("all got a goodbye", True)


@attack()
def stream_ends(arena: Arena) -> Iterable[Finding]:
    """13.7 kB that open and end streams, among all possible subscriptions."""
    with (full_crowd(arena.host.path, arena.limits),
          arena.connect() as client):
        method = client.method(CLOSED_EVENTS)
        frames = b""
        stream = 1
        while len(frames) < 13_700:
            frames += open_frame(stream, method) + end_frame(stream)
            stream += 1
        client.send(frames)
        client.call(IS_VISIBLE, window(1))
    return ()


@attack()
def shared_windows(arena: Arena) -> Iterable[Finding]:
    """Streams end that had thousands of windows in common with one that stays.

    What a host keeps of them is walked over whenever a stream ends, also when
    all who had a part in it have left.
    """
    streams = arena.limits["max_streams"]
    with arena.connect() as holder, arena.connect() as client:
        method = client.method(CLOSED_EVENTS)
        holder.send(open_frame(0, method), *subscribe_to_all(arena.limits))
        await_turn(holder)
        # All of them first, so that no two are the same to the host.
        client.send(*(open_frame(stream, method)
                      for stream in range(streams)))
        await_turn(client)
        for stream in range(streams):
            client.send(*subscribe_to_all(arena.limits, stream),
                        end_frame(stream))
            client.receive()
    with arena.connect() as client:
        client.send(*(open_frame(stream, method) + end_frame(stream)
                      for stream in range(1_000)))
        client.call(IS_VISIBLE, window(1))
    return ()


def subscribe_to_all(limits: Limits, stream: int = 0) -> Iterator[bytes]:
    """Subscribes to as many windows as one client may."""
    for number in range(limits["max_subscriptions"]):
        yield data_frame(stream, subscribe_to(FAR_WINDOW + number))


@attack()
def flood(arena: Arena) -> Iterator[Finding]:
    """16 clients call as fast as the host answers, and read the replies."""
    with flooding(arena.host.path) as replies:
        before = replies()
        seen = arena.innocent.measure(FLOOD_CALLS, FLOOD_SECONDS)
        meanwhile = replies() - before
    yield arena.waited(f"99 of 100 of {seen.calls} calls within", seen.p99,
                       FLOOD_P99_GOAL)
    yield check(f"the others get {meanwhile:,} replies meanwhile",
                meanwhile > FLOODERS * seen.calls)


@attack()
def status_calls(arena: Arena) -> Iterator[Finding]:
    """Status calls in one write while 40,000 question streams are open."""
    streams = arena.limits["max_streams"]
    clients = min(-(-40_000 // streams), arena.limits["max_connections"] - 2)
    with contextlib.ExitStack() as stack:
        for _ in range(clients):
            client = stack.enter_context(arena.connect())
            method = client.method(CLOSE_QUESTIONS)
            client.send(*(open_frame(stream, method)
                          for stream in range(min(streams, 40_000))))
            await_turn(client)
        client = stack.enter_context(arena.connect())
        method = client.method(GET_STATUS)
        client.send(*(call_frame(number, method, b"")
                      for number in range(1, STATUS_CALLS + 1)))
        replies = [client.receive().reply for _ in range(STATUS_CALLS)]
    report = Report.FromString(replies[-1].response)
    yield check(f"status tells of {report.total.streams:,} streams",
                report.total.streams >= clients * streams)


class Flooder:
    """A connection that always has calls under way and reads their replies.

    Ids go round: a batch is sent again when it has been answered as often as
    it was sent before.
    """

    BATCH = 1000
    BATCHES = 20

    def __init__(self, path: str):
        self._connection = Connection(path, "flooder")
        method = self._connection.method(IS_VISIBLE)
        request = window(1).SerializeToString()
        first_id = 1 << 14  # All ids have the same length, so have the replies.
        self._batches = [
            b"".join(call_frame(first_id + batch * self.BATCH + number, method,
                                request)
                     for number in range(self.BATCH))
            for batch in range(self.BATCHES)
        ]
        self.socket = self._connection.socket
        self._left = memoryview(self._batches[0])
        self._sent = 0  # Batches, in all.
        self._received = 0  # Bytes of replies.
        self._reply_size = self._measure_reply(first_id, method, request)
        self.socket.setblocking(False)

    def _measure_reply(self, call_id: int, method: int, request: bytes) -> int:
        self.socket.sendall(call_frame(call_id, method, request))
        return len(self.socket.recv(1 << 16))

    def read(self, into: bytearray) -> int:
        """Takes replies; returns how many there have been in all."""
        with contextlib.suppress(BlockingIOError):
            size = self.socket.recv_into(into)
            if size == 0:
                raise Refused("the host has closed a connection of the flood")
            self._received += size
        return self._received // self._reply_size

    def write(self) -> None:
        """Sends what the socket takes, if the ids are free again."""
        if not self._left:
            answered = self._received // (self._reply_size * self.BATCH)
            if self._sent + 1 - answered >= self.BATCHES:
                return
            self._sent += 1
            self._left = memoryview(
                self._batches[self._sent % self.BATCHES])
        with contextlib.suppress(BlockingIOError):
            self._left = self._left[self.socket.send(self._left):]


def run_flood(path: str, ready: socket.socket,
              replies: MutableSequence[int]) -> None:
    """Floods the host until the process is killed.

    Keeps the number of replies to each flooder in `replies`.
    """
    into = bytearray(1 << 18)
    selector = selectors.DefaultSelector()
    for number in range(FLOODERS):
        flooder = Flooder(path)
        selector.register(flooder.socket,
                          selectors.EVENT_READ | selectors.EVENT_WRITE,
                          (number, flooder))
    ready.send(b"!")
    while True:
        for key, events in selector.select():
            number, flooder = key.data
            if events & selectors.EVENT_READ:
                replies[number] = flooder.read(into)
            if events & selectors.EVENT_WRITE:
                flooder.write()


@contextlib.contextmanager
def flooding(path: str) -> Iterator[Callable[[], int]]:
    """Floods from another process for as long as this is entered.

    Gives a function that returns how many calls have been answered. Refused if
    the flood could not begin, or did not go on.
    """
    context = multiprocessing.get_context("fork")
    replies = context.Array("Q", FLOODERS, lock=False)
    ours, theirs = socket.socketpair()
    process = context.Process(target=run_flood, args=(path, theirs, replies),
                              daemon=True)
    process.start()
    theirs.close()
    try:
        if ours.recv(1) != b"!":
            raise Refused("the flood has not begun")
        yield lambda: sum(replies)
        if not process.is_alive():
            raise Refused("the flood has ended early")
    finally:
        process.kill()
        process.join()
        ours.close()
