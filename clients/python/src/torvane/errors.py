"""How operations fail: RpcError, with a canonical code and a text."""

import enum
from typing import Tuple, Type


class Code(enum.IntEnum):
    """The canonical codes of remote calls."""

    OK = 0
    CANCELLED = 1
    UNKNOWN = 2
    INVALID_ARGUMENT = 3
    DEADLINE_EXCEEDED = 4
    NOT_FOUND = 5
    ALREADY_EXISTS = 6
    PERMISSION_DENIED = 7
    RESOURCE_EXHAUSTED = 8
    FAILED_PRECONDITION = 9
    ABORTED = 10
    OUT_OF_RANGE = 11
    UNIMPLEMENTED = 12
    INTERNAL = 13
    UNAVAILABLE = 14
    DATA_LOSS = 15
    UNAUTHENTICATED = 16


class RpcError(Exception):
    """A call, a stream or the connection has failed.

    code: why, for programs; never OK.
    text: why, for people.
    method: the full name of the method, such as "rpc.BrowserWindow.Show"; empty
        where the connection as a whole has failed.
    """

    def __init__(self, code: Code, text: str, method: str = "") -> None:
        super().__init__(code, text, method)
        self.code = code
        self.text = text
        self.method = method

    def __str__(self) -> str:
        where = f"{self.method}: " if self.method else ""
        return f"{where}{self.code.name}: {self.text}"

    def about(self, method: str) -> "RpcError":
        """The same failure, as that of one method."""
        return RpcError(self.code, self.text, method)

    def __reduce__(self) -> Tuple[Type["RpcError"], Tuple[Code, str, str]]:
        return (RpcError, (self.code, self.text, self.method))


def code_from_wire(number: int) -> Code:
    """The code of that number; UNKNOWN where there is none."""
    try:
        return Code(number)
    except ValueError:
        return Code.UNKNOWN
