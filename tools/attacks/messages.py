"""The messages about windows that attackers and innocent clients send."""

from __future__ import annotations

import browser_id_pb2
from rpc import event_subscription_pb2
from rpc.browser import browser_window_pb2
from wire import Connection

SERVICE = "rpc.BrowserWindow."

IS_VISIBLE = SERVICE + "IsVisible"
CLOSED_EVENTS = SERVICE + "WhenBrowserWindowClosed"
CLOSE_QUESTIONS = SERVICE + "OnCloseWindow"

# Windows of nobody: subscribing to them is allowed, and nothing ever happens.
FAR_WINDOW = 1_000_000


class Refused(Exception):
    """The host has refused what an attack needs in order to begin."""


def window(number: int) -> browser_id_pb2.BrowserId:
    return browser_id_pb2.BrowserId(value=number)


def subscribe_to(number: int) -> bytes:
    """What an event stream sends to hear of a window."""
    return event_subscription_pb2.EventSubscription(
        subscribe_to=window(number)).SerializeToString()


def unsubscribe_from(number: int) -> bytes:
    return event_subscription_pb2.EventSubscription(
        unsubscribe_from=window(number)).SerializeToString()


def answer_for(number: int, subscribe: bool = True) -> bytes:
    """What a stream of closing questions sends to be asked about a window."""
    return browser_window_pb2.CloseWindow(
        browser_id=window(number), subscribe=subscribe).SerializeToString()


def allow_closing(number: int) -> bytes:
    answer = browser_window_pb2.CloseWindow(browser_id=window(number))
    answer.response.allowed = True
    return answer.SerializeToString()


def await_turn(client: Connection) -> None:
    """Returns when the host has handled all that the client has sent.

    Refused if anything but the reply comes, such as the end of a stream.
    """
    call_id = client.start_call(IS_VISIBLE, window(1).SerializeToString())
    frame = client.receive()
    if frame.reply.call_id != call_id:
        raise Refused(f"refused: {frame}")


def title(number: int, text: str) -> browser_window_pb2.WindowTitle:
    return browser_window_pb2.WindowTitle(browser_id=window(number), title=text)
