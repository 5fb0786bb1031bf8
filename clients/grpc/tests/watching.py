"""A client that uses a host in every way: it calls, hears events, answers questions."""

import queue
import threading
from typing import Any, Optional, Sequence, Tuple

import grpc
from processes import TIMEOUT, Host

# What goes with each call beside its request.
Metadata = Sequence[Tuple[str, str]]


class Client:
    """The methods of one host, by a channel. The stubs have to be there already: see
    make_stubs()."""

    def __init__(self, channel: grpc.Channel, metadata: Metadata = ()) -> None:
        from rpc.browser.browser_window_pb2_grpc import BrowserWindowStub
        from rpc.directory.window_directory_pb2_grpc import WindowDirectoryStub
        from rpc.status.server_status_pb2_grpc import ServerStatusStub

        # A stream that waits for what never comes ends, too.
        self._options = {"metadata": metadata, "timeout": TIMEOUT}
        self._windows = BrowserWindowStub(channel)
        self._directory = WindowDirectoryStub(channel)
        self._status = ServerStatusStub(channel)

    def title(self) -> str:
        """Of window 1."""
        from browser_id_pb2 import BrowserId

        return self._windows.GetTitle(BrowserId(value=1), **self._options).value

    def set_title(self, title: str) -> None:
        from browser_id_pb2 import BrowserId
        from rpc.browser.browser_window_pb2 import WindowTitle

        request = WindowTitle(browser_id=BrowserId(value=1), title=title)
        self._windows.SetTitle(request, **self._options)

    def close_a_window(self) -> Any:
        """Opens one for that; returns its id."""
        from rpc.directory.window_directory_pb2 import OpenWindowRequest

        opened = self._directory.OpenWindow(OpenWindowRequest(), **self._options).browser_id
        self._windows.Close(opened, **self._options)
        return opened

    def subscriptions(self) -> int:
        """How many the host has from everybody."""
        return self.status().total.subscriptions

    def status(self) -> Any:
        from rpc.status.server_status_pb2 import StatusRequest

        return self._status.GetStatus(StatusRequest(), **self._options)

    def events(self) -> Any:
        """A stream of what closes, of all windows."""
        from browser_id_pb2 import BrowserId
        from rpc.event_subscription_pb2 import EventSubscription

        subscription = EventSubscription(subscribe_to=BrowserId())
        return self._windows.WhenBrowserWindowClosed(iter([subscription]), **self._options)

    def questions(self, messages: Any) -> Any:
        """A stream of questions about commands, which sends these messages."""
        return self._windows.OnCanExecuteCommand(messages, **self._options)


class Watcher:
    """A stream of events of one host, and one of questions about window 1, which a
    thread answers. Made when the host has both subscriptions."""

    def __init__(self, client: Client) -> None:
        self._client = client
        self._sent: "queue.SimpleQueue[Any]" = queue.SimpleQueue()
        before = client.subscriptions()
        self._events = client.events()
        self._questions = client.questions(iter(self._sent.get, None))
        self._questions_end: Optional[grpc.RpcError] = None
        self._thread = threading.Thread(target=self._answer, daemon=True)
        self._thread.start()
        while client.subscriptions() != before + 2:
            self.check()

    def check(self) -> None:
        """Raises the end of a stream, which is a grpc.RpcError, where one has ended."""
        for stream in self._events, self._questions:
            if not stream.is_active():
                raise stream

    def hear_of_a_closed_window(self) -> None:
        """Closes one, and expects its event to be the next."""
        closed = self._client.close_a_window()
        heard = next(self._events).browser_id
        if heard != closed:
            raise AssertionError(f"heard of {heard}, not of {closed}")

    def answer_a_question(self, host: Host) -> None:
        """Has the host's user do what the client is asked about."""
        host.say("command 1 reload")
        host.expect("Window 1 executes reload: its client allows that.")

    def ends(self) -> Tuple[grpc.RpcError, grpc.RpcError]:
        """Waits until both streams end, and returns how."""
        events_end = None
        try:
            event = next(self._events)
        except grpc.RpcError as error:
            events_end = error
        if not events_end:
            raise AssertionError(f"an event instead of an end: {event}")
        self._thread.join(TIMEOUT)
        if not self._questions_end:
            raise AssertionError("the stream of questions has not ended")
        return events_end, self._questions_end

    def close(self) -> None:
        self._events.cancel()
        self._questions.cancel()
        self._sent.put(None)
        self._thread.join(TIMEOUT)

    def _answer(self) -> None:
        from browser_id_pb2 import BrowserId
        from rpc.browser.browser_window_pb2 import CanExecuteCommand

        self._sent.put(CanExecuteCommand(browser_id=BrowserId(value=1), subscribe=True))
        try:
            for asked in self._questions:
                allowed = CanExecuteCommand.Response(allowed=True)
                self._sent.put(
                    CanExecuteCommand(
                        browser_id=asked.browser_id, call_id=asked.call_id, response=allowed
                    )
                )
        except grpc.RpcError as error:
            self._questions_end = error
