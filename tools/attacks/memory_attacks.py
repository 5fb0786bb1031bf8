"""Attacks on memory: what a host keeps, or takes for a moment, for a client."""

from __future__ import annotations

import contextlib
from typing import Callable, Iterator

from arena import KIB, MIB, Arena, Finding, attack, check
from google.protobuf.message import Message
from messages import (CLOSE_QUESTIONS, CLOSED_EVENTS, FAR_WINDOW, IS_VISIBLE,
                      SERVICE, allow_closing, answer_for, await_turn,
                      subscribe_to, title, unsubscribe_from, window)
from status import refusals
from wire import (Code, Connection, Ended, Silence, call_frame, data_frame,
                  end_frame, field, framed, open_frame, varint)

# The smallest thing that a parser keeps: a field that no message has, empty.
UNKNOWN_FIELD = field(15, b"")

# Far beyond any request that there is.
LARGE = 4 * MIB

# What the memory of a host may move by, whatever the cause: a page here and
# there, and what its allocator takes from the system at a time.
NOISE = 2 * MIB

CLIENTS_THAT_IDLE = 400
CLIENTS_THAT_WARM_UP = 50
IDLE_GOAL = 8 * KIB
# Short ones, 120 KiB in all: more than a host reads at a time.
FRAMES_BEFORE_IDLING = 24_000

SILENT_CLIENTS = 100


def unknown_fields(size: int) -> bytes:
    return UNKNOWN_FIELD * (size // len(UNKNOWN_FIELD))


def as_call(client: Connection, size: int, number: int) -> bytes:
    return call_frame(number, client.method(IS_VISIBLE), unknown_fields(size))


def as_answer(client: Connection, size: int, number: int) -> bytes:
    """An answer to a question that was not asked, on a stream of its own."""
    return (open_frame(number, client.method(CLOSE_QUESTIONS)) +
            data_frame(number, allow_closing(1) + unknown_fields(size)) +
            end_frame(number))


def as_cancel(_: Connection, size: int, number: int) -> bytes:
    cancel = varint(1 << 3) + varint(number) + unknown_fields(size)
    return framed(field(5, cancel))


# Makes frames that hold so many bytes of unknown fields, with a number of its
# own for each time on one connection.
MakeFrames = Callable[[Connection, int, int], bytes]


def unknown_fields_in(arena: Arena, make: MakeFrames) -> Iterator[Finding]:
    """Sends 4 MiB, which must be refused, then as much as the host takes."""
    arena.host.reset_peak()
    before = arena.host.memory()
    with arena.connect() as client:
        yield check("4 MiB are refused with RESOURCE_EXHAUSTED",
                    is_cut_off(client, make(client, LARGE - KIB, 1)))
    yield arena.grown("take", arena.host.peak() - before, NOISE)

    with arena.connect() as client:
        size = client.server_takes - 64
        for number in range(10_001, 10_065):  # Not the ids of call().
            client.send(make(client, size, number))
            client.call(IS_VISIBLE, window(1))
        yield arena.grown(f"64 of {size / KIB:.0f} KiB take",
                          arena.host.peak() - before, 4 * NOISE)


def is_cut_off(client: Connection, frames: bytes) -> bool:
    """Sends them. Whether the host closes the connection as too much for it."""
    try:
        client.send(frames)
        goodbye = client.await_end(patience=10)
    except Ended as end:
        goodbye = end.status
    except Silence:
        return False
    return goodbye is not None and goodbye.code == Code.RESOURCE_EXHAUSTED


@attack()
def unknown_fields_in_calls(arena: Arena) -> Iterator[Finding]:
    """Requests of empty unknown fields."""
    yield from unknown_fields_in(arena, as_call)


@attack()
def unknown_fields_in_answers(arena: Arena) -> Iterator[Finding]:
    """Answers of empty unknown fields."""
    yield from unknown_fields_in(arena, as_answer)


@attack()
def unknown_fields_in_cancels(arena: Arena) -> Iterator[Finding]:
    """Cancels of empty unknown fields."""
    yield from unknown_fields_in(arena, as_cancel)


def refused_subscriptions(arena: Arena, method: str, payload: bytes,
                          code: Code, count: int) -> Iterator[Finding]:
    """Sends it on one stream after the other; each must end with the code."""
    with arena.connect() as client:
        before = arena.host.memory()
        for stream in range(1, count + 1):
            client.send(open_frame(stream, client.method(method)),
                        data_frame(stream, payload), end_frame(stream))
            end = client.receive().stream_end
            if end.status.code != code:
                yield Finding(f"{len(payload):,} bytes end the stream with "
                              f"{Code(end.status.code).name} instead of "
                              f"{code.name}", False)
                return
        yield arena.grown(f"{count:,} streams with {len(payload):,} bytes cost",
                          arena.host.memory() - before, NOISE)


@attack()
def large_subscriptions(arena: Arena) -> Iterator[Finding]:
    """Subscriptions that are too long, for events and for questions."""
    yield from largest_subscription(arena)
    size = arena.limits["max_subscription_bytes"]
    for method, padded in ((CLOSED_EVENTS, subscribe_to(FAR_WINDOW)),
                           (CLOSE_QUESTIONS, answer_for(FAR_WINDOW))):
        payload = padded + unknown_fields(size)
        yield from refused_subscriptions(arena, method, payload,
                                         Code.RESOURCE_EXHAUSTED, 2_000)


def largest_subscription(arena: Arena) -> Iterator[Finding]:
    """As long as a frame may be: refused for its length, without a parse."""
    with arena.connect() as client:
        size = client.server_takes - 64
        before = arena.host.memory()
        arena.host.reset_peak()
        client.send(open_frame(1, client.method(CLOSED_EVENTS)),
                    data_frame(1, unknown_fields(size)))
        end = client.receive().stream_end
        yield check(f"{size / KIB:,.0f} KiB end the stream",
                    end.status.code == Code.RESOURCE_EXHAUSTED)
        yield arena.grown("and take", arena.host.peak() - before,
                          2 * size + NOISE)


@attack()
def unknown_fields_in_subscriptions(arena: Arena) -> Iterator[Finding]:
    """Subscriptions within their size that hold what no subscription has."""
    size = arena.limits["max_subscription_bytes"]
    padded = subscribe_to(FAR_WINDOW)
    payload = padded + unknown_fields(size - len(padded) - 2)
    yield from refused_subscriptions(arena, CLOSED_EVENTS, payload,
                                     Code.INVALID_ARGUMENT, 2_000)


@attack()
def repeated_subscriptions(arena: Arena) -> Iterator[Finding]:
    """Subscribing to what is subscribed, unsubscribing from what is not."""
    with arena.connect() as client:
        client.send(open_frame(1, client.method(CLOSED_EVENTS)),
                    open_frame(2, client.method(CLOSE_QUESTIONS)))
        for what, frame in (
            ("events again", data_frame(1, subscribe_to(FAR_WINDOW))),
            ("no events of what is unknown",
             data_frame(1, unsubscribe_from(FAR_WINDOW + 1))),
            ("questions again", data_frame(2, answer_for(FAR_WINDOW))),
            ("no questions about what is unknown",
             data_frame(2, answer_for(FAR_WINDOW + 1, subscribe=False))),
        ):
            send_often(client, frame, 1_000)
            before = arena.host.memory()
            send_often(client, frame, 100_000)
            yield arena.grown(f"100,000 times {what}:",
                              arena.host.memory() - before, NOISE)


def send_often(client: Connection, frame: bytes, count: int) -> None:
    """Returns when the host has handled all of them."""
    client.send(frame * count)
    await_turn(client)


@attack("--frame-timeout", "0.2")
def half_frames(arena: Arena) -> Iterator[Finding]:
    """40 clients send half a frame after the welcome, and no more."""
    with contextlib.ExitStack() as stack:
        clients = [stack.enter_context(arena.connect()) for _ in range(40)]
        for client in clients:
            frame = as_call(client, client.server_takes - KIB, 1)
            client.send(frame[:len(frame) // 2])
        goodbyes = [client.await_end() for client in clients]
        yield check("all are closed with DEADLINE_EXCEEDED, frame_timeout",
                    all(goodbye is not None and
                        goodbye.code == Code.DEADLINE_EXCEEDED and
                        b"frame_timeout" in goodbye.text
                        for goodbye in goodbyes))
        counted = refusals(arena.host.path, "frame_timeout")
        yield check(f"status counts {counted} of them",
                    counted == len(clients))


@attack()
def idle_connections(arena: Arena) -> Iterator[Finding]:
    """Hundreds of clients fill what they are read into, and then idle."""
    with contextlib.ExitStack() as stack:

        def connect(count: int) -> int:
            for _ in range(count):
                client = stack.enter_context(arena.connect())
                client.send(as_cancel(client, 0, 1) * FRAMES_BEFORE_IDLING)
                await_turn(client)
            return arena.host.memory()

        before = connect(CLIENTS_THAT_WARM_UP)
        after = connect(CLIENTS_THAT_IDLE)
        yield arena.grown("each costs", (after - before) / CLIENTS_THAT_IDLE,
                          IDLE_GOAL)


@attack("--windows", "200")
def silent_subscribers(arena: Arena) -> Iterator[Finding]:
    """100 clients subscribe to windows with long titles, and read nothing."""
    bound = arena.limits.get("max_server_subscriptions", 16_384)
    first, count = 10, min(180, bound // SILENT_CLIENTS - 1)
    windows = range(first, first + count)
    text = "t" * (4 * KIB)
    with contextlib.ExitStack() as stack:
        for _ in range(SILENT_CLIENTS):
            client = stack.enter_context(arena.connect("silent"))
            client.send(open_frame(1, client.method(CLOSED_EVENTS)),
                        *(data_frame(1, subscribe_to(number))
                          for number in windows))
            await_turn(client)
        closer = stack.enter_context(arena.connect("closer"))
        for number in windows:
            succeed(closer, "SetTitle", title(number, text))
        before = arena.host.memory()
        for number in windows:
            succeed(closer, "Close", window(number))
        size = count * len(text)
        yield arena.grown(f"{size / KIB:,.0f} KiB of events for "
                          f"{SILENT_CLIENTS} take",
                          arena.host.memory() - before, size + 4 * NOISE)


def succeed(client: Connection, method: str, request: Message) -> None:
    """Calls a method of the windows, which must succeed."""
    reply = client.call(SERVICE + method, request)
    if reply.HasField("status"):
        raise OSError(f"{method}: {reply.status.text.decode()}")
