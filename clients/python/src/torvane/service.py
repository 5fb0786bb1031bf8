"""A service as a Python object: its methods as functions."""

import inspect
from typing import TYPE_CHECKING, Any, Callable, Optional, Protocol, Sequence, Union

from torvane.arguments import TIMEOUT, request_of, signature_of
from torvane.contract import Contract, Method, MethodKind, ServiceContract
from torvane.questions import Handler

# A deadline in seconds, None for none, or ... for the client's own.
Timeout = Union[float, None, "ellipsis"]  # noqa: F821

WINDOWS = "rpc.BrowserWindow"


class Caller(Protocol):
    """What a service's functions go through: a client of one kind or another.

    What the operations return depends on the client: a coroutine or a result, a
    stream for `async for` or for `for`.
    """

    def call(self, method: Method, request: Any, timeout: Any) -> Any:
        """Calls a unary method."""

    def open_events(self, method: Method, windows: Sequence[int]) -> Any:
        """Opens a stream of events."""

    def open_questions(self, method: Method, windows: Sequence[int], handler: Handler) -> Any:
        """Opens a stream of questions."""


class Service:
    """The methods of one service, made from its descriptor.

    A unary method takes the number of a window where its request names one, the
    other fields by keyword, and a deadline:

        await client.windows.set_title(1, title="Inbox", timeout=0.5)

    or the whole request as a message. It returns a bool, str or number where the
    response is one of protobuf's wrappers, None where it is Empty, else the
    response. A field that is None is left out; a message may be given as a dict,
    an enum by its name. A field with the name "timeout" can only be set in a
    whole request.

    A method with events takes windows and returns a stream of events. A method
    with questions takes windows and decorates the handler, or takes it as
    handler=....

    Failure: TypeError and ValueError for wrong arguments, before anything is
    sent; RpcError for everything else.
    """

    def __init__(self, caller: Caller, contract: ServiceContract) -> None:
        self._full_name = contract.full_name
        self.__doc__ = contract.doc or self.__doc__
        for method in contract.methods:
            if method.kind in _FUNCTIONS:
                function = _FUNCTIONS[method.kind](caller, method)
                function.__name__ = method.python_name
                function.__qualname__ = f"{contract.full_name}.{method.python_name}"
                function.__doc__ = method.doc
                setattr(self, method.python_name, function)

    # Tells type checkers that there are methods; called only for what is missing.
    def __getattr__(self, name: str) -> Any:
        raise AttributeError(f"the service {self._full_name} has no method {name}()")

    def __repr__(self) -> str:
        return f"<service {self._full_name}>"


if TYPE_CHECKING:
    # The same, with the methods of the contract, for each kind of client.
    from torvane.contract_types import (
        BlockingReconnectingWindows as BlockingReconnectingWindows,
        BlockingWindows as BlockingWindows,
        ReconnectingWindows as ReconnectingWindows,
        Windows as Windows,
    )
else:

    class Windows(Service):
        """The browser's windows: the service rpc.BrowserWindow."""

        def __init__(self, caller: Caller, contract: Contract) -> None:
            super().__init__(caller, contract.service(WINDOWS))

        def closed(self, *windows: int) -> Any:
            """The events that one of the windows has closed: the short name of
            when_browser_window_closed()."""
            return self.when_browser_window_closed(*windows)

    ReconnectingWindows = BlockingWindows = BlockingReconnectingWindows = Windows


def _unary(caller: Caller, method: Method) -> Callable[..., Any]:
    def call(*args: Any, timeout: Timeout = ..., **fields: Any) -> Any:
        return caller.call(method, request_of(method, args, fields), timeout)

    call.__signature__ = signature_of(method)  # type: ignore[attr-defined]
    return call


def _events(caller: Caller, method: Method) -> Callable[..., Any]:
    def events(*windows: int) -> Any:
        return caller.open_events(method, windows)

    return events


def _questions(caller: Caller, method: Method) -> Callable[..., Any]:
    def questions(*windows: int, handler: Optional[Handler] = None) -> Any:
        if handler is not None:
            return caller.open_questions(method, windows, handler)
        return lambda handler: caller.open_questions(method, windows, handler)

    return questions


_FUNCTIONS = {
    MethodKind.UNARY: _unary,
    MethodKind.EVENTS: _events,
    MethodKind.QUESTIONS: _questions,
}
