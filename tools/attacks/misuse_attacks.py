"""Attacks by what the protocol does not allow, or a program gets wrong."""

from __future__ import annotations

import socket
import time
from typing import Iterator

from arena import KIB, WAIT_GOAL, Arena, Finding, attack, check
from google.protobuf import wrappers_pb2
from messages import (CLOSE_QUESTIONS, CLOSED_EVENTS, IS_VISIBLE, SERVICE,
                      answer_for, await_turn, subscribe_to, title, window)
from rpc.browser import browser_window_pb2
from status import ask, await_gone
from wire import (Code, Connection, Ended, Frame, data_frame, end_frame, field,
                  framed, open_frame, varint)

QUESTION_METHODS = ("OnCanExecuteCommand", "OnShowContextMenu", "OnCloseWindow")

# Frames that a client takes at least, by the protocol.
SHORTEST_FRAMES = 8 * KIB


def no_answer(arena: Arena, payload: bytes) -> Iterator[Finding]:
    """Sends it to each method of questions, on one connection.

    Each stream must end with INVALID_ARGUMENT, the connection must go on, and
    the host must have written down who it was.
    """
    name = "muddler"
    with arena.connect(name) as client:
        for stream, method in enumerate(QUESTION_METHODS, 1):
            client.send(open_frame(stream, client.method(SERVICE + method)),
                        data_frame(stream, payload))
            end = client.receive().stream_end
            code = Code(end.status.code)
            yield check(f"{method} ends with INVALID_ARGUMENT",
                        end.stream_id == stream and
                        code == Code.INVALID_ARGUMENT)
            client.send(end_frame(stream))
        await_turn(client)
    yield check("its name is in the records", name in arena.host.records())
    counted = ask(arena.host.path).messages_refused
    yield check(f"status counts {counted} messages refused",
                counted == len(QUESTION_METHODS))


@attack()
def empty_answer(arena: Arena) -> Iterator[Finding]:
    """On a stream of questions, a message that says nothing."""
    yield from no_answer(arena, b"")


@attack()
def unparsable_answer(arena: Arena) -> Iterator[Finding]:
    """On a stream of questions, bytes that are no message."""
    yield from no_answer(arena, b"\xff\xff\xff")


@attack()
def newer_answer(arena: Arena) -> Iterator[Finding]:
    """On a stream of questions, a kind of message that is not known yet."""
    yield from no_answer(arena, field(1, b"\x08\x01") + field(100, b"news"))


@attack()
def question_as_answer(arena: Arena) -> Iterator[Finding]:
    """On a stream of questions, a question of the client's own."""
    question = browser_window_pb2.CloseWindow(browser_id=window(1))
    question.question.reason = browser_window_pb2.WINDOW_CLOSE_REASON_USER
    yield from no_answer(arena, question.SerializeToString())


@attack("--answer-timeout", "60")
def half_closed_client(arena: Arena) -> Iterator[Finding]:
    """A client that answers for a window shuts its reading side."""
    with arena.connect("deaf") as client:
        client.send(open_frame(1, client.method(CLOSE_QUESTIONS)),
                    data_frame(1, answer_for(3)))
        await_turn(client)
        client.socket.shutdown(socket.SHUT_RD)
        start = time.monotonic()
        arena.host.type("close 3")
        arena.host.await_line("Window 3 is closed: its client has left.")
        yield arena.waited("the question ends after",
                           time.monotonic() - start, WAIT_GOAL)
    with arena.connect("deaf") as client:
        client.socket.shutdown(socket.SHUT_RD)
        client.start_call(IS_VISIBLE, window(1).SerializeToString())
        await_gone(arena.host.path, "deaf")
        yield Finding("a call for nobody closes the connection", True)


@attack()
def long_title(arena: Arena) -> Iterator[Finding]:
    """A title that makes an event too long for a client that subscribes."""
    with (arena.connect("small", max_frame_bytes=SHORTEST_FRAMES) as small,
          arena.connect() as client):
        small.send(open_frame(1, small.method(CLOSED_EVENTS)),
                   data_frame(1, subscribe_to(1)),
                   data_frame(1, subscribe_to(3)))
        await_turn(small)
        for size, code in ((4 * KIB, Code.OK),
                           (4 * KIB + 1, Code.INVALID_ARGUMENT),
                           (8_200, Code.INVALID_ARGUMENT)):
            reply = client.call(SERVICE + "SetTitle", title(1, "t" * size))
            got = Code(reply.status.code)
            yield check(f"{size:,} bytes: {code.name}", got == code)
        for number in (1, 3):
            client.call(SERVICE + "Close", window(number))
            frame = small.receive()
            event = browser_window_pb2.BrowserWindowClosed.FromString(
                frame.stream_data.message.payload)
            yield check(f"the event about window {number} arrives",
                        frame.WhichOneof("body") == "stream_data" and
                        event.browser_id.value == number)


@attack()
def long_numbers(arena: Arena) -> Iterator[Finding]:
    """Numbers of 32 bits, sent with more: the method 2^32 + another's id."""
    request = window(1).SerializeToString()
    with arena.connect() as client:
        hide = client.method(SERVICE + "Hide")
        client.send(framed(field(3, number(1, 1) + number(2, 2**32 + hide) +
                                 field(4, request))))
        yield check("the call is refused", not succeeded(client))
    with arena.connect() as client:
        reply = client.call(IS_VISIBLE, window(1))
        visible = wrappers_pb2.BoolValue.FromString(reply.response)
        yield check("the other method was not called", visible.value)
    with arena.connect() as client:
        events = client.method(CLOSED_EVENTS)
        client.send(framed(field(6, number(1, 1) + number(2, 2**32 + events))),
                    data_frame(1, subscribe_to(1)))
        yield check("the stream is refused", not opened(client))


def number(field_number: int, value: int) -> bytes:
    """One varint field."""
    return varint(field_number << 3) + varint(value)


def succeeded(client: Connection) -> bool:
    """Whether the only call was answered without a fault."""
    frame = next_frame(client)
    return frame is not None and not frame.reply.HasField("status")


def opened(client: Connection) -> bool:
    """Whether a stream is open; the server would have ended it by now."""
    try:
        call_id = client.start_call(IS_VISIBLE, window(1).SerializeToString())
    except Ended:
        return False
    frame = next_frame(client)
    return frame is not None and frame.reply.call_id == call_id


def next_frame(client: Connection) -> Frame | None:
    try:
        return client.receive()
    except Ended:
        return None
