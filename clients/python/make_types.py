"""Writes src/torvane/contract_types.pyi: the methods and messages of the contract, as
type checkers read them.

    PYTHONPATH=build/release/clients/python/src /usr/bin/python3 \\
        clients/python/make_types.py > clients/python/src/torvane/contract_types.pyi

The file is kept with the sources, so that they can be checked, and the package
built, without the contract's descriptors. test_types fails when it is out of date.
"""

import sys
import textwrap
from typing import Callable, Dict, List

from torvane.arguments import TIMEOUT, is_repeated, signature_of
from torvane.contract import WRAPPERS, Descriptor, Method, MethodKind, builtin_contract
from torvane.service import WINDOWS

HEADER = '''\
"""The methods and messages of the contract, for type checkers only: there is no such
module at run time, so import it under TYPE_CHECKING.

Made by make_types.py, not by hand.
"""

from typing import Any, Callable, Literal, Protocol, Sequence, TypedDict, Union, overload

from torvane import blocking
from torvane.contract import Contract
from torvane.events import EventStream
from torvane.questions import Answerer, Handler
from torvane.reconnecting import Missed, ReconnectingAnswerer, ReconnectingEvents
from torvane.service import Caller

class AnyMessage(Protocol):
    """A message of the contract, or of code that was generated of the same files."""

    def SerializeToString(self) -> bytes: ...

class Message:
    """A message of the contract."""

    DESCRIPTOR: Any
    def ClearField(self, field_name: str) -> None: ...
    def CopyFrom(self, other_msg: Any) -> None: ...
    def HasField(self, field_name: str) -> bool: ...
    def ListFields(self) -> Any: ...
    def MergeFrom(self, other_msg: Any) -> None: ...
    def SerializeToString(self) -> bytes: ...
    def WhichOneof(self, oneof_group: str) -> Any: ...

# The number of a window, or a message: its BrowserId, or the whole request.
Window = Union[int, AnyMessage]

class _Methods:
    def __init__(self, caller: Caller, contract: Contract) -> None: ...
'''

# What each client's streams are: the class of its methods, the class that has its
# calls, what a stream of events is, what answers questions.
CLIENTS = (
    ("Windows", "AsyncCalls", "EventStream[{}]", "Answerer"),
    ("ReconnectingWindows", "AsyncCalls", "ReconnectingEvents[{}]", "ReconnectingAnswerer"),
    ("BlockingWindows", "BlockingCalls", "blocking.Events[{}]", "blocking.Answerer"),
    (
        "BlockingReconnectingWindows",
        "BlockingCalls",
        "blocking.Events[Union[{}, Missed]]",
        "blocking.Answerer",
    ),
)

# The short names that torvane.Windows adds.
SHORT_NAMES = {"when_browser_window_closed": "closed"}

LINE_LENGTH = 100

SCALARS = {
    "CPPTYPE_BOOL": "bool",
    "CPPTYPE_DOUBLE": "float",
    "CPPTYPE_FLOAT": "float",
    "CPPTYPE_STRING": "str",
}


class Writer:
    """Writes the file. Messages are written once a method or a message names them."""

    def __init__(self) -> None:
        self._classes: Dict[str, str] = {}

    def text(self) -> str:
        methods = builtin_contract().service(WINDOWS).methods
        parts = [HEADER]
        for name, prefix in (("AsyncCalls", "async def"), ("BlockingCalls", "def")):
            parts.append(f"class {name}(_Methods):")
            parts += (self._call(prefix, m) for m in methods if m.kind is MethodKind.UNARY)
        for name, calls, events, answerer in CLIENTS:
            parts.append(f"class {name}({calls}):")
            parts += (self._events(m, events) for m in methods if m.kind is MethodKind.EVENTS)
            parts += (_questions(m, answerer) for m in methods if m.kind is MethodKind.QUESTIONS)
        return "\n".join(parts + list(self._classes.values()))

    def _call(self, prefix: str, method: Method) -> str:
        fields = method.request_class.DESCRIPTOR.fields_by_name
        parameters = ["self"]
        for name, parameter in signature_of(method).parameters.items():
            if parameter.kind is parameter.POSITIONAL_ONLY:
                parameters += [f"{name}: Window", "/"]
            elif name != TIMEOUT:
                parameters.append(f"{name}: {self._given(fields[name])} | None = ...")
        parameters.insert(parameters.index("/") + 1, "*")
        parameters.append("timeout: float | None = ...")
        result = self._returned(method.response_class.DESCRIPTOR)
        return _function(prefix, method.python_name, parameters, result, method.doc)

    def _events(self, method: Method, events: str) -> str:
        result = events.format(self._message(method.response_class.DESCRIPTOR))
        long = method.python_name
        parameters = ["self", "*windows: Window"]
        text = _function("def", long, parameters, result, method.doc)
        if long in SHORT_NAMES:
            doc = f"The short name of {long}()."
            text += "\n" + _function("def", SHORT_NAMES[long], parameters, result, doc)
        return text

    def _returned(self, response: Descriptor) -> str:
        """The type of what a call returns."""
        if response.full_name == "google.protobuf.Empty":
            return "None"
        if response.full_name in WRAPPERS:
            return self._read(response.fields_by_name["value"])
        return self._message(response)

    def _read(self, field: Descriptor) -> str:
        """The type of a field that is read."""
        element = self._message(field.message_type) if field.message_type else _scalar(field)
        return f"Sequence[{element}]" if is_repeated(field) else element

    def _given(self, field: Descriptor) -> str:
        """The type of a field that the program gives."""
        element = _scalar(field)
        if field.message_type:
            element = f"AnyMessage | {self._dict(field.message_type)}"
        elif field.enum_type:
            element = self._enum(field.enum_type)
        return f"Sequence[{element}]" if is_repeated(field) else element

    def _message(self, message: Descriptor) -> str:
        """The class of a message that is read."""
        return self._class(_name_of(message), "Message", message, self._read)

    def _dict(self, message: Descriptor) -> str:
        """The class of a dict that stands for a message."""
        name = f"{_name_of(message)}Dict"
        return self._class(name, "TypedDict, total=False", message, self._given)

    def _enum(self, enum: Descriptor) -> str:
        """The type of an enum's values: their numbers and names."""
        names = "".join(f'        "{value.name}",\n' for value in enum.values)
        name = _name_of(enum)
        self._classes[name] = f"{name} = Union[\n    int,\n    Literal[\n{names}    ],\n]\n"
        return name

    def _class(
        self, name: str, base: str, message: Descriptor, type_of: Callable[[Descriptor], str]
    ) -> str:
        if name not in self._classes:
            self._classes[name] = ""  # A message may contain itself.
            fields = [f"    {field.name}: {type_of(field)}\n" for field in message.fields]
            self._classes[name] = f"class {name}({base}):\n" + "".join(fields or ["    pass\n"])
        return name


def _questions(method: Method, answerer: str) -> str:
    name, windows = method.python_name, ["self", "*windows: Window"]
    given = _function("def", name, [*windows, "handler: Handler"], answerer, method.doc)
    decorator = f"Callable[[Handler], {answerer}]"
    decorating = _function("def", name, [*windows, "handler: None = ..."], decorator, method.doc)
    return f"    @overload\n{given}\n    @overload\n{decorating}"


def _function(prefix: str, name: str, parameters: List[str], result: str, doc: str) -> str:
    head = f"    {prefix} {name}({', '.join(parameters)}) -> {result}:"
    if len(head) > LINE_LENGTH:
        lines = "".join(f"        {parameter},\n" for parameter in parameters)
        head = f"    {prefix} {name}(\n{lines}    ) -> {result}:"
    return head + "\n" + textwrap.indent(f'"""{doc}"""', "        ") + "\n"


def _scalar(field: Descriptor) -> str:
    if field.type == field.TYPE_BYTES:
        return "bytes"
    for cpp_type, name in SCALARS.items():
        if field.cpp_type == getattr(field, cpp_type):
            return name
    return "int"


def _name_of(declared: Descriptor) -> str:
    """The name of a message or an enum, after that of the message that it is within."""
    outer = declared.containing_type
    return f"{_name_of(outer)}{declared.name}" if outer else str(declared.name)


if __name__ == "__main__":
    sys.stdout.write(Writer().text())
